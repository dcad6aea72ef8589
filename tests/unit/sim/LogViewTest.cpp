// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "sim/FaultText.h"
#include "sim/LogView.h"
#include "sim/SampleImage.h"
#include "tests/unit/sim/Requests.h"

namespace sim {
namespace {

// A head unit whose log's last line is looked at, without its time.
class SimLog : public ::testing::Test {
  protected:
    void Start(const std::string& fault_text = "") {
        std::vector<Fault> faults;
        if (!fault_text.empty()) {
            FaultMistake mistake;
            Fault fault;
            ASSERT_TRUE(ParseFault(fault_text, &fault, &mistake)) << mistake.reason;
            faults.push_back(fault);
        }
        unit_ = std::make_unique<HeadUnit>(ChipConfig{}, faults);
        unit_->AddObserver(&view_);
        caller_ = std::make_unique<Caller>(*unit_);
    }
    std::string Line(std::size_t from_the_end = 1) const {
        return lines_[lines_.size() - from_the_end].substr(13);
    }

    std::vector<std::string> lines_;
    LogView view_{[this](const std::string& line) { lines_.push_back(line); }};
    std::unique_ptr<HeadUnit> unit_;
    std::unique_ptr<Caller> caller_;
};

TEST_F(SimLog, BeginsWithTheTimeInSeconds) {
    Start();
    unit_->Advance(std::chrono::milliseconds(1250));
    caller_->Reset();
    EXPECT_EQ("    1.250000 reset low", lines_[0]);
    EXPECT_EQ("    1.450000 reset high", lines_[1]);
}

TEST_F(SimLog, TellsAQueryAndItsReply) {
    Start();
    caller_->Ask(VersionQuery());
    EXPECT_EQ("write version query #0, 1 byte, 01", Line(2));
    EXPECT_EQ("read  reply to version query #0, \"1.0.0\"", Line());
}

TEST_F(SimLog, TellsTheProgrammingStatusByName) {
    Start();
    caller_->Ask(Poll());
    EXPECT_EQ("read  reply to programming status query #0, idle (3)", Line());
    caller_->Ask(FlashStatus());
    EXPECT_EQ("read  reply to flash status query #1, idle (3)", Line());
}

TEST_F(SimLog, TellsTheSegmentsOfADownload) {
    Start();
    caller_->SendImage(Bytes(5000, 0xAB));
    EXPECT_EQ("write download #1, segment 1/3, 2035 bytes, 04 AB AB AB AB AB AB AB ...", Line(6));
    EXPECT_EQ("read  reply to download #3, segment 3/3", Line());
}

TEST_F(SimLog, TellsWhatTheChipThinksOfAMessage) {
    Start();
    caller_->Ask(Message(0x81, {1}));
    EXPECT_EQ("write unknown command #0, 1 byte, 01", Line(2));
    EXPECT_EQ("read  reply to unknown command #0, not taken, unknown opcode", Line());
    Bytes bad = VersionQuery().Count(7).Build();
    bad.back() ^= 1;
    caller_->AskRaw(bad);
    EXPECT_EQ("read  reply to version query #7, not taken, checksum mismatch", Line());
    caller_->AskRaw(VersionQuery().Count(9).Build());
    EXPECT_EQ("read  reply to version query #9, \"1.0.0\", count mismatch", Line());
    caller_->AskRaw({1, 2, 3});
    EXPECT_EQ("write 3 bytes, 01 02 03", Line(2));
    EXPECT_EQ("read  reply to nothing #3, not taken, header missing", Line());
}

TEST_F(SimLog, TellsFaults) {
    Start("write nak");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("write version query #0, 1 byte, 01: not acknowledged (ENXIO) <- fault", Line());
    Start("read bad-checksum");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  reply to version query #0, \"1.0.0\", bad checksum <- fault", Line());
    Start("read length 300");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  reply to version query #0, \"1.0.0\", 20 bytes of 300 <- fault", Line());
    Start("read zeros");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  no reply yet <- fault", Line());
    Start("read ones");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  a count byte of 255, FF FF FF FF FF FF FF FF ... <- fault", Line());
    Start("read flip 1:0");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  20 bytes without sync, A4 A5 00 01 14 00 80 01 ... <- fault", Line());
    Start("write restart 5");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("write version query #0, 1 byte, 01, broken off after 5 bytes: failed (EIO) <- fault",
              Line());
    Start("read nak");
    caller_->Ask(VersionQuery());
    EXPECT_EQ("read  65 bytes: not acknowledged (ENXIO) <- fault", Line());
}

TEST_F(SimLog, TellsOtherAddresses) {
    Start();
    const std::uint8_t byte = 0;
    unit_->Send(0x50, &byte, 1);
    EXPECT_EQ("write address 0x50, 1 byte, 00: not acknowledged (ENXIO)", Line());
}

}  // namespace
}  // namespace sim
