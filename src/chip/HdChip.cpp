// SPDX-License-Identifier: Apache-2.0
#include "chip/HdChip.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "chip/version_text.h"
#include "hutil/hutil_init.h"
#include "hutil/run_flags.h"
#include "platform/platform.h"

namespace {

const char CHIP_NAME[] = "Cayman";
const int CHIP_ADDRESS = 0x2E;      // 8-bit form; 0x17 on the bus
const int CHIP_BUS_SPEED = 400000;  // bits per second

const unsigned char OPCODE_VERSION = 0x80;
const unsigned char OPCODE_CONFIGURATION = 0x83;
const unsigned char OPCODE_FLASH = 0x84;

// The first payload byte says which of an opcode's functions is meant.
const unsigned char FUNCTION_READ_VERSION = 0x01;
const unsigned char FUNCTION_READ_CONFIGURATION = 0x09;
const unsigned char FUNCTION_PROGRAM = 0x04;
const unsigned char FUNCTION_PROGRAM_STATUS = 0x05;
const unsigned char FUNCTION_UNPROTECT = 0x0B;
const unsigned char FUNCTION_FLASH_STATUS = 0x0C;

// The chip's time before it has a reply, in microseconds.
const useconds_t QUERY_WAIT = 5000;
const useconds_t PROGRAM_STATUS_WAIT = 1000;
const useconds_t SEGMENT_WAIT = 750;

const unsigned int POLL_INTERVAL = 350;  // milliseconds

// A short command: one segment, whose payload is the function byte.
struct Command {
    unsigned char opcode;
    unsigned char function;
    useconds_t wait;
};
const int COMMAND_TOTAL = 14;   // bytes that the number of segments is made for: header and all
const int COMMAND_PAYLOAD = 1;  // bytes

const Command READ_VERSION = {OPCODE_VERSION, FUNCTION_READ_VERSION, QUERY_WAIT};
const Command READ_CONFIGURATION = {OPCODE_CONFIGURATION, FUNCTION_READ_CONFIGURATION, QUERY_WAIT};
const Command FLASH_STATUS = {OPCODE_FLASH, FUNCTION_FLASH_STATUS, QUERY_WAIT};
const Command PROGRAM_STATUS = {OPCODE_FLASH, FUNCTION_PROGRAM_STATUS, PROGRAM_STATUS_WAIT};
const Command UNPROTECT = {OPCODE_FLASH, FUNCTION_UNPROTECT, QUERY_WAIT};

// Room for the payload of a short reply, of at most 51 bytes, with a NUL behind it.
const int REPLY_SIZE = 100;

const int CONFIGURATION_SIZE = 256;  // bytes, after the kind
const size_t CONFIGURATION_ALIGNMENT = 16;

enum Outcome {
    ALL_WELL,  // as far as it has come
    NO_ENGINE,
    NO_SEGMENTS,  // the number of segments could not be set
    STEP_FAILED
};

bool BeginSegment(HcLogical* lm, unsigned char opcode, int size) {
    if (!lm->Begin(opcode, size)) {
        HUTIL_ERROR("beginning");
        return false;
    }
    return true;
}

// Starts a command of `total` bytes for the number of segments and `size` for the first one's
// length, and puts its function byte in. Returns ALL_WELL or what failed.
Outcome BeginCommand(HcLogical* lm, unsigned char opcode, unsigned char function, int total,
                     int size) {
    lm->Reset(false);
    if (!lm->SetNumSegs(total)) {
        HUTIL_ERROR("setting total number of segments");
        return NO_SEGMENTS;
    }
    if (!BeginSegment(lm, opcode, size)) {
        return STEP_FAILED;
    }
    if (lm->Fill(function) != 1) {
        HUTIL_ERROR("filling");
        return STEP_FAILED;
    }
    return ALL_WELL;
}

bool TerminateSegment(HcLogical* lm) {
    if (!lm->Terminate()) {
        HUTIL_ERROR("terminating");
        return false;
    }
    return true;
}

// Sends the segment with its `payload` bytes and gives the chip `wait` microseconds.
bool SendSegment(HcLogical* lm, int payload, useconds_t wait) {
    if (lm->Send() != payload) {
        HUTIL_ERROR("sending");
        return false;
    }
    usleep(wait);
    return true;
}

// Sends a short command and waits until its reply can be fetched.
Outcome SendCommand(HcLogical* lm, const Command& command) {
    if (lm == nullptr) {
        return NO_ENGINE;
    }
    const Outcome begun =
        BeginCommand(lm, command.opcode, command.function, COMMAND_TOTAL, COMMAND_PAYLOAD);
    if (begun != ALL_WELL) {
        return begun;
    }
    if (!TerminateSegment(lm) || !SendSegment(lm, COMMAND_PAYLOAD, command.wait)) {
        return STEP_FAILED;
    }
    return ALL_WELL;
}

// Sends a short command and fetches its short reply into `reply`, REPLY_SIZE bytes, cleared first.
Outcome Ask(HcLogical* lm, const Command& command, unsigned char* reply) {
    memset(reply, 0, REPLY_SIZE);
    const Outcome sent = SendCommand(lm, command);
    if (sent != ALL_WELL) {
        return sent;
    }
    if (!lm->RetrieveShort(reply)) {
        HUTIL_ERROR("confirming");
        return STEP_FAILED;
    }
    return ALL_WELL;
}

// How a status query words what is going on.
struct StatusWords {
    const char* erasing;
    const char* programming;
    const char* verifying;
};
const StatusWords FLASH_STATUS_WORDS = {"erasing flash", "programming flash",
                                        "verifying flash image"};
const StatusWords PROGRAM_STATUS_WORDS = {
    "erasing old flash contents", "programming new flash contents", "verifying new flash contents"};

// Reports the status and returns it, or -1 for one that is an error.
int ReportStatus(int status, const StatusWords& words) {
    switch (status) {
        case PGM_COMPLETE:
            return status;
        case PGM_IDLE:
            HUTIL_INFO("idle, not in programming mode");
            return status;
        case PGM_ERASING:
            HUTIL_INFO("%s", words.erasing);
            return status;
        case PGM_PROGRAMMING:
            HUTIL_INFO("%s", words.programming);
            return status;
        case PGM_VERIFYING:
            HUTIL_INFO("%s", words.verifying);
            return status;
        case PGM_VERIFICATION_FAILED:
            HUTIL_ERROR("image verification failed, CRC error");
            return -1;
        case PGM_SECURITY_MISMATCH:
            HUTIL_ERROR("flash image and NVM security status mismatch");
            return -1;
        case PGM_SINGLE_ON_DUAL:
            HUTIL_ERROR("using single tuner image on dual tuner flash");
            return -1;
        case PGM_DUAL_ON_SINGLE:
            HUTIL_ERROR("using dual tuner image on single tuner flash");
            return -1;
        default:
            HUTIL_ERROR("unknown or reserved Pgm_Write_Status");
            return -1;
    }
}

// Asks for a status, which is byte `position` of the reply.
int QueryStatus(HcLogical* lm, const Command& command, int position, const StatusWords& words) {
    unsigned char reply[REPLY_SIZE];
    switch (Ask(lm, command, reply)) {
        case ALL_WELL:
            return ReportStatus(reply[position], words);
        case NO_SEGMENTS:
            // Kept: this one failure is 0, all others are -1; 14 bytes never fail there.
            return 0;
        default:
            return -1;
    }
}

// Opens the image file at its beginning and measures it. Returns null, reported, on a failure.
// Kept: the file stays open until the process ends; a run opens three of them at most.
FILE* OpenImage(const char* path, int* size) {
    FILE* const file = fopen(path, "r");
    if (file == nullptr) {
        HUTIL_ERROR("opening binary file %s", path);
        return nullptr;
    }
    if (fseek(file, 0, SEEK_END) != 0) {
        HUTIL_ERROR("seeking end of file with result \"%s\" (%d)", strerror(errno), errno);
        return nullptr;
    }
    const long position = ftell(file);
    *size = static_cast<int>(position);
    if (*size != position) {
        // Where a long is wider than an int, as ftell does where it is not.
        errno = EOVERFLOW;
        *size = -1;
    }
    if (*size == -1) {
        HUTIL_ERROR("getting file size with result \"%s\" (%d)", strerror(errno), errno);
        return nullptr;
    }
    HUTIL_INFO("filesize: %d", *size);
    if (fseek(file, 0, SEEK_SET) != 0) {
        HUTIL_ERROR("seeking beginning of file with result \"%s\" (%d)", strerror(errno), errno);
        return nullptr;
    }
    return file;
}

// The share of the download in a run's 100 per cent.
const unsigned int DOWNLOAD_PERCENT = 80;

// Status mode's percentage of the download on standard output, a line whenever it changes.
class DownloadPercentage {
  public:
    explicit DownloadPercentage(int image_size) : size(image_size), last(0) {}

