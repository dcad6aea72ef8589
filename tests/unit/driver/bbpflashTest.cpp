// SPDX-License-Identifier: Apache-2.0
// The four steps and the image's label, called directly. The devices and the image are opened,
// written and read through replaced calls, which note what was asked and fail where a test says so.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "driver/bbpflash.h"
#include "tests/support/FakePlatform.h"

namespace {

using fake::Bytes;
using fake::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

const int BUS_DESCRIPTOR = 711;
const int LINE_DESCRIPTOR = 712;
const long FIELD_OFFSET = 925630;
const std::size_t FIELD_SIZE = 37;

// What the replaced calls answer, and what they have seen.
struct Devices {
    std::map<std::string, int> descriptors = {{"/dev/i2c1", BUS_DESCRIPTOR},
                                              {"/dev/gpio/HD_DAB2Reset", LINE_DESCRIPTOR}};
    std::vector<ssize_t> write_results;   // one a write to the reset line, then 1
    std::vector<unsigned> delay_results;  // one a delay, then 0
    int fopen_error = 0;                  // 0: as the system does
    int fseek_error = 0;
    int fread_error = 0;
    int objects_left = 1000;  // that there is memory for

    std::vector<std::string> closed;   // descriptors and streams
    std::vector<std::string> streams;  // opened ones: mode and path
    std::vector<std::string> moves;    // fseek and fread with their arguments
    std::vector<FILE*> images;
};
Devices g_devices;

template <class Value>
Value Next(std::vector<Value>* results, Value otherwise) {
    if (results->empty()) {
        return otherwise;
    }
    const Value result = results->front();
    results->erase(results->begin());
    return result;
}

// An image file that holds nothing but its label field with a Z on either side. It is gone with
// the object.
class Image {
  public:
    explicit Image(const std::string& field) : Image(field, 1) {}

    // One that ends with the last byte of `field`.
    static Image EndingIn(const std::string& field) { return Image(field, 0); }

    ~Image() { std::remove(path_.c_str()); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    std::string& Path() { return path_; }

  private:
    Image(const std::string& field, std::size_t behind)
        : path_(testing::TempDir() + "bbpflash_image_" + std::to_string(getpid()) + ".bin") {
        std::ofstream file(path_, std::ios::binary);
        file.seekp(FIELD_OFFSET - 1);
        file << 'Z' << field << std::string(behind, 'Z');
    }

    std::string path_;
};

std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

// `text` with blanks behind it up to the field's size.
std::string Padded(const std::string& text) {
    return text + Blanks(FIELD_SIZE - text.size());
}

// What the chip answers when it reports the version `text`: two more characters are dropped, the
// last of which the chip does not send.
Reply Version(const std::string& text) {
    Bytes payload = {0};
    payload.insert(payload.end(), text.begin(), text.end());
    payload.push_back(0);
    return Reply(payload);
}

class Driver : public fake::PlatformTest {
  protected:
    Driver() {
        g_devices = Devices();
        installed_version = "";
        file_version = "";
        filename = "";
        std::fill(g_options, g_options + OPTION_COUNT, false);
    }

    ~Driver() override {
        g_devices = Devices();
        if (p_ischip != nullptr) {
            delete p_ischip->lm;
            delete p_ischip;
            p_ischip = nullptr;
        }
    }

    // What a step returns, with its output in `out_`.
    int Run(int (*step)()) {
        int next = -1;
        const fake::Output output = fake::Capture([&] { next = step(); });
        EXPECT_EQ(output.err, "");
        out_ = fake::WithoutPositions(output.out);
        return next;
    }

    void ShowInformation() { g_p_hutil_opt->verbosity = 6; }

    std::string out_;
};

// The steps behind the first one, with a chip on an open bus.
class DriverWithChip : public Driver {
  protected:
    DriverWithChip() {
        p_ischip = new HdChip(BUSTYPE_I2C);
        p_ischip->bus->fd = BUS_DESCRIPTOR;
        p_ischip->bus->devName = "/dev/i2c1";
    }
};

class DriverInit : public Driver {};
class DriverReset : public DriverWithChip {};
class DriverProgram : public DriverWithChip {};
class DriverCheckVersion : public DriverWithChip {};
class DriverLabel : public Driver {
  protected:
    // The label of the image `filename`, "" with a failed test when there is none.
    std::string Label() {
        std::string version = "old";
        EXPECT_TRUE(get_bin_file_version(version, filename));
        return version;
    }

