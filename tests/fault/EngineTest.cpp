// SPDX-License-Identifier: Apache-2.0
// The judge judged: it must see what is wrong with a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "tests/fault/Catalogue.h"
#include "tests/fault/Engine.h"
#include "tests/fault/Runner.h"

namespace fault {

namespace {

const Kind ALL_KINDS[] = {Kind::Bus,    Kind::Reply,  Kind::Chip, Kind::File,
                          Kind::Memory, Kind::Output, Kind::Line, Kind::Pair};

// A sound run of which single calls can be changed afterwards.
class EngineTest : public ::testing::Test {
  protected:
    EngineTest() : unit_(scenario_.Chip()) {
        scenario_.PutFiles(unit_.files);
        result_ = unit_.Run(scenario_.Arguments());
        facts_.status_mode = true;
        facts_.passes = 1;
        facts_.whole_downloads = 1;
        facts_.version_known = true;
        facts_.label_known = true;
        facts_.version = "2.0.0";
        facts_.label = "2.0.0";
        facts_.image = scenario_.Image();
    }

    using Change = std::function<bool(Call&, std::string&)>;

    // What the reference says when the calls are as `change` leaves them: it may change a call and
    // its data, and returns whether the call stays.
    std::string Judge(const Change& change) {
        virt::CallLog log;
        for (const Call& original : unit_.Log().Calls()) {
            Call call = original;
            std::string data(unit_.Log().Data(original));
            if (change(call, data)) {
                log.Add(call.kind, call.at) = call;
                log.Attach(data.data(), data.size());
            }
        }
        Transcript transcript(log, result_);
        ReferenceUpdate reference(transcript, scenario_.Arguments());
        try {
            reference.Run();
        } catch (const RunEnds& end) {
            try {
                transcript.CheckEnd(end);
            } catch (const Difference& difference) {
                return difference.what;
            }
        } catch (const Difference& difference) {
            return difference.what;
        }
        return "";
    }

    // Likewise, with the change made to the call `nth` of its kind, from 0.
    std::string JudgeOne(CallKind kind, int nth, const Change& change) {
        int seen = 0;
        return Judge([&](Call& call, std::string& data) {
            return call.kind != kind || seen++ != nth || change(call, data);
        });
    }

    // Which promise the run does not keep, when its reader knows `facts_`.
    std::string Broken() {
        return Violation(scenario_, Injection{Kind::Bus, 0, {}}, unit_, result_, facts_);
    }

    static bool Remove(Call& /*call*/, std::string& /*data*/) { return false; }