    void Show(int sent) {
        // A file that was empty when it was measured has no percentage.
        if (!g_options[OPTION_STATUS] || size <= 0) {
            return;
        }
        // Kept: exact up to 26843545 bytes, beyond the product wraps in 32 bits; no image is as
        // long.
        const int percentage =
            static_cast<int>(static_cast<unsigned int>(sent) * DOWNLOAD_PERCENT) / size;
        if (percentage != last) {
            printf("%d\n", percentage);
            last = percentage;
        }
    }

  private:
    const int size;
    int last;
};

// Sends what `file` still holds for the segment that was begun, and has it acknowledged. Returns
// the number of file bytes, 0, reported, on a failure.
int SendImageSegment(HcLogical* lm, FILE* file) {
    const int filled = lm->Fill(file);
    // Kept: a file that ends just where a segment does comes here once more, and fails before the
    // chip has written anything; the tool that makes images keeps them from ending there.
    if (filled == 0) {
        HUTIL_ERROR("filling");
        return 0;
    }
    if (!TerminateSegment(lm)) {
        return 0;
    }
    const int payload = lm->txBuffer->GetLength() - HcLogical::OVERHEAD;
    if (!SendSegment(lm, payload, SEGMENT_WAIT)) {
        return 0;
    }
    if (!lm->RetrieveShort(nullptr)) {
        HUTIL_ERROR("confirming BIN write");
        return 0;
    }
    return filled;
}

// Sends the whole file as one logical message, segment by segment, each acknowledged.
bool Download(HcLogical* lm, FILE* file, int size) {
    if (BeginCommand(lm, OPCODE_FLASH, FUNCTION_PROGRAM, size, size) != ALL_WELL) {
        return false;
    }
    DownloadPercentage percentage(size);
    int remaining = size;
    for (;;) {
        const int sent = SendImageSegment(lm, file);
        if (sent == 0) {
            return false;
        }
        remaining -= sent;
        percentage.Show(size - remaining);
        fflush(stdout);
        if (feof(file)) {
            return true;
        }
        if (!BeginSegment(lm, OPCODE_FLASH, remaining)) {
            return false;
        }
    }
}

// The percentage line of a status, empty where it has none.
const char* StatusPercentage(int status) {
    switch (status) {
        case PGM_ERASING:
            return "85\n";
        case PGM_PROGRAMMING:
            return "90\n";
        case PGM_VERIFYING:
            return "95\n";
        case PGM_COMPLETE:
            return "99\n";
        default:
            return "";
    }
}

// Tells a person that the chip has come to another status.
void TellStatus(int status) {
    switch (status) {
        case PGM_ERASING:
            HUTIL_PLAIN("BBP is erasing old flash contents (do not interrupt!)");
            break;
        case PGM_PROGRAMMING:
            HUTIL_PLAIN("BBP is programming new flash contents (do not interrupt!)");
            break;
        case PGM_VERIFYING:
            HUTIL_PLAIN("BBP is verifying new flash contents (do not interrupt!)");
            break;
        case PGM_COMPLETE:
            HUTIL_PLAIN("BBP programming completed, resetting for version verification");
            break;
        default:
            break;
    }
}

// Waits until the chip has programmed its flash, without bound: an interruption then would corrupt
// it. In status mode it writes the percentages, else it tells the stages.
bool WaitUntilProgrammed(HdChip* chip) {
    int last_status = 0;
    for (;;) {
        delay(POLL_INTERVAL);
        const int status = chip->ProgramWriteStatus();
        // Kept: no status is 255, a failed query is -1; the wait must go on after that one.
        if (status == 255) {
            HUTIL_ERROR("Unable to get system status");
            return false;
        }
        if (status != last_status) {
            if (g_options[OPTION_STATUS]) {
                printf("%s", StatusPercentage(status));
                fflush(stdout);
            } else {
                TellStatus(status);
            }
            last_status = status;
        }
        if (status == PGM_COMPLETE) {
            return true;
        }
    }
}

}  // namespace