    // Whether the label could be read, with what was printed in `out_` and the outcome in
    // `version_`.
    bool Read() {
        bool result = false;
        const fake::Output output =
            fake::Capture([&] { result = get_bin_file_version(version_, filename); });
        EXPECT_EQ(output.err, "");
        out_ = fake::WithoutPositions(output.out);
        return result;
    }

    std::string version_ = "old";
};
typedef DriverInit DriverInitDeathTest;

// The driver's globals as they are when the program starts.
struct Globals : testing::Environment {
    void SetUp() override {
        EXPECT_EQ(installed_version, "");
        EXPECT_EQ(file_version, "");
        EXPECT_EQ(filename, "");
        EXPECT_EQ(p_ischip, nullptr);
        EXPECT_EQ(state, 0);
        EXPECT_THAT(g_options, ElementsAre(false, false, false));
    }
};
const testing::Environment* const g_globals = testing::AddGlobalTestEnvironment(new Globals);

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    const auto device = g_devices.descriptors.find(path);
    if (device == g_devices.descriptors.end()) {
        va_list arguments;
        va_start(arguments, flags);
        const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    fake::Current().Note("open " + device->first + (flags == O_RDWR ? " O_RDWR" : " otherwise"));
    errno = EACCES;
    return device->second;
}

ssize_t __real_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
    if (fd != g_devices.descriptors["/dev/gpio/HD_DAB2Reset"]) {
        return __real_write(fd, bytes, size);
    }
    fake::Current().Note("write " + std::string(static_cast<const char*>(bytes), size));
    return Next<ssize_t>(&g_devices.write_results, 1);
}

int __real_close(int fd);
int __wrap_close(int fd);
int __wrap_close(int fd) {
    g_devices.closed.push_back(std::to_string(fd));
    return fd == LINE_DESCRIPTOR || fd == BUS_DESCRIPTOR ? 0 : __real_close(fd);
}

unsigned int __wrap_delay(unsigned int milliseconds);
unsigned int __wrap_delay(unsigned int milliseconds) {
    fake::Current().Delay(milliseconds);
    return Next(&g_devices.delay_results, 0u);
}

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    g_devices.streams.push_back(mode + std::string(" ") + path);
    if (g_devices.fopen_error != 0) {
        errno = g_devices.fopen_error;
        return nullptr;
    }
    FILE* const stream = __real_fopen(path, mode);
    g_devices.images.push_back(stream);
    return stream;
}

int __real_fclose(FILE* stream);
int __wrap_fclose(FILE* stream);
int __wrap_fclose(FILE* stream) {
    for (FILE* const image : g_devices.images) {
        if (image == stream) {
            g_devices.closed.push_back("image");
        }
    }
    return __real_fclose(stream);
}

int __real_fseek(FILE* stream, long offset, int whence);
int __wrap_fseek(FILE* stream, long offset, int whence);
int __wrap_fseek(FILE* stream, long offset, int whence) {
    g_devices.moves.push_back("seek " + std::to_string(offset) +
                              (whence == SEEK_SET ? " from the start" : " otherwise"));
    errno = g_devices.fseek_error;
    return g_devices.fseek_error != 0 ? -1 : __real_fseek(stream, offset, whence);
}

size_t __real_fread(void* bytes, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* bytes, size_t size, size_t count, FILE* stream);
size_t __wrap_fread(void* bytes, size_t size, size_t count, FILE* stream) {
    g_devices.moves.push_back("read " + std::to_string(count) + " of " + std::to_string(size));
    errno = g_devices.fread_error;
    return g_devices.fread_error != 0 ? 0 : __real_fread(bytes, size, count, stream);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return g_devices.objects_left-- > 0 ? ::operator new(size) : nullptr;
}