    const Scenario scenario_ = Scenario::Of("-s,5000,update");
    virt::VirtualHeadUnit unit_;
    virt::RunResult result_;
    Facts facts_;
};

}  // namespace

TEST_F(EngineTest, SoundRunIsFoundSound) {
    EXPECT_EQ("", Judge([](Call&, std::string&) { return true; }));
}

TEST_F(EngineTest, EveryCallThatIsMissingIsMissed) {
    const std::size_t count = unit_.Log().Calls().size();
    for (std::size_t missing = 0; missing < count; ++missing) {
        if (unit_.Log().Calls()[missing].kind == CallKind::NewStorage) {
            continue;  // the library's own affair
        }
        std::size_t at = 0;
        EXPECT_NE("", Judge([&](Call&, std::string&) { return at++ != missing; }))
            << Describe(unit_.Log(), unit_.Log().Calls()[missing]);
    }
}

TEST_F(EngineTest, EveryArgumentCounts) {
    for (const CallKind kind :
         {CallKind::Usleep, CallKind::Delay, CallKind::SetSpeed, CallKind::Fread, CallKind::Fseek,
          CallKind::Send, CallKind::Receive, CallKind::WriteReset}) {
        EXPECT_NE("", JudgeOne(kind, 0,
                               [](Call& call, std::string&) {
                                   call.argument += 1;
                                   return true;
                               }))
            << NameOf(kind);
    }
}

TEST_F(EngineTest, EveryByteOfARequestCounts) {
    for (std::size_t at = 0; at < 14; ++at) {
        EXPECT_NE("", JudgeOne(CallKind::Send, 1,
                               [at](Call&, std::string& data) {
                                   data[at] = static_cast<char>(data[at] ^ 0x10);
                                   return true;
                               }))
            << at;
    }
}

TEST_F(EngineTest, LineOfOutputThatIsWrongIsSeen) {
    EXPECT_NE("", JudgeOne(CallKind::Output, 0, [](Call&, std::string& data) {
                  data = "31\n";
                  return true;
              }));
}

TEST_F(EngineTest, WrongStatusIsSeen) {
    result_.status = 1;
    EXPECT_NE("", Judge([](Call&, std::string&) { return true; }));
}

TEST_F(EngineTest, RunThatGoesOnAfterAFailureIsSeen) {
    // The chip has refused the request, says the transcript, and the program has gone on.
    EXPECT_NE("", JudgeOne(CallKind::Send, 1, [](Call& call, std::string&) {
                  call.result = 5;
                  return true;
              }));
}

TEST_F(EngineTest, FlashThatIsNotTheImageIsSeenAfterASuccess) {
    EXPECT_EQ("", Broken());
    facts_.image[77] = static_cast<std::uint8_t>(facts_.image[77] + 1);
    EXPECT_NE("", Broken());
}

TEST_F(EngineTest, FlashHoldsTheImagesBytesOrErasedOnesAfterAFailure) {
    result_.outcome = Outcome::SigPipe;
    EXPECT_EQ("", Broken());
    const auto erased = std::find(facts_.image.begin(), facts_.image.end(), 0xFF);
    ASSERT_NE(facts_.image.end(), erased);
    *erased = 0;
    EXPECT_EQ("", Broken());
    facts_.image[77] = static_cast<std::uint8_t>(facts_.image[77] + 1);
    EXPECT_EQ("the flash holds a byte that is not the image's, at 77", Broken());
}

TEST(InjectionTest, EachHasAnIdOfItsOwnThatLeadsBackToIt) {
    for (const char* name : {"-s,100,update", "none,100,equal"}) {
        const Catalogue catalogue(Scenario::Of(name));
        for (const Kind kind : ALL_KINDS) {
            std::set<std::string> ids;
            int count = 0;
            catalogue.ForEach(kind, [&](const Injection& injection) {
                const std::string id = injection.Name();
                ids.insert(id);
                ++count;
                EXPECT_EQ(id, Injection::Of(id).Name());
            });
            EXPECT_EQ(static_cast<std::size_t>(count), ids.size()) << NameOf(kind);
        }
    }
}

TEST(InjectionTest, TextThatIsNoIdIsRefused) {
    for (const char* text : {"", "send", "send@x:fail:5:0:1", "sent@1:fail:5:0:1", "read 1 flip"}) {
        EXPECT_ANY_THROW(RunOne(Scenario::Of("-s,100,update"), Injection::Of(text))) << text;
    }
    EXPECT_ANY_THROW(Scenario::Of("-s"));
}

TEST(InjectionTest, MayEndInACommentThatSaysAnything) {
    for (const char* text :
         {"read 3 flip 12:7", "send@38:fail:5:0:1", "read 1 zeros + read 2 ones"}) {
        const std::string commented = std::string(text) + " # as in run@7 + what came later";
        EXPECT_EQ(text, Injection::Of(commented).Name());
    }
}

TEST(InjectionTest, ReplayComesOutAsTheRunDid) {
    std::string story;
    const Verdict verdict =
        RunOne(Scenario::Of("-s,5000,update"), Injection::Of("send@38:fail:5:0:1"), &story);
    EXPECT_EQ("ERROR", verdict.outcome);
    EXPECT_TRUE(verdict.struck);
    EXPECT_EQ("", verdict.difference);
    EXPECT_NE(std::string::npos, story.find("<- fault"));
}

TEST(TallyTest, ComesThroughAPipeWhole) {
    Tally tally;
    tally.runs = 7;
    tally.struck = 6;
    tally.failed = 1;
    tally.kinds[2] = 5;
    tally.outcomes["uncaught bad_alloc"] = 3;
    tally.failures = {"an id\n  a difference"};
    const Tally other = Tally::Unpack(tally.Pack());
    EXPECT_EQ(tally.Pack(), other.Pack());
    EXPECT_EQ(tally.failures, other.failures);
}

}  // namespace fault