HdChip::HdChip(bustype_t type)
    : chipName(CHIP_NAME),
      i2cAddress(CHIP_ADDRESS),
      busSpeed(CHIP_BUS_SPEED),
      lm(nullptr),
      bus(nullptr) {
    if (type != BUSTYPE_I2C) {
        HUTIL_CRITICAL("unhandled bus type (I2C only at this time)");
        hutil_fail();
    }
    bus = new (std::nothrow) I2cBus(CHIP_ADDRESS);
    if (bus == nullptr) {
        HUTIL_CRITICAL("instantiating an I2C bus object");
        hutil_fail();
    }
    lm = new (std::nothrow) HcLogical(bus, static_cast<unsigned char>(i2cAddress));
    if (lm == nullptr) {
        HUTIL_CRITICAL("instantiating an LM");
        hutil_fail();
    }
}

HdChip::~HdChip() {
    delete bus;
}

bool HdChip::OpenChip(const char* device, int speed) {
    if (bus->i2cOpen(device, speed) != 0) {
        HUTIL_ERROR("opening connection to chip on %s at %d", device, speed);
        return false;
    }
    HUTIL_INFO("%s chip ready", chipName.c_str());
    return true;
}

I2cBus* HdChip::GetBus() {
    return bus;
}

bool HdChip::GetVersion(std::string& version) {
    unsigned char reply[REPLY_SIZE];
    if (Ask(lm, READ_VERSION, reply) != ALL_WELL) {
        return false;
    }
    // Byte 0 is no text. The text takes the payload's full length from byte 1 on, so its last byte
    // is the NUL behind the payload.
    const size_t length = static_cast<size_t>(lm->GetRxPayloadSize());
    const std::string text(reinterpret_cast<const char*>(reply) + 1, length);
    version.clear();
    // The two characters that go are the payload's closing NUL and the one behind.
    version = TrimmedVersion(text);
    return true;
}