TEST(DriverGlobals, HaveTheirTypesAndTheFlagsTheirPlaces) {
    static_assert(std::is_same<decltype(installed_version), std::string>::value, "");
    static_assert(std::is_same<decltype(file_version), std::string>::value, "");
    static_assert(std::is_same<decltype(filename), std::string>::value, "");
    static_assert(std::is_same<decltype(p_ischip), HdChip*>::value, "");
    static_assert(std::is_same<decltype(g_options), bool[3]>::value, "");
    static_assert(std::is_same<decltype(state), int>::value && sizeof state == 4, "");
    EXPECT_EQ(OPTION_FORCE, 0);
    EXPECT_EQ(OPTION_INFO_ONLY, 1);
    EXPECT_EQ(OPTION_STATUS, 2);
}

TEST(DriverStates, AreNumberedFromZeroToFive) {
    EXPECT_EQ(STATE_INIT, 0);
    EXPECT_EQ(STATE_RESET, 1);
    EXPECT_EQ(STATE_CHECK_VERSION, 2);
    EXPECT_EQ(STATE_PROGRAM, 3);
    EXPECT_EQ(STATE_DONE, 4);
    EXPECT_EQ(STATE_FAILED, 5);
}

TEST_F(DriverInit, MakesTheChipAndOpensTheBusAt400000) {
    EXPECT_EQ(Run(bbpflash_init), 1);
    ASSERT_NE(p_ischip, nullptr);
    EXPECT_EQ(p_ischip->bus->fd, BUS_DESCRIPTOR);
    EXPECT_EQ(p_ischip->bus->devName, "/dev/i2c1");
    EXPECT_EQ(p_ischip->bus->speed, 400000);
    EXPECT_THAT(platform.trace, ElementsAre("open /dev/i2c1 O_RDWR", "SPEED 400000"));
    EXPECT_EQ(out_, "");
}

TEST_F(DriverInit, TellsItsProgressAsInformation) {
    ShowInformation();
    Run(bbpflash_init);
    EXPECT_THAT(
        platform.Messages(),
        ElementsAre("INF: Initializing update system and i2c bus", "INF: Opened /dev/i2c1 (711)",
                    "INF: Set speed on /dev/i2c1 (711) to 400000", "INF: Cayman chip ready",
                    "INF: Update system initialization complete"));
}

TEST_F(DriverInit, FailsWithoutMemoryForTheChip) {
    g_devices.objects_left = 0;
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_EQ(p_ischip, nullptr);
    EXPECT_EQ(out_, "bbpflash ERROR: Instantiating bus and chip\n");
    EXPECT_THAT(platform.trace, IsEmpty());
}

TEST_F(DriverInit, FailsAndKeepsTheChipWhenTheBusCannotBeOpened) {
    g_devices.descriptors["/dev/i2c1"] = -1;
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_NE(p_ischip, nullptr);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("CRITICAL: opening /dev/i2c1 with result \"Unknown error -1\" (-1)",
                            "ERROR: opening connection to chip on /dev/i2c1 at 400000",
                            "ERROR: Opening special device /dev/i2c1"));
}

TEST_F(DriverInit, FailsWhenTheSpeedCannotBeSet) {
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, EIO);
    EXPECT_EQ(Run(bbpflash_init), 5);
    EXPECT_NE(p_ischip, nullptr);
    EXPECT_EQ(platform.Messages().back(), "ERROR: Opening special device /dev/i2c1");
}

TEST_F(DriverInitDeathTest, LeavesAFailureOfTheChipsOwnPartsToTheChipWhichEndsTheProcess) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            g_devices.objects_left = 1;
            bbpflash_init();
        },
        testing::ExitedWithCode(1),
        "^bbpflash CRITICAL: instantiating an I2C bus object @HdChip.cpp:[0-9]+\nERROR\n$");
}

TEST_F(DriverReset, LowersTheLineFor200MillisecondsAndWaits3SecondsForTheFirmware) {
    EXPECT_EQ(Run(bbpflash_reset), 2);
    EXPECT_THAT(platform.trace, ElementsAre("open /dev/gpio/HD_DAB2Reset O_RDWR", "write 0",
                                            "delay 200", "write 1", "delay 3000"));
    EXPECT_EQ(out_, "");
}

