// SPDX-License-Identifier: Apache-2.0
#include "driver/bbpflash.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "chip/version_text.h"
#include "hutil/hutil_init.h"
#include "platform/platform.h"

std::string installed_version;
std::string file_version;
std::string filename;
HdChip* p_ischip = nullptr;
bool g_options[OPTION_COUNT];
int state = STATE_INIT;

namespace {

const char BUS_DEVICE[] = "/dev/i2c1";
const int BUS_SPEED = 400000;  // bits per second

// Takes the line's level as a character, '0' low or '1' high; the chip is in reset while it is low.
const char RESET_DEVICE[] = "/dev/gpio/HD_DAB2Reset";
const unsigned int RESET_LOW_TIME = 200;     // milliseconds
const unsigned int RESET_START_TIME = 3000;  // milliseconds, until the chip's firmware runs

// Where an image keeps its label: the version that the chip reports once the image is installed.
const long LABEL_OFFSET = 925630;
const size_t LABEL_SIZE = 37;

const int MAX_PROGRAMMING_TRIES = 3;

const char* TrueOrFalse(bool value) {
    return value ? "true" : "false";
}

void ParseOptions(int argc, char** argv) {
    for (int i = 0; i < OPTION_COUNT; ++i) {
        g_options[i] = false;
    }
    int option;
    while ((option = getopt(argc, argv, PLATFORM_GETOPT_STOP ":fis")) != -1) {
        switch (option) {
            case 'f':
                g_options[OPTION_FORCE] = true;
                break;
            case 'i':
                g_options[OPTION_INFO_ONLY] = true;
                break;
            case 's':
                g_options[OPTION_STATUS] = true;
                break;
            default:
                break;
        }
    }
    HUTIL_INFO("additional option (i = %s)", TrueOrFalse(g_options[OPTION_INFO_ONLY]));
    HUTIL_INFO("additional option (f = %s)", TrueOrFalse(g_options[OPTION_FORCE]));
}

// Does what the state asks for and goes to the next one. `tries` counts the passes of programming.
void Advance(int* tries) {
    switch (state) {
        case STATE_INIT:
            state = bbpflash_init();
            break;

        case STATE_RESET:
            state = bbpflash_reset();
            break;

        case STATE_CHECK_VERSION:
            state = bbpflash_check_version();
            // Relied on: force overrules whatever the check found, a failure too, once.
            if (g_options[OPTION_FORCE]) {
                state = STATE_PROGRAM;
                g_options[OPTION_FORCE] = false;
            }
            break;

        case STATE_PROGRAM:
            *tries += 1;
            if (*tries > MAX_PROGRAMMING_TRIES) {
                HUTIL_CRITICAL("maximum number of programming tries exceeded");
                hutil_fail();
            }
            state = bbpflash_program();
            break;

        case STATE_FAILED:
            HUTIL_CRITICAL("Programming terminated");
            hutil_fail();

        default:
            HUTIL_CRITICAL("Unknown programming state (%d)", state);
            hutil_fail();
    }
}

}  // namespace

int main(int argc, char** argv) {
    p_ischip = nullptr;
    hutil_init(argc, argv);
    ParseOptions(argc, argv);

    if (argc <= 1) {
        HUTIL_ERROR("Please try \"use bbpflash\" to get usage details\n");
        exit(EXIT_FAILURE);
    }
    filename = argv[argc - 1];
    if (!g_options[OPTION_STATUS]) {
        HUTIL_PLAIN("HD tuner firmware updater");
    }

    state = STATE_INIT;
    int tries = 0;
    while (state != STATE_DONE) {
        Advance(&tries);
    }
    delete p_ischip;
    if (g_options[OPTION_STATUS]) {
        fprintf(stdout, "100\n");
        fprintf(stdout, "DONE\n");
    }
    fflush(stdout);
    return 0;
}

