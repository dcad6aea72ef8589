// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>

#include "sim/FaultText.h"

namespace sim {
namespace {

Fault Parsed(const std::string& text) {
    Fault fault;
    FaultMistake mistake;
    EXPECT_TRUE(ParseFault(text, &fault, &mistake)) << ShowMistake(text, mistake);
    return fault;
}

// The word that is told to be wrong, and why.
std::string Blamed(const std::string& text) {
    Fault fault;
    FaultMistake mistake;
    EXPECT_FALSE(ParseFault(text, &fault, &mistake)) << text;
    EXPECT_LE(mistake.position + mistake.length, text.size());
    return text.substr(mistake.position, mistake.length) + ": " + mistake.reason;
}

TEST(SimFaultText, NamesAnEventACountAndAnAction) {
    const Fault fault = Parsed("segment 5 nak");
    EXPECT_EQ(Event::Segment, fault.event);
    EXPECT_EQ(5u, fault.nth);
    EXPECT_EQ(1u, fault.times);
    EXPECT_EQ(Action::Nak, fault.action);
    EXPECT_FALSE(fault.on_reply);
}

TEST(SimFaultText, MeansTheFirstWithoutACount) {
    const Fault fault = Parsed("burn verify-fails");
    EXPECT_EQ(1u, fault.nth);
    EXPECT_EQ(1u, fault.times);
}

TEST(SimFaultText, CountsFromThereOnOrSeveral) {
    EXPECT_EQ(FOR_EVER, Parsed("poll 2+ busy").times);
    EXPECT_EQ(2u, Parsed("poll 2+ busy").nth);
    EXPECT_EQ(4u, Parsed("poll 2-5 busy").times);
    EXPECT_EQ(1u, Parsed("poll 2-2 busy").times);
}

TEST(SimFaultText, MovesAFaultToTheReply) {
    EXPECT_TRUE(Parsed("poll 3 reply fail EIO").on_reply);
    EXPECT_TRUE(Parsed("write reply nak").on_reply);
    EXPECT_FALSE(Parsed("poll 3 reply zeros").on_reply) << "which it means anyway";
}

TEST(SimFaultText, HasTheArgumentsOfItsAction) {
    EXPECT_EQ(static_cast<unsigned>(ETIMEDOUT), Parsed("write fail ETIMEDOUT").value);
    EXPECT_EQ(static_cast<unsigned>(EPERM), Parsed("lock fail 1").value);
    EXPECT_EQ(20u, Parsed("read flip 20:6").offset);
    EXPECT_EQ(6u, Parsed("read flip 20:6").value);
    EXPECT_EQ(3u, Parsed("version set 3=0x77").offset);
    EXPECT_EQ(0x77u, Parsed("version set 3=0x77").value);
    EXPECT_EQ(255u, Parsed("read count 0xFF").value);
    EXPECT_EQ(65535u, Parsed("read length 65535").value);
    EXPECT_EQ(50u, Parsed("burn die-erasing").value);
    EXPECT_EQ(7u, Parsed("burn die-programming 7").value);
    EXPECT_EQ(5000u, Parsed("reset slow-start 5000").value);
    EXPECT_EQ(0u, Parsed("write restart").offset);
    EXPECT_EQ(12u, Parsed("write power-loss 12").offset);
    EXPECT_EQ(AFTER_THE_TRANSFER, Parsed("write restart after").offset);
}

TEST(SimFaultText, KnowsBothNamesOfAnErrno) {
    EXPECT_EQ(static_cast<unsigned>(EAGAIN), Parsed("write fail EWOULDBLOCK").value);
    EXPECT_EQ(static_cast<unsigned>(EOPNOTSUPP), Parsed("write fail ENOTSUP").value);
}

TEST(SimFaultText, MayEndInAComment) {
    EXPECT_EQ(2u, Parsed("read 2 nak # the second").nth);
    EXPECT_EQ(Action::Nak, Parsed("read nak#").action);
}

TEST(SimFaultText, ToleratesBlanks) {
    EXPECT_EQ(Action::Nak, Parsed("  write\t3   nak \r").action);
}

TEST(SimFaultText, PointsAtTheWordThatIsWrong) {
    const std::string no_event =
        ": an event is needed here, one of: write read segment poll version unprotect burn reset "
        "raise lock unlock";
    EXPECT_EQ("segmant" + no_event, Blamed("segmant 5 nak"));
    EXPECT_EQ(no_event, Blamed(""));
    const std::string no_count = ": a count is 3, 3+ or 3-5, and begins with 1";
    EXPECT_EQ("0" + no_count, Blamed("write 0 nak"));
    EXPECT_EQ("5-3" + no_count, Blamed("write 5-3 nak"));
    EXPECT_EQ("5x" + no_count, Blamed("write 5x nak"));
    EXPECT_EQ("5+6" + no_count, Blamed("write 5+6 nak"));
    EXPECT_EQ("5-" + no_count, Blamed("write 5- nak"));
    EXPECT_EQ("99999999999" + no_count, Blamed("write 99999999999 nak"));
    EXPECT_EQ(
        "never: an action is needed here, one of: fail restart power-loss dead-line never-ready "
        "slow-start",
        Blamed("reset never"));
    EXPECT_EQ(": an action is needed here, one of: reject die-erasing die-programming verify-fails",
              Blamed("burn 2"));
    EXPECT_EQ(
        "nak: this cannot happen to that event, but: reject die-erasing die-programming "
        "verify-fails",
        Blamed("burn nak"));
    EXPECT_EQ("reply: this event has no reply", Blamed("lock reply fail EIO"));
    EXPECT_EQ("refuse: this cannot happen to a reply", Blamed("segment 2 reply refuse"));
    EXPECT_EQ(
        "programming-status: this cannot happen to that event, but: fail fail-after nak restart "
        "power-loss flip set count length zeros ones previous other bad-checksum status",
        Blamed("version programming-status 9"));
    EXPECT_EQ("ESILLY: an errno value is needed here, such as EIO or ETIMEDOUT",
              Blamed("write fail ESILLY"));
    EXPECT_EQ(": an errno value is needed here, such as EIO or ETIMEDOUT", Blamed("write fail"));
    EXPECT_EQ("0: an errno value is needed here, such as EIO or ETIMEDOUT", Blamed("write fail 0"));
    EXPECT_EQ("20.6: BYTE:BIT is needed here, up to 64:7", Blamed("read flip 20.6"));
    EXPECT_EQ("20:8: BYTE:BIT is needed here, up to 64:7", Blamed("read flip 20:8"));
    EXPECT_EQ("65=1: BYTE=VALUE is needed here, up to 64=255", Blamed("read set 65=1"));
    EXPECT_EQ("256: a number is needed here, 0 to 255", Blamed("read count 256"));
    EXPECT_EQ("65536: a number is needed here, 0 to 65535", Blamed("read length 65536"));
    EXPECT_EQ("101: a percentage is needed here, 0 to 100", Blamed("burn die-erasing 101"));
    EXPECT_EQ(": a time in milliseconds is needed here, up to an hour", Blamed("reset slow-start"));
    EXPECT_EQ("2048: a byte's position is needed here, 0 to 2047, or \"after\"",
              Blamed("write restart 2048"));
    EXPECT_EQ("3: only a transfer has bytes", Blamed("lock restart 3"));
    EXPECT_EQ("now: nothing is needed behind a whole fault", Blamed("write 2 nak now"));
}

TEST(SimFaultText, ShowsTheMistakeBelowTheText) {
    Fault fault;
    FaultMistake mistake;
    ParseFault("read 2 flop 3:4", &fault, &mistake);
    mistake.reason = "why";
    EXPECT_EQ(
        "why\n"
        "  read 2 flop 3:4\n"
        "         ^^^^",
        ShowMistake("read 2 flop 3:4", mistake));
    ParseFault("read 2", &fault, &mistake);
    mistake.reason = "why";
    EXPECT_EQ(
        "why\n"
        "  read 2\n"
        "        ^",
        ShowMistake("read 2", mistake));
}

TEST(SimFaultText, ComesBackFromItsText) {
    for (const char* const text :
         {"segment 5 nak", "poll 2+ busy", "poll 2-5 reply fail EIO", "read 1 flip 20:6",
          "version 1 set 3=119", "write 1 restart", "write 1 restart 12",
          "write 1 power-loss after", "burn 2 die-erasing 30", "reset 1 slow-start 5000",
          "lock 1 never-grant", "unlock 3 lose-unlock", "raise 1 dead-line", "read 4 length 300",
          "poll 1 programming-status 9", "unprotect 1 other", "segment 7 forget"}) {
        EXPECT_EQ(text, FaultText(Parsed(text)));
    }
}

TEST(SimFaultText, HasAnArgumentOnlyWhereItsVocabularySaysSo) {
    const std::string vocabulary = FaultVocabulary();
    for (const char* const line : {"\n  write read segment poll version unprotect burn reset raise "
                                   "lock unlock\n",
                                   "\n  fail ERRNO                 write read segment poll version "
                                   "unprotect reset raise lock unlock\n",
                                   "\n  busy                       poll\n"}) {
        EXPECT_NE(std::string::npos, vocabulary.find(line)) << vocabulary;
    }
}

TEST(SimFaultText, IsReadFromAFileLineByLine) {
    std::vector<Fault> faults;
    FaultMistake mistake;
    std::size_t line = 0;
    EXPECT_TRUE(ParseFaults("# a bad day\n\nwrite 3 nak  # once\n  poll 1+ busy\n", &faults,
                            &mistake, &line));
    ASSERT_EQ(2u, faults.size());
    EXPECT_EQ(Action::Nak, faults[0].action);
    EXPECT_EQ(Event::Poll, faults[1].event);
}

TEST(SimFaultText, TellsTheLineOfAMistakeInAFile) {
    std::vector<Fault> faults;
    FaultMistake mistake;
    std::size_t line = 0;
    EXPECT_FALSE(ParseFaults("write nak\n\nwrite nac\nread nak", &faults, &mistake, &line));
    EXPECT_EQ(3u, line);
    EXPECT_EQ(6u, mistake.position);
    EXPECT_EQ(3u, mistake.length);
}

}  // namespace
}  // namespace sim
