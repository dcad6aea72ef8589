// SPDX-License-Identifier: Apache-2.0
// bbpsim itself: what runs in it and how it ends.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/system/Bench.h"

namespace system_test {
namespace {

TEST(SystemBench, PassesTheCommandsOutputAndExitStatusThrough) {
    const Outcome outcome = RunToEnd(Bench(Shell("echo out; echo err >&2; exit 3")));
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("out\n", outcome.out);
    EXPECT_EQ("err\n", outcome.err);
}

TEST(SystemBench, NeedsNoDashesBeforeACommandWithoutOptions) {
    EXPECT_EQ("a b\n", RunToEnd(Bench({"echo", "a", "b"})).out);
}

TEST(SystemBench, TellsByItsStatusHowTheCommandEnded) {
    EXPECT_EQ(128 + SIGSEGV, RunToEnd(Bench(Shell("kill -SEGV $$"))).status);
    const Outcome missing = RunToEnd(Bench({"--", "no-such-command"}));
    EXPECT_EQ(127, missing.status);
    EXPECT_EQ("bbpsim: no-such-command: No such file or directory\n", missing.err);
    const Outcome no_program = RunToEnd(Bench({"--", "/etc/passwd"}));
    EXPECT_EQ(126, no_program.status);
    EXPECT_EQ("bbpsim: /etc/passwd: Permission denied\n", no_program.err);
}

TEST(SystemBench, FailsWithAStatusOfItsOwn) {
    EXPECT_EQ(125, RunToEnd({BbpSim(), "--pace", "fast", "--", "true"}).status);
    EXPECT_EQ(125, RunToEnd({BbpSim(), "--no-such-option"}).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--flash", "/", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--pcap", "/nowhere/x", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--log-file", "/nowhere/x", "--", "true"})).status);
    EXPECT_EQ(125, RunToEnd(Bench({"--json", "/nowhere/x", "--", "true"})).status);
}

TEST(SystemBench, NeedsAFolderForTemporaryFiles) {
    const Outcome outcome = RunToEnd(Words{"env", "TMPDIR=/nowhere"} + Bench({"--", "true"}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ(
        "bbpsim: the devices need a folder for temporary files, and /nowhere is none: No such file "
        "or directory\n",
        outcome.err);
    // A folder in which nobody can make another.
    const Outcome refused = RunToEnd(Words{"env", "TMPDIR=/proc"} + Bench({"--", "true"}));
    EXPECT_EQ(125, refused.status);
    EXPECT_EQ(0u, refused.err.find("bbpsim: ")) << refused.err;
    EXPECT_NE(std::string::npos, refused.err.find("/proc")) << refused.err;
}

TEST(SystemBench, TellsWhatItIsAskedAndEnds) {
    const Outcome help = RunToEnd({BbpSim(), "--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("--installed"));
    const Outcome faults = RunToEnd({BbpSim(), "--list-faults"});
    EXPECT_EQ(0, faults.status);
    EXPECT_NE(std::string::npos, faults.out.find("die-programming [PERCENT]"));
    EXPECT_EQ(0, RunToEnd({BbpSim(), "--version"}).status);
}

TEST(SystemBench, ShowsTheDevicesToTheCommandAndAllThatItStarts) {
    const Outcome outcome =
        RunToEnd(Bench(Shell("ls /dev/i2c1; sh -c 'ls /dev/gpio/HD_DAB2Reset'")));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("/dev/i2c1\n/dev/gpio/HD_DAB2Reset\n", outcome.out);
}

TEST(SystemBench, FindsTheUpdaterBesideItself) {
    EXPECT_EQ(ProgramFolder() + "/bbpflash\n", RunToEnd(Bench(Shell("command -v bbpflash"))).out);
}

// What bus_client says of it all.
const char EVERYTHING[] =
    "query: 1\n"
    "reply: 1\n"
    "20 1.0.0\n"
    "both at once: 2\n"
    "nothing: 0\n"
    "an empty write: 1\n"
    "another address: -1 ENXIO\n"
    "too many messages: -1 EINVAL\n"
    "too long a message: -1 EINVAL\n"
    "the longest message: 1\n"
    "functions: 0\n"
    "1\n"
    "another command: -1 ENOTTY\n"
    "no level: -1 EINVAL\n"
    "low: 1\n"
    "in reset: -1 ENXIO\n"
    "high, with a newline: 2\n";

TEST(SystemBench, IsABusAndAResetLineForAnyProgram) {
    const Outcome outcome = RunToEnd(Bench({"--", BBP_BUS_CLIENT}));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(EVERYTHING, outcome.out);
}

TEST(SystemBench, NeedsNoRightToReadAProgramsMemory) {
    const Words without_right =
        geteuid() == 0 ? Words{"setpriv", "--bounding-set", "-sys_ptrace"} : Words{};
    const Outcome outcome = RunToEnd(without_right + Bench({"--", BBP_BUS_CLIENT, "closed"}));
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(EVERYTHING, outcome.out);
}

TEST(SystemBench, TellsInSysOfTheBus) {
    const Outcome outcome =
        RunToEnd(Bench(Shell("cat /sys/class/i2c-dev/i2c1/dev /sys/dev/char/89:1/uevent; "
                             "stat -c '%F %t:%T' /dev/i2c1; ls /sys/bus/gpio/devices/*/uevent")));
    EXPECT_EQ(
        "89:1\nDEVNAME=i2c1\nMAJOR=89\nMINOR=1\nSUBSYSTEM=i2c-dev\n"
        "character special file 59:1\n/sys/bus/gpio/devices/HD_DAB2Reset/uevent\n",
        outcome.out);
}

TEST(SystemBench, LeavesOtherDevicesToTheKernel) {
    // A request that this device does not know: the kernel says so, and so did the simulated
    // devices for all others.
    const std::string ask =
        "import fcntl, os, struct\n"
        "pair = os.pipe()\n"
        "os.write(pair[1], b'abc')\n"
        "print(struct.unpack('i', fcntl.ioctl(pair[0], 0x541B, b'    '))[0])\n"
        "fd = os.open('/dev/ptmx', os.O_RDWR)\n"
        "print(struct.unpack('I', fcntl.ioctl(fd, 0x80045430, b'    '))[0] >= 0)\n";
    EXPECT_EQ("3\nTrue\n", RunToEnd(Bench({"--", "python3", "-c", ask})).out);
}

TEST(SystemBench, GivesTheCommandNoDescriptorOfItsOwn) {
    TemporaryFolder folder;
    const Words views = {"--pcap",         folder.Path("p"), "--vcd",
                         folder.Path("v"), "--log-file",     folder.Path("l")};
    const Words list = {
        "--", "python3", "-c",
        "import os; print([l for l in (os.readlink('/proc/self/fd/' + f) for f in "
        "os.listdir('/proc/self/fd') if os.path.lexists('/proc/self/fd/' + f)) if '" +
            folder.Path("") + "' in l and '/out' not in l and '/err' not in l])"};
    EXPECT_EQ("[]\n", RunToEnd(Bench(views + list)).out);
}

TEST(SystemBench, KeepsItsFilesApartFromAMissingStandardOutput) {
    TemporaryFolder folder;
    const std::string pcap = folder.Path("p");
    const std::string run = BbpSim() + " --pace none --pcap " + pcap + " -- sh -c 'echo HELLO' >&-";
    RunToEnd({"sh", "-c", run});
    EXPECT_EQ(24u, folder.Read("p").size()) << "a capture's header and nothing else";
}

TEST(SystemBench, RefusesAFolderForTemporaryFilesWithTooLongAName) {
    TemporaryFolder folder;
    const std::string path = folder.Path(std::string(90, 'x'));
    std::filesystem::create_directory(path);
    const Outcome outcome = RunToEnd(Words{"env", "TMPDIR=" + path} + Bench({"--", "echo", "x"}));
    EXPECT_EQ(125, outcome.status);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("bbpsim: the devices need a folder for temporary files, and the path " + path +
                  " is too long\n",
              outcome.err);
}

TEST(SystemBench, HasAResetLineForShells) {
    TemporaryFolder folder;
    const std::string line = " /dev/gpio/HD_DAB2Reset";
    const std::string script = "echo 0 >" + line + "; printf 1 >" + line + "; echo 0 | tee" + line +
                               "; echo 1 | dd of=/dev/gpio/HD_DAB2Reset 2>/dev/null";
    RunToEnd(Bench(Words{"--json", folder.Path("json")} + Shell(script)));
    EXPECT_EQ(2, nlohmann::json::parse(folder.Read("json"))["resets"]);
}

}  // namespace
}  // namespace system_test