bool HdChip::PrintSysCfg() {
    if (SendCommand(lm, READ_CONFIGURATION) != ALL_WELL) {
        return false;
    }
    const size_t size = 1 + CONFIGURATION_SIZE;
    void* memory = nullptr;
    if (posix_memalign(&memory, CONFIGURATION_ALIGNMENT, size) != 0) {
        HUTIL_ERROR("allocating memory buffer");
        return false;
    }
    unsigned char* const configuration = static_cast<unsigned char*>(memory);
    memset(configuration, 0, size);
    if (!lm->RetrieveLong(configuration)) {
        HUTIL_ERROR("confirming");
        free(memory);
        return false;
    }
    switch (configuration[0]) {
        case 0:
            HUTIL_INFO("active system configuration");
            break;
        case 1:
            HUTIL_INFO("Default system configuration data");
            break;
        case 2:
            HUTIL_INFO("custom system configuration data");
            break;
        default:
            break;
    }
    hutil_print16(stdout, configuration + 1, CONFIGURATION_SIZE);
    free(memory);
    return true;
}

int HdChip::GetNvmStatus() {
    return QueryStatus(lm, FLASH_STATUS, 0, FLASH_STATUS_WORDS);
}

int HdChip::ProgramWriteStatus() {
    // The chip puts this status into byte 1 of its reply, the other query's into byte 0.
    return QueryStatus(lm, PROGRAM_STATUS, 1, PROGRAM_STATUS_WORDS);
}

bool HdChip::UnprotectNvm() {
    unsigned char reply[REPLY_SIZE];
    return Ask(lm, UNPROTECT, reply) == ALL_WELL;
}

bool HdChip::ProgramBin(std::string& path) {
    int size = 0;
    FILE* const file = OpenImage(path.c_str(), &size);
    if (file == nullptr) {
        return false;
    }
    if (!UnprotectNvm()) {
        HUTIL_ERROR("unprotecting NVM (flash)");
        return false;
    }
    HUTIL_INFO("burning \"%s\"", path.c_str());
    if (!g_options[OPTION_STATUS]) {
        HUTIL_PLAIN("Sending \"%s\" to BBP", path.c_str());
    }
    if (lm == nullptr) {
        return false;
    }
    if (!Download(lm, file, size)) {
        return false;
    }
    HUTIL_INFO("Completed file transmission, waiting for chip to program itself");
    lm->Reset(false);

    return WaitUntilProgrammed(this);
}