TEST_F(DriverReset, RestartsTheEnginesMessageCountAfterwards) {
    p_ischip->lm->lmCount = 77;
    p_ischip->lm->currSeg = 3;
    Run(bbpflash_reset);
    EXPECT_EQ(p_ischip->lm->lmCount, 0);
    EXPECT_EQ(p_ischip->lm->currSeg, 0);
}

TEST_F(DriverReset, TellsItsProgressAsInformation) {
    ShowInformation();
    Run(bbpflash_reset);
    EXPECT_THAT(platform.Messages(), ElementsAre("INF: Doing hardware reset of HD module",
                                                 "INF: Waiting for firmware reset to complete",
                                                 "INF: Hardware reset of HD module complete"));
}

// Relied on: each pass leaves one descriptor open until the process ends.
TEST_F(DriverReset, OpensTheLineAnewEachTimeAndNeverClosesIt) {
    Run(bbpflash_reset);
    Run(bbpflash_reset);
    EXPECT_EQ(std::count(platform.trace.begin(), platform.trace.end(),
                         "open /dev/gpio/HD_DAB2Reset O_RDWR"),
              2);
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains(std::to_string(LINE_DESCRIPTOR))));
}

TEST_F(DriverReset, TakesADescriptorOfZero) {
    g_devices.descriptors["/dev/gpio/HD_DAB2Reset"] = 0;
    EXPECT_EQ(Run(bbpflash_reset), 2);
}

// Ways for the reset to fail, each with what has happened until then.
struct ResetFailure {
    const char* name;
    void (*arrange)();
    std::vector<std::string> trace;
    std::string message;
};

class DriverResetFailure : public DriverReset, public testing::WithParamInterface<ResetFailure> {};

TEST_P(DriverResetFailure, EndsTheStepAtOnceAndLeavesTheEngineAsItIs) {
    p_ischip->lm->lmCount = 77;
    GetParam().arrange();
    EXPECT_EQ(Run(bbpflash_reset), 5);
    EXPECT_EQ(platform.trace, GetParam().trace);
    EXPECT_EQ(out_, "bbpflash ERROR: " + GetParam().message + "\n");
    EXPECT_EQ(p_ischip->lm->lmCount, 77);
    EXPECT_THAT(platform.devctls, IsEmpty());
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains(std::to_string(LINE_DESCRIPTOR))));
}

const char OPENED[] = "open /dev/gpio/HD_DAB2Reset O_RDWR";

INSTANTIATE_TEST_SUITE_P(
    , DriverResetFailure,
    testing::Values(ResetFailure{"NoDevice",
                                 [] { g_devices.descriptors["/dev/gpio/HD_DAB2Reset"] = -1; },
                                 {OPENED},
                                 "Opening /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LoweringRefused",
                                 [] { g_devices.write_results = {-1}; },
                                 {OPENED, "write 0"},
                                 "Lowering reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LoweringWroteNothing",
                                 [] { g_devices.write_results = {0}; },
                                 {OPENED, "write 0"},
                                 "Lowering reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"LowTimeCutShort",
                                 [] { g_devices.delay_results = {1}; },
                                 {OPENED, "write 0", "delay 200"},
                                 "Delaying"},
                    ResetFailure{"RaisingRefused",
                                 [] {
                                     g_devices.write_results = {1, -1};
                                 },
                                 {OPENED, "write 0", "delay 200", "write 1"},
                                 "Raising reset line, /dev/gpio/HD_DAB2Reset"},
                    ResetFailure{"RaisingWroteNothing",
                                 [] {
                                     g_devices.write_results = {1, 0};
                                 },
                                 {OPENED, "write 0", "delay 200", "write 1"},
                                 "Raising reset line, /dev/gpio/HD_DAB2Reset"}),
    [](const testing::TestParamInfo<ResetFailure>& failure) { return failure.param.name; });

TEST_F(DriverReset, FailsWhenTheWaitForTheFirmwareIsCutShort) {
    ShowInformation();
    p_ischip->lm->lmCount = 77;
    g_devices.delay_results = {0, 1};
    EXPECT_EQ(Run(bbpflash_reset), 5);
    EXPECT_EQ(platform.trace.back(), "delay 3000");
    EXPECT_THAT(platform.Messages(),
                ElementsAre("INF: Doing hardware reset of HD module",
                            "INF: Waiting for firmware reset to complete", "ERROR: Delaying"));
    EXPECT_EQ(p_ischip->lm->lmCount, 77);
}

