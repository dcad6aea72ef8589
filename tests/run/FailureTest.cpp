// SPDX-License-Identifier: Apache-2.0
// Every way in which a step of the driver fails: what is said, and that the run ends there.
#include <cerrno>
#include <cstring>
#include <limits>
#include <ostream>

#include "tests/run/RunTest.h"

namespace run {

namespace {

struct Failure {
    const char* name;
    CallKind kind;
    int nth;  // of its kind in the run
    Strike strike;
    Strings messages;  // in status mode, before the end that they all have
    int writes;        // to the chip, before the failure
};

std::ostream& operator<<(std::ostream& out, const Failure& failure) {
    return out << failure.name;
}

class FailureTest : public RunTest, public ::testing::WithParamInterface<Failure> {};

const char EIO_RESULT[] = "with result \"Input/output error\" (5)";

// A file of this size, where ftell can say it; else ftell's error.
Strike Size(long long size) {
    const bool fits = size <= std::numeric_limits<long>::max();
    return fits ? Value(static_cast<long>(size)) : Error(EOVERFLOW);
}

std::string Said(const std::string& text) {
    return "bbpflash " + text;
}

const std::vector<Failure> FAILURES = {
    {"BusNotOpened",
     CallKind::Open,
     0,
     Error(EACCES),
     {Said("CRITICAL: opening /dev/i2c1 with result \"Unknown error -1\" (-1) @I2cBus"),
      Said("ERROR: opening connection to chip on /dev/i2c1 at 400000 @HdChip"),
      Said("ERROR: Opening special device /dev/i2c1 @bbpflash")},
     0},
    {"SpeedNotSet",
     CallKind::SetSpeed,
     0,
     Error(EIO),
     {Said("ERROR: Setting speed to 400000 on /dev/i2c1 ") + EIO_RESULT + " @I2cBus",
      Said("ERROR: opening connection to chip on /dev/i2c1 at 400000 @HdChip"),
      Said("ERROR: Opening special device /dev/i2c1 @bbpflash")},
     0},
    {"ResetLineNotOpened",
     CallKind::Open,
     1,
     Error(EACCES),
     {Said("ERROR: Opening /dev/gpio/HD_DAB2Reset @bbpflash")},
     0},
    {"ResetLineNotLowered",
     CallKind::WriteReset,
     0,
     Error(EIO),
     {Said("ERROR: Lowering reset line, /dev/gpio/HD_DAB2Reset @bbpflash")},
     0},
    {"ResetLineTookNothing",
     CallKind::WriteReset,
     0,
     Value(0),
     {Said("ERROR: Lowering reset line, /dev/gpio/HD_DAB2Reset @bbpflash")},
     0},
    {"FirstDelayCutShort", CallKind::Delay, 0, Value(1), {Said("ERROR: Delaying @bbpflash")}, 0},
    {"ResetLineNotRaised",
     CallKind::WriteReset,
     1,
     Error(EIO),
     {Said("ERROR: Raising reset line, /dev/gpio/HD_DAB2Reset @bbpflash")},
     0},
    {"SecondDelayCutShort",
     CallKind::Delay,
     1,
     Value(2999),
     {Said("ERROR: Delaying @bbpflash")},
     0},
    {"LockOfTheVersionQuery",
     CallKind::Lock,
     0,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_LOCK /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: sending LM I2C buffers @HcLogical"), Said("ERROR: sending @HdChip"),
      Said("ERROR: Unable to get installed version @bbpflash")},
     0},
    {"SendOfTheVersionQuery",
     CallKind::Send,
     0,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_SEND /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: sending LM I2C buffers @HcLogical"), Said("ERROR: sending @HdChip"),
      Said("ERROR: Unable to get installed version @bbpflash")},
     1},
    {"ReadOfTheVersion",
     CallKind::Receive,
     0,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_RECV /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: getting LM response @HcLogical"), Said("ERROR: confirming @HdChip"),
      Said("ERROR: Unable to get installed version @bbpflash")},
     1},
    {"UnlockAfterTheVersion",
     CallKind::Unlock,
     1,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_UNLOCK /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: getting LM response @HcLogical"), Said("ERROR: confirming @HdChip"),
      Said("ERROR: Unable to get installed version @bbpflash")},
     1},
    {"LabelNotOpened",
     CallKind::Fopen,
     0,
     Error(EACCES),
     {Said("ERROR: opening bin file image.bin @bbpflash"),
      Said("ERROR: Unable to get bin file version @bbpflash")},
     1},
    {"LabelNotSought",
     CallKind::Fseek,
     0,
     Error(EIO),
     {Said("ERROR: seeking bin file label ") + EIO_RESULT + " @bbpflash",
      Said("ERROR: Unable to get bin file version @bbpflash")},
     1},
    {"LabelNotRead",
     CallKind::Fread,
     0,
     Error(EIO),
     {Said("ERROR: reading bin file label ") + EIO_RESULT + " @bbpflash",
      Said("ERROR: Unable to get bin file version @bbpflash")},
     1},
    {"ImageNotOpened",
     CallKind::Fopen,
     1,
     Error(EACCES),
     {Said("ERROR: opening binary file image.bin @HdChip"),
      Said("ERROR: Unable to program file @bbpflash")},
     1},
    {"EndOfImageNotSought",
     CallKind::Fseek,
     1,
     Error(EIO),
     {Said("ERROR: seeking end of file ") + EIO_RESULT + " @HdChip",
      Said("ERROR: Unable to program file @bbpflash")},
     1},
    {"ImageNotMeasured",
     CallKind::Ftell,
     0,
     Error(EIO),
     {Said("ERROR: getting file size ") + EIO_RESULT + " @HdChip",
      Said("ERROR: Unable to program file @bbpflash")},
     1},
    {"ImageTooLargeForAnInt",
     CallKind::Ftell,
     0,
     Size(2147483648),
     {Said("ERROR: getting file size with result \"Value too large for defined data type\" (75) "
           "@HdChip"),
      Said("ERROR: Unable to program file @bbpflash")},
     1},
    {"BeginningOfImageNotSought",
     CallKind::Fseek,
     2,
     Error(EIO),
     {Said("ERROR: seeking beginning of file ") + EIO_RESULT + " @HdChip",
      Said("ERROR: Unable to program file @bbpflash")},
     1},
    {"ImageTooLong",
     CallKind::Ftell,
     0,
     Value(133363724),
     {Said("ERROR: 133363724 would exceed maximum of 2^16 LM transfer capacity @HcLogical"),
      Said("ERROR: setting total number of segments @HdChip"),
      Said("ERROR: Unable to program file @bbpflash")},
     2},
    {"FirstSegmentNotRead",
     CallKind::Fread,
     1,
     Error(EIO),
     {Said("ERROR: filling @HdChip"), Said("ERROR: Unable to program file @bbpflash")},
     2},
    {"ThirdSegmentNotSent",
     CallKind::Send,
     4,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_SEND /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: sending LM I2C buffers @HcLogical"), Said("ERROR: sending @HdChip"),
      Said("ERROR: Unable to program file @bbpflash")},
     5},
    {"ThirdSegmentNotAcknowledged",
     CallKind::Receive,
     4,
     Error(EIO),
     {Said("ERROR: DCMD_I2C_RECV /dev/i2c1 for addr 0x2E ") + EIO_RESULT + " @HcI2cBuffer",
      Said("ERROR: getting LM response @HcLogical"), Said("ERROR: confirming BIN write @HdChip"),
      Said("ERROR: Unable to program file @bbpflash")},
     5},
    {"NoMemoryForTheBus",
     CallKind::NewObject,
     3,
     Error(ENOMEM),
     {Said("CRITICAL: instantiating an I2C bus object @HdChip")},
     0},
    {"NoMemoryForTheEngine",
     CallKind::NewObject,
     4,
     Error(ENOMEM),
     {Said("CRITICAL: instantiating an LM @HdChip")},
     0},
    {"NoMemoryForTheRequest",
     CallKind::NewObject,
     5,
     Error(ENOMEM),
     {Said("CRITICAL: creating new LM tx buffer @HcLogical")},
     0},
    {"NoMemoryForTheRequestsBytes",
     CallKind::Memalign,
     0,
     Error(ENOMEM),
     {Said("CRITICAL: could not allocate memory for i2c tx buffer with result \"Success\" (0) "
           "@HcI2cBuffer")},
     0},
    {"NoMemoryForAReplysBytes",
     CallKind::Memalign,
     1,
     Error(ENOMEM),
     {Said("CRITICAL: could not allocate memory for i2c tx buffer with result \"Success\" (0) "
           "@HcI2cBuffer")},
     1},
};

