// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/watch/Watch.h"

namespace {

using tools::Milliseconds;
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
                texts += event.text + "\n";
            }
        }
        return texts;
    }

    std::vector<WatchEvent> events;
};

const char UPDATE[] = "40\n80\n85\n90\n95\n99\n100\nDONE\n";
const char FAILURE[] = "b CRITICAL: Programming terminated @bbpflash.cpp:1\nERROR\n";

class WatchTest : public testing::Test {
  protected:
    WatchTest() {
        config.mode = BBPFLASH_MODE_STATUS;
        config.segments = 516;
    }

    Watch& GetWatch() {
        if (watch == nullptr) {
            watch = std::make_unique<Watch>(config, std::vector<tools::Reporter*>{&recorder});
        }
        return *watch;
    }

    void Hear(int now, const std::string& bytes) {
        GetWatch().Take(bytes.data(), bytes.size(), Milliseconds(now));
    }

    int Finish(int status, bool was_requested = false) {
        return GetWatch().Finish(status, was_requested, Milliseconds(50000));
    }

    std::string Told(WatchEvent::Kind kind) const { return recorder.Texts(kind); }

    WatchConfig config;
    Recorder recorder;
    std::unique_ptr<Watch> watch;
};

TEST_F(WatchTest, PassesTheUpdatersStatusOn) {
    Hear(10000, UPDATE);
    EXPECT_EQ(0, Finish(0));
    EXPECT_EQ("updated and verified after 0:50\n", Told(WatchEvent::Kind::End));
    EXPECT_EQ(BBPFLASH_VERDICT_SUCCESS, recorder.events.back().verdict);
}

TEST_F(WatchTest, SaysWhenNothingWasToBeDone) {
    Hear(4000, "100\nDONE\n");
    EXPECT_EQ(0, Finish(0));
    EXPECT_EQ("up to date after 0:50\n", Told(WatchEvent::Kind::End));
}

TEST_F(WatchTest, PassesAFailuresStatusOn) {
    Hear(10000, FAILURE);
    EXPECT_EQ(1, Finish(1));
    EXPECT_EQ("the update failed, status 1 after 0:50\n", Told(WatchEvent::Kind::End));
    EXPECT_EQ("", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, NeverTakesAContradictionForSuccess) {
    for (const char* output : {"40\n30\n80\n99\n100\nDONE\n", "80\n99\nDONE\n", "80\n99\n", ""}) {
        watch.reset();
        recorder.events.clear();
        Hear(10000, output);
        EXPECT_EQ(tools::STATUS_DOUBTFUL, Finish(0)) << output;
        EXPECT_NE("", Told(WatchEvent::Kind::Problem)) << output;
    }
}

TEST_F(WatchTest, KeepsAFailuresStatusWhenTheOutputContradictsIt) {
    Hear(10000, UPDATE);
    EXPECT_EQ(1, Finish(1));
    EXPECT_EQ("the last line contradicts the exit status\n", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, TellsAProblemOnceWithItsLine) {
    Hear(10000, "40\n30\n20\n");
    EXPECT_EQ("the percentage fell without a new pass: 30\n", Told(WatchEvent::Kind::Problem));
}

TEST_F(WatchTest, TellsOfSilenceOnceAndDoubtsTheSuccessAfterIt) {
    config.stall = Milliseconds(30000);
    Hear(1000, "80\n");
    GetWatch().Tick(Milliseconds(31000));
    EXPECT_EQ("", Told(WatchEvent::Kind::Stall));
    GetWatch().Tick(Milliseconds(31001));
    GetWatch().Tick(Milliseconds(40000));
    EXPECT_EQ("the updater has been silent for 0:30 minutes\n", Told(WatchEvent::Kind::Stall));
    Hear(45000, "85\n90\n95\n99\n100\nDONE\n");
    EXPECT_EQ(tools::STATUS_DOUBTFUL, Finish(0));
}

TEST_F(WatchTest, HearsStandardErrorToo) {
    config.stall = Milliseconds(30000);
    GetWatch().TakeError("one\ntw", 6, Milliseconds(29000));
    GetWatch().TakeError("o\n", 2, Milliseconds(30000));
    GetWatch().Tick(Milliseconds(59000));
    EXPECT_EQ("one\ntwo\n", Told(WatchEvent::Kind::Message));
    EXPECT_EQ("", Told(WatchEvent::Kind::Stall));
}

TEST_F(WatchTest, LetsARequestThroughWhileNothingIsLost) {
    Hear(10000, "40\n");
    GetWatch().Request("interrupt", Milliseconds(11000));
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(11000)));
    EXPECT_EQ(130, Finish(130, true));
    EXPECT_EQ("ended on request after 0:50; the chip keeps the firmware that it has\n",
              Told(WatchEvent::Kind::End));
}

TEST_F(WatchTest, SaysWhyItWaitsWhenItIsAskedASecondTime) {
    Hear(10000, "80\n85\n");
    for (const bool is_second : {false, true}) {
        GetWatch().Request("interrupt", Milliseconds(11000));
        EXPECT_FALSE(GetWatch().MayEnd(Milliseconds(11000)));
        EXPECT_FALSE(GetWatch().IsRequested());
        EXPECT_EQ(is_second,
                  Told(WatchEvent::Kind::Note).find("still waiting: the chip is writing") !=
                      std::string::npos);
    }
}

TEST_F(WatchTest, KeepsARequestThatOnlyComesTooEarly) {
    GetWatch().Request("terminate", Milliseconds(100));
    EXPECT_FALSE(GetWatch().MayEnd(Milliseconds(100)));
    EXPECT_TRUE(GetWatch().IsRequested());
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(1000)));
}

TEST_F(WatchTest, EndsAQueryAtAnyTime) {
    config.only_asks = true;
    GetWatch().Request("interrupt", Milliseconds(100));
    EXPECT_TRUE(GetWatch().MayEnd(Milliseconds(100)));
}

TEST_F(WatchTest, JudgesLinesOfUnknownEndByThemselves) {
    config.mode = BBPFLASH_MODE_UNKNOWN;
    Hear(10000, UPDATE);
    EXPECT_EQ(0, Finish(BBPFLASH_STATUS_UNKNOWN));
    watch.reset();
    Hear(10000, FAILURE);
    EXPECT_EQ(1, Finish(BBPFLASH_STATUS_UNKNOWN));
    watch.reset();
    Hear(10000, "40\n");
    EXPECT_EQ(tools::STATUS_DOUBTFUL, Finish(BBPFLASH_STATUS_UNKNOWN));
}

TEST_F(WatchTest, TellsEachPhaseOnce) {
    Hear(10000, UPDATE);
    // Download, burn, erase, program, verify, check, end.
    EXPECT_EQ(std::string(7, '\n'), Told(WatchEvent::Kind::Phase));
}

}  // namespace