TEST_F(DriverProgram, GoesBackToTheResetOnceTheChipHasProgrammedTheFile) {
    Image image(Padded("label"));
    filename = image.Path();
    g_options[OPTION_STATUS] = true;
    platform.default_reply = Reply(Bytes{0, 1});
    EXPECT_EQ(Run(bbpflash_program), 1);
    EXPECT_THAT(out_, testing::EndsWith("79\n80\n99\n"));
    EXPECT_THAT(g_devices.streams, ElementsAre("r " + filename));
}

TEST_F(DriverProgram, FailsWhenTheFileCannotBeProgrammed) {
    filename = "no/such/image.bin";
    EXPECT_EQ(Run(bbpflash_program), 5);
    EXPECT_EQ(out_,
              "bbpflash ERROR: opening binary file no/such/image.bin\n"
              "bbpflash ERROR: Unable to program file\n");
    EXPECT_THAT(platform.devctls, IsEmpty());
}

TEST_F(DriverCheckVersion, FailsWhenTheChipDoesNotAnswer) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    installed_version = "before";
    platform.FailAlways(DCMD_I2C_RECV, EIO);
    EXPECT_EQ(fake::Capture([] { EXPECT_EQ(bbpflash_check_version(), 5); }).out.empty(), false);
    EXPECT_EQ(platform.Messages().back(), "ERROR: Unable to get installed version");
    EXPECT_EQ(installed_version, "before");
    EXPECT_THAT(g_devices.streams, IsEmpty());
}

TEST_F(DriverCheckVersion, ShowsTheInstalledVersionForInfoOnlyWithoutOpeningTheFile) {
    filename = "-i";
    g_options[OPTION_INFO_ONLY] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed firmware version is \"1.2.3\"\n\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "");
    EXPECT_THAT(g_devices.streams, IsEmpty());
}

TEST_F(DriverCheckVersion, ShowsTheInstalledVersionForInfoOnlyInStatusModeToo) {
    g_options[OPTION_INFO_ONLY] = true;
    g_options[OPTION_STATUS] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed firmware version is \"1.2.3\"\n\n");
}

TEST_F(DriverCheckVersion, TellsTheInstalledVersionWithItsLengthBeforeShowingIt) {
    ShowInformation();
    g_options[OPTION_INFO_ONLY] = true;
    platform.Answer(Version("1.2.3"));
    Run(bbpflash_check_version);
    EXPECT_THAT(platform.Messages(), ElementsAre("INF: Installed firmware version is \"1.2.3\" [5]",
                                                 "MSG: Installed firmware version is \"1.2.3\"\n"));
}

TEST_F(DriverCheckVersion, IsDoneWithANoticeWhenTheVersionsMatch) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "bbpflash MSG: Installed version matches BIN file label\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "1.2.3");
}

TEST_F(DriverCheckVersion, IsDoneInSilenceWhenTheVersionsMatchInStatusMode) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_options[OPTION_STATUS] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(out_, "");
}

TEST_F(DriverCheckVersion, GoesOnToProgramInSilenceWhenTheVersionsDiffer) {
    Image image(Padded("1.2.4xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_EQ(out_, "");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "1.2.4");
}

TEST_F(DriverCheckVersion, TellsBothVersionsWithTheirLengths) {
    Image image(Padded("1.2.40xx"));
    filename = image.Path();
    ShowInformation();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_THAT(platform.Messages(),
                ElementsAre("INF: Installed firmware version is \"1.2.3\" [5]",
                            "INF: Checking HD update versions",
                            "INF: BIN file firmware version is \"1.2.40\" [6]"));
}

TEST_F(DriverCheckVersion, LeavesTheForceFlagToItsCaller) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_options[OPTION_FORCE] = true;
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_TRUE(g_options[OPTION_FORCE]);
}

TEST_F(DriverCheckVersion, FailsWhenTheLabelCannotBeRead) {
    filename = "no/such/image.bin";
    file_version = "before";
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 5);
    EXPECT_EQ(out_,
              "bbpflash ERROR: opening bin file no/such/image.bin\n"
              "bbpflash ERROR: Unable to get bin file version\n");
    EXPECT_EQ(installed_version, "1.2.3");
    EXPECT_EQ(file_version, "before");
}

