// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tests/tools/WatchedUpdate.h"
#include "tools/watch/Watch.h"

namespace {

using tools::Content;
using tools::Milliseconds;
using tools::Verdict;
using tools::Watch;
using tools::WatchConfig;
using tools::WatchEvent;

class Recorder : public tools::Reporter {
  public:
    void Report(const WatchEvent& event) override { events.push_back(event); }

    // The texts of the events of this kind, each with a line's end.
    std::string Texts(WatchEvent::Kind kind) const {
        std::string texts;
        for (const WatchEvent& event : events) {
            if (event.kind == kind) {
                texts +=
                    (kind == WatchEvent::Kind::End ? Headline(event.ending) : event.text) + "\n";
            }
        }
        return texts;
    }

    std::vector<WatchEvent> events;
};

const char BURN[] = "40\n80\n85\n90\n95\n99\n100\nDONE\n";
const char FAILURE[] = "b CRITICAL: Programming terminated @bbpflash.cpp:1\nERROR\n";

class WatchTest : public testing::Test {
  protected:
    WatchTest() { config_.segments = SEGMENTS; }

    Watch& GetWatch() {
        if (watch_ == nullptr) {
            watch_ = std::make_unique<Watch>(config_, std::vector<tools::Reporter*>{&recorder_});
        }
        return *watch_;
    }

    void Hear(int now, const std::string& bytes) {
        GetWatch().Take(bytes.data(), bytes.size(), Milliseconds(now));
    }

    int Finish(int status, bool was_requested = false) {
        return GetWatch().Finish(status, was_requested, Milliseconds(50000));
    }

    std::string Told(WatchEvent::Kind kind) const { return recorder_.Texts(kind); }

    const tools::Ending& End() const { return recorder_.events.back().ending; }

    WatchConfig config_;
    Recorder recorder_;
    std::unique_ptr<Watch> watch_;
};

TEST_F(WatchTest, PassesTheUpdatersStatusOn) {
    Hear(10000, BURN);
    EXPECT_EQ(0, Finish(0));
    EXPECT_EQ("updated and verified after 0:50\n", Told(WatchEvent::Kind::End));
    EXPECT_EQ(Verdict::Success, End().verdict);
    EXPECT_EQ(1, recorder_.events.back().progress.done);
}

TEST_F(WatchTest, SaysWhenNothingWasToBeDone) {
    Hear(4000, "100\nDONE\n");
    EXPECT_EQ(0, Finish(0));
    EXPECT_EQ("up to date, nothing was written, 0:50\n", Told(WatchEvent::Kind::End));
}

TEST_F(WatchTest, PassesAFailuresStatusOn) {
    Hear(10000, FAILURE);
    EXPECT_EQ(1, Finish(1));
    EXPECT_EQ("failed after 0:50, status 1\n", Told(WatchEvent::Kind::End));
    EXPECT_EQ("", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, NeverTakesAContradictionForSuccess) {
    for (const char* output : {"40\n30\n80\n99\n100\nDONE\n", "80\n99\nDONE\n", "80\n99\n", ""}) {
        watch_.reset();
        recorder_.events.clear();
        Hear(10000, output);
        EXPECT_EQ(tools::STATUS_DOUBTFUL, Finish(0)) << output;
        EXPECT_NE("", Told(WatchEvent::Kind::Problem)) << output;
    }
}

TEST_F(WatchTest, KeepsAFailuresStatusWhenTheOutputContradictsIt) {
    Hear(10000, BURN);
    EXPECT_EQ(1, Finish(1));
    EXPECT_EQ("the last line contradicts the exit status\n", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, TellsAProblemOnceWithItsLine) {
    Hear(10000, "40\n30\n20\n");
    EXPECT_EQ("the percentage fell without a new pass: 30\n", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, TellsOfMissingProgressOnceAndTrustsTheSuccessAfterIt) {
    config_.stall = Milliseconds(30000);
    Hear(1000, "80\n");
    GetWatch().Tick(Milliseconds(31000));
    EXPECT_EQ("", Told(WatchEvent::Kind::Stall));
    GetWatch().Tick(Milliseconds(31001));
    GetWatch().Tick(Milliseconds(40000));
    EXPECT_EQ("no progress for 0:30 minutes in the phase burn; Ctrl-C must wait\n",
              Told(WatchEvent::Kind::Stall));
    Hear(45000, "85\n90\n95\n99\n100\nDONE\n");
    EXPECT_EQ(0, Finish(0));
}

TEST_F(WatchTest, TakesNoMessageForProgress) {
    config_.stall = Milliseconds(30000);
    Hear(1000, "80\n85\n");
    for (int now = 2000; now <= 40000; now += 1000) {
        Hear(now, "b ERROR: sending @HdChip.cpp:1\n");
        GetWatch().TakeError("A5 A5\n", 6, Milliseconds(now));
        GetWatch().Tick(Milliseconds(now));
    }
    const std::string told = Told(WatchEvent::Kind::Stall);
    EXPECT_EQ(0u,
              told.find("the chip has stopped answering at 0:01, and it may still be writing its "
                        "flash: do not switch off\n"));
    EXPECT_NE(std::string::npos, told.find("\nno progress for 0:31 minutes"));
    Hear(41000, "90\n");
    EXPECT_FALSE(recorder_.events.back().progress.no_answer.has_value());
}

TEST_F(WatchTest, ClaimsNoRemainingTimeWhileTheChipDoesNotAnswer) {
    Hear(1000, "80\n85\n");
    Hear(11001, "b ERROR: sending @HdChip.cpp:1\n");
    Hear(12000, "b ERROR: sending @HdChip.cpp:1\n");
    EXPECT_EQ(Milliseconds(11000), recorder_.events.back().progress.no_answer);
    EXPECT_FALSE(recorder_.events.back().progress.remaining.has_value());
}

TEST_F(WatchTest, ShowsStandardErrorButItsDumps) {
    GetWatch().TakeError("one\nA5 0x", 9, Milliseconds(29000));
    GetWatch().TakeError("\n05 AF\n", 7, Milliseconds(30000));
    EXPECT_EQ("one\nA5 0x\n05 AF\n", Told(WatchEvent::Kind::Message));
    EXPECT_FALSE(recorder_.events.at(0).is_detail);
    EXPECT_FALSE(recorder_.events.at(1).is_detail);
    EXPECT_TRUE(recorder_.events.at(2).is_detail);
}

TEST_F(WatchTest, LeavesWhatFollowsAnErrorToTheLog) {
    Hear(1000, "b MSG: a @x.cpp:1\nb ERROR: sending @x.cpp:2\nb INF: more @x.cpp:3\n");
    EXPECT_FALSE(recorder_.events.at(0).is_detail);
    EXPECT_TRUE(recorder_.events.at(1).is_detail);
    EXPECT_TRUE(recorder_.events.at(2).is_detail);
}

TEST_F(WatchTest, EndsAnUpdateThatTheChipRefuses) {
    const std::string refusal = "b ERROR: image verification failed, CRC error @HdChip.cpp:1\n";
    Hear(1000, "80\n" + refusal);
    EXPECT_FALSE(GetWatch().IsOver(Milliseconds(3999)));
    EXPECT_TRUE(GetWatch().IsOver(Milliseconds(4000)));
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(4000)));
    EXPECT_EQ(77, Finish(128, true));
    EXPECT_EQ(Verdict::Refused, End().verdict);
    EXPECT_EQ("refused-crc", End().reason);
    EXPECT_EQ(Content::Old, End().content);
}

TEST_F(WatchTest, TakesARefusalBackWhenTheChipGoesOn) {
    Hear(1000, "80\nb ERROR: image verification failed, CRC error @HdChip.cpp:1\n85\n");
    EXPECT_FALSE(GetWatch().IsOver(Milliseconds(10000)));
}

TEST_F(WatchTest, TellsWhyTheUpdaterCannotBeEnded) {
    GetWatch().Request("interrupt", Milliseconds(5000));
    GetWatch().CannotEnd("no", Milliseconds(5000));
    EXPECT_FALSE(GetWatch().IsRequested());
    EXPECT_NE(std::string::npos,
              Told(WatchEvent::Kind::Note).find("the updater cannot be ended: no\n"));
}

TEST_F(WatchTest, LetsARequestThroughWhileNothingIsLost) {
    Hear(10000, "40\n");
    GetWatch().Request("interrupt", Milliseconds(11000));
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(11000)));
    EXPECT_EQ(130, Finish(130, true));
    EXPECT_EQ("ended on request after 0:50\n", Told(WatchEvent::Kind::End));
}