int bbpflash_init() {
    HUTIL_INFO("Initializing update system and i2c bus");
    p_ischip = new (std::nothrow) HdChip(BUSTYPE_I2C);
    if (p_ischip == nullptr) {
        HUTIL_ERROR("Instantiating bus and chip");
        return STATE_FAILED;
    }
    if (!p_ischip->OpenChip(BUS_DEVICE, BUS_SPEED)) {
        HUTIL_ERROR("Opening special device %s", BUS_DEVICE);
        return STATE_FAILED;
    }
    HUTIL_INFO("Update system initialization complete");
    return STATE_RESET;
}

int bbpflash_reset() {
    HUTIL_INFO("Doing hardware reset of HD module");
    // Kept: the device stays open until the process ends; a run opens it four times at most.
    const int line = open(RESET_DEVICE, O_RDWR);
    if (line == -1) {
        HUTIL_ERROR("Opening %s", RESET_DEVICE);
        return STATE_FAILED;
    }
    if (write(line, "0", 1) != 1) {
        HUTIL_ERROR("Lowering reset line, %s", RESET_DEVICE);
        return STATE_FAILED;
    }
    if (delay(RESET_LOW_TIME) != 0) {
        HUTIL_ERROR("Delaying");
        return STATE_FAILED;
    }
    if (write(line, "1", 1) != 1) {
        HUTIL_ERROR("Raising reset line, %s", RESET_DEVICE);
        return STATE_FAILED;
    }
    HUTIL_INFO("Waiting for firmware reset to complete");
    if (delay(RESET_START_TIME) != 0) {
        HUTIL_ERROR("Delaying");
        return STATE_FAILED;
    }
    p_ischip->lm->Reset(true);
    HUTIL_INFO("Hardware reset of HD module complete");
    return STATE_CHECK_VERSION;
}

int bbpflash_check_version() {
    if (!p_ischip->GetVersion(installed_version)) {
        HUTIL_ERROR("Unable to get installed version");
        return STATE_FAILED;
    }
    HUTIL_INFO("Installed firmware version is \"%s\" [%d]", installed_version.c_str(),
               static_cast<int>(installed_version.length()));
    if (g_options[OPTION_INFO_ONLY]) {
        HUTIL_PLAIN("Installed firmware version is \"%s\"\n", installed_version.c_str());
        return STATE_DONE;
    }

    HUTIL_INFO("Checking HD update versions");
    if (!get_bin_file_version(file_version, filename)) {
        HUTIL_ERROR("Unable to get bin file version");
        return STATE_FAILED;
    }
    HUTIL_INFO("BIN file firmware version is \"%s\" [%d]", file_version.c_str(),
               static_cast<int>(file_version.length()));
    if (file_version == installed_version) {
        if (!g_options[OPTION_STATUS]) {
            HUTIL_PLAIN("Installed version matches BIN file label");
        }
        return STATE_DONE;
    }
    return STATE_PROGRAM;
}

int bbpflash_program() {
    if (!p_ischip->ProgramBin(filename)) {
        HUTIL_ERROR("Unable to program file");
        return STATE_FAILED;
    }
    return STATE_RESET;
}

bool get_bin_file_version(std::string& version, std::string&) {
    // Kept: the stream stays open until the process ends; a run opens four of them at most.
    FILE* const image = fopen(filename.c_str(), "r");
    if (image == nullptr) {
        HUTIL_ERROR("opening bin file %s", filename.c_str());
        return false;
    }
    if (fseek(image, LABEL_OFFSET, SEEK_SET) != 0) {
        HUTIL_ERROR("seeking bin file label with result \"%s\" (%d)", strerror(errno), errno);
        return false;
    }
    char field[LABEL_SIZE] = {0};
    if (fread(field, 1, sizeof field, image) == 0) {
        HUTIL_ERROR("reading bin file label with result \"%s\" (%d)", strerror(errno), errno);
        return false;
    }
    version.assign(field, sizeof field);
    version = TrimmedVersion(version);
    return true;
}