TEST_F(DriverCheckVersion, TakesTrailingBlanksForADifference) {
    Image image(Padded("1.2.3 xx"));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    EXPECT_EQ(file_version, "1.2.3 ");
}

TEST_F(DriverCheckVersion, TakesCaseForADifference) {
    Image image(Padded("1.2.Axx"));
    filename = image.Path();
    platform.Answer(Version("1.2.a"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
}

TEST_F(DriverCheckVersion, ComparesBeyondANul) {
    Image image(Padded(std::string("1.2\0A", 5) + "xx"));
    filename = image.Path();
    platform.Answer(Version(std::string("1.2\0B", 5)));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
    platform.Answer(Version(std::string("1.2\0A", 5)));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    platform.Answer(Version("1.2"));
    EXPECT_EQ(Run(bbpflash_check_version), 3);
}

TEST_F(DriverCheckVersion, TakesTwoEmptyVersionsForEqual) {
    Image image(Padded("XY"));
    filename = image.Path();
    installed_version = "before";
    platform.Answer(Reply(Bytes{0, 'X'}));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(installed_version, "");
    EXPECT_EQ(file_version, "");
}

TEST_F(DriverCheckVersion, ReadsBothVersionsAfreshEachTime) {
    {
        Image image(Padded("1.2.4xx"));
        filename = image.Path();
        platform.Answer(Version("1.2.3"));
        EXPECT_EQ(Run(bbpflash_check_version), 3);
    }
    Image image(Padded("1.2.5xx"));
    platform.Answer(Version("1.2.5"));
    EXPECT_EQ(Run(bbpflash_check_version), 4);
    EXPECT_EQ(installed_version, "1.2.5");
    EXPECT_EQ(file_version, "1.2.5");
}

// Relied on: nothing catches it, so the run ends abnormally.
TEST_F(DriverCheckVersion, LetsTheErrorOfAnAllBlankLabelThrough) {
    Image image(Blanks(FIELD_SIZE));
    filename = image.Path();
    platform.Answer(Version("1.2.3"));
    EXPECT_THROW(bbpflash_check_version(), std::out_of_range);
}

TEST_F(DriverLabel, LosesSurroundingBlanksAndTwoMoreCharacters) {
    Image image(Blanks(2) + "ABCDEF" + Blanks(29));
    filename = image.Path();
    EXPECT_EQ(Label(), "ABCD");
}

TEST_F(DriverLabel, OfOneCharacterIsTheWholeFieldWithItsBlanks) {
    Image image("X" + Blanks(36));
    filename = image.Path();
    EXPECT_EQ(Label(), "X" + Blanks(36));
}

TEST_F(DriverLabel, OfOneCharacterInTheMiddleReachesToTheFieldsEnd) {
    Image image(Blanks(10) + "X" + Blanks(26));
    filename = image.Path();
    EXPECT_EQ(Label(), "X" + Blanks(26));
}

TEST_F(DriverLabel, OfOneCharacterAtTheFieldsEndIsThatCharacter) {
    Image image(Blanks(36) + "X");
    filename = image.Path();
    EXPECT_EQ(Label(), "X");
}

TEST_F(DriverLabel, OfTwoCharactersIsEmpty) {
    Image image("XY" + Blanks(35));
    filename = image.Path();
    EXPECT_EQ(Label(), "");
}

TEST_F(DriverLabel, EndedByNulsKeepsThemButTwo) {
    Image image("1.2.3" + std::string(32, '\0'));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3" + std::string(30, '\0'));
}

TEST_F(DriverLabel, FillingTheFieldLosesItsLastTwoCharacters) {
    Image image("abcdefghijklmnopqrstuvwxyzABCDEFGHIJK");
    filename = image.Path();
    EXPECT_EQ(Label(), "abcdefghijklmnopqrstuvwxyzABCDEFGHI");
}

TEST_F(DriverLabel, KeepsItsInnerBlanks) {
    Image image(" A  B xy" + Blanks(29));
    filename = image.Path();
    EXPECT_EQ(Label(), "A  B ");
}

TEST_F(DriverLabel, TakesTabsNulsAndLineEndsForText) {
    const std::string text("\t\0\r\nA\t\0\r\n", 9);
    Image image(" " + text + Blanks(27));
    filename = image.Path();
    EXPECT_EQ(Label(), text.substr(0, 7));
}

TEST_F(DriverLabel, TakesBytesAbove127ForText) {
    Image image(Padded("\xA0\xFF\x80xy"));
    filename = image.Path();
    EXPECT_EQ(Label(), "\xA0\xFF\x80");
}

TEST_F(DriverLabel, OfBlanksAloneIsOutOfRange) {
    Image image(Blanks(FIELD_SIZE));
    filename = image.Path();
    std::string version;
    EXPECT_THROW(get_bin_file_version(version, filename), std::out_of_range);
}

TEST_F(DriverLabel, IsReadAtItsPlaceInOnePiece) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3");
    EXPECT_THAT(g_devices.streams, ElementsAre("r " + filename));
    EXPECT_THAT(g_devices.moves, ElementsAre("seek 925630 from the start", "read 37 of 1"));
}

TEST_F(DriverLabel, IsThatOfTheGlobalFileNameWhateverFileIsGiven) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    std::string version;
    std::string other = "no/such/image.bin";
    EXPECT_TRUE(get_bin_file_version(version, other));
    EXPECT_EQ(version, "1.2.3");
    EXPECT_EQ(other, "no/such/image.bin");
}