TEST_F(WatchTest, SaysWhyItWaits) {
    Hear(10000, "80\n85\n");
    GetWatch().Request("interrupt", Milliseconds(11000));
    EXPECT_FALSE(GetWatch().MayEnd(Milliseconds(11000)));
    EXPECT_FALSE(GetWatch().IsRequested());
    EXPECT_NE(std::string::npos,
              Told(WatchEvent::Kind::Note).find("not now: the chip is writing its flash"));
}

TEST_F(WatchTest, KeepsARequestThatOnlyComesTooEarly) {
    GetWatch().Request("terminate", Milliseconds(100));
    EXPECT_FALSE(GetWatch().MayEnd(Milliseconds(100)));
    EXPECT_TRUE(GetWatch().IsRequested());
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(1000)));
}

TEST_F(WatchTest, EndsAQueryAtAnyTime) {
    config_.only_asks = true;
    GetWatch().Request("interrupt", Milliseconds(100));
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(100)));
}

TEST_F(WatchTest, JudgesLinesOfUnknownEndByThemselves) {
    Hear(10000, BURN);
    EXPECT_EQ(0, Finish(BBPFLASH_STATUS_UNKNOWN));
    watch_.reset();
    Hear(10000, FAILURE);
    EXPECT_EQ(1, Finish(BBPFLASH_STATUS_UNKNOWN));
    watch_.reset();
    Hear(10000, "40\n");
    EXPECT_EQ(tools::STATUS_DOUBTFUL, Finish(BBPFLASH_STATUS_UNKNOWN));
}

TEST_F(WatchTest, TellsEachPhaseOnce) {
    Hear(10000, BURN);
    // Download, burn, erase, program, verify, check, end.
    EXPECT_EQ(std::string(7, '\n'), Told(WatchEvent::Kind::Phase));
}

}  // namespace