// Without the dumps of transfers and messages, and without what is told of further steps.
Strings Spoken(const Strings& output) {
    Strings spoken;
    for (const std::string& line : output) {
        if (!line.empty() && line[0] != '\t' && line.find("I2C message chunk") != 0 &&
            line.find(" INF: ") == std::string::npos) {
            spoken.push_back(line);
        }
    }
    return spoken;
}

}  // namespace

TEST_P(FailureTest, IsReportedAndEndsTheRun) {
    const Failure& failure = GetParam();
    strikes.At(failure.kind, failure.nth, failure.strike);
    Run("-s image.bin");
    EXPECT_EQ("exit 1", Ending());
    Strings spoken = Spoken(Output());
    ASSERT_FALSE(spoken.empty());
    EXPECT_EQ("ERROR", spoken.back());
    spoken.pop_back();
    const bool ends_at_once = failure.messages.back().find("CRITICAL") != std::string::npos;
    if (!ends_at_once) {
        EXPECT_EQ("bbpflash CRITICAL: Programming terminated @bbpflash", spoken.back());
        spoken.pop_back();
    }
    EXPECT_EQ(failure.messages, spoken);
    EXPECT_EQ(failure.writes, Count(CallKind::Send));
}

INSTANTIATE_TEST_SUITE_P(Steps, FailureTest, ::testing::ValuesIn(FAILURES),
                         [](const auto& failure) { return std::string(failure.param.name); });

}  // namespace run