// Relied on: each reading leaves one stream open until the process ends.
TEST_F(DriverLabel, LeavesTheImageOpen) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    Label();
    EXPECT_THAT(g_devices.closed, testing::Not(testing::Contains("image")));
}

TEST_F(DriverLabel, FailsForAFileThatCannotBeOpened) {
    filename = "no/such/image.bin";
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: opening bin file no/such/image.bin\n");
    EXPECT_EQ(version_, "old");
    EXPECT_THAT(g_devices.moves, IsEmpty());
}

TEST_F(DriverLabel, FailsWhenTheSeekFails) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_devices.fseek_error = ESPIPE;
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: seeking bin file label with result \"Illegal seek\" (29)\n");
    EXPECT_EQ(version_, "old");
    EXPECT_THAT(g_devices.moves, ElementsAre("seek 925630 from the start"));
}

TEST_F(DriverLabel, FailsWhenTheReadBringsNothing) {
    Image image(Padded("1.2.3xx"));
    filename = image.Path();
    g_devices.fread_error = EIO;
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_,
              "bbpflash ERROR: reading bin file label with result \"Input/output error\" (5)\n");
    EXPECT_EQ(version_, "old");
}

TEST_F(DriverLabel, FailsInTheReadForAFileThatEndsBeforeTheField) {
    Image image = Image::EndingIn("");
    filename = image.Path();
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: reading bin file label with result \"Success\" (0)\n");
    EXPECT_EQ(version_, "old");
}

TEST_F(DriverLabel, FailsInTheReadForAnEmptyFile) {
    filename = "/dev/null";
    EXPECT_FALSE(Read());
    EXPECT_EQ(out_, "bbpflash ERROR: reading bin file label with result \"Success\" (0)\n");
}

TEST_F(DriverLabel, FailsForAFolder) {
    filename = "/";
    EXPECT_FALSE(Read());
    EXPECT_THAT(out_, testing::StartsWith("bbpflash ERROR: reading bin file label with result"));
}

TEST_F(DriverLabel, IsFilledUpWithNulsForAFileThatEndsInTheField) {
    for (std::size_t present = 1; present < FIELD_SIZE; ++present) {
        const std::string text(present, 'A');
        Image image = Image::EndingIn(text);
        filename = image.Path();
        EXPECT_EQ(Label(), (text + std::string(FIELD_SIZE, '\0')).substr(0, 35)) << present;
    }
}

TEST_F(DriverLabel, MayEndWithTheFile) {
    Image image = Image::EndingIn(Padded("1.2.3xx"));
    filename = image.Path();
    EXPECT_EQ(Label(), "1.2.3");
}
