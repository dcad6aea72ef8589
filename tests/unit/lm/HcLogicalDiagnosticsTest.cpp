// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/lm/HcLogicalFixture.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::Output;
using fake::Reply;

using HcLogicalShowTxLM = HcLogicalTest;

class HcLogicalShowRxLM : public HcLogicalTest {
  protected:
    ~HcLogicalShowRxLM() override {
        for (const HcI2cBuffer* chunk : lm_.rxBuffers) {
            delete chunk;
        }
    }

    // Puts a chunk that has received `reply` into the list.
    void Received(Reply reply) {
        platform.Answer(std::move(reply));
        lm_.rxBuffers.push_back(new HcI2cBuffer(&bus_, 0x2E, 'r'));
        ASSERT_EQ(lm_.rxBuffers.back()->GetBuffer(), 1);
    }
};

// A row of 16 equal bytes in a dump.
std::string Row(const std::string& byte) {
    std::string row = "\n\t\t";
    for (int i = 0; i < 16; ++i) {
        row += " " + byte;
    }
    return row;
}

TEST_F(HcLogicalShowTxLM, PrintsHeaderChunkAndChecksumAndDumpsTheBytes) {
    lm_.SetNumSegs(14);
    lm_.Begin(0x84, 1);
    lm_.Fill(0x05);
    lm_.Terminate();

    const Output output = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_EQ(output.out,
              "\n\tLM Header information\n\n"
              "\t\t[0]  sync:     0xA5 (valid)\n"
              "\t\t[1]  sync:     0xA5 (valid)\n"
              "\t\t[2]  count:    0\n"
              "\t\t[3]  instance: 1\n"
              "\t\t[4]  length:   14 (valid)\n"
              "\t\t[6]  opcode:   0x84\n"
              "\t\t[7]  abort:    0x00 (valid)\n"
              "\t\t[8]  num segs: 1\n"
              "\t\t[10] curr seg: 0\n\n"
              "\tI2C information (add fmt stop txlen rxlen): 0x17 0x02 0x01 14 165\n"
              "\t\t[last] LM checksum: E3\n\n");
    EXPECT_EQ(output.err, "\n\t\t A5 A5 00 01 0E 00 84 00 01 00 00 00 05 E3\n\n");
}

TEST_F(HcLogicalShowTxLM, ShowsWhatIsInvalid) {
    lm_.numSegs = 0x0203;
    lm_.currSeg = 0x0201;
    lm_.Begin(0x80, 1);
    lm_.txBuffer->data[0] = 0x5A;
    lm_.txBuffer->data[1] = 0xA4;
    lm_.txBuffer->data[2] = 255;
    lm_.txBuffer->data[3] = 2;
    lm_.txBuffer->data[4] = 0x01;
    lm_.txBuffer->data[5] = 0x08;
    lm_.txBuffer->data[7] = 0x80;

    const Output output = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_EQ(output.out,
              "\n\tLM Header information\n\n"
              "\t\t[0]  sync:     0x5A (invalid)\n"
              "\t\t[1]  sync:     0xA4 (invalid)\n"
              "\t\t[2]  count:    255\n"
              "\t\t[3]  instance: 2\n"
              "\t\t[4]  length:   2049 (invalid)\n"
              "\t\t[6]  opcode:   0x80\n"
              "\t\t[7]  abort:    0x80 (invalid)\n"
              "\t\t[8]  num segs: 515\n"
              "\t\t[10] curr seg: 513\n\n"
              "\tI2C information (add fmt stop txlen rxlen): 0x17 0x02 0x00 12 90\n"
              "\t\t[last] LM checksum: 02\n\n");
}

TEST_F(HcLogicalShowTxLM, TakesALengthOf2048ForValid) {
    lm_.Begin(0x84, 5000);

    const Output output = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_THAT(output.out, testing::HasSubstr("\t\t[4]  length:   2048 (valid)\n"));
}

TEST_F(HcLogicalShowTxLM, StaysInsideTheChunkBeforeTheFirstMessage) {
    const Output output = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_THAT(output.out, testing::EndsWith(
                                "\tI2C information (add fmt stop txlen rxlen): 0x17 0x02 0x00 0 0\n"
                                "\t\t[last] LM checksum: 00\n\n"));
    EXPECT_EQ(output.err, "");
}

TEST_F(HcLogicalShowTxLM, DumpsAllBytesOfAFullMessage) {
    lm_.Begin(0x84, 2035);
    lm_.txBuffer->SetLength(2048);
    lm_.txBuffer->data[2047] = 0xC3;

    const Output output = Capture([&] { lm_.ShowTxLM(); });

    EXPECT_THAT(output.out, testing::EndsWith("2048 165\n\t\t[last] LM checksum: C3\n\n"));
    EXPECT_EQ(std::count(output.err.begin(), output.err.end(), '\n'), 128 + 2);
    EXPECT_THAT(output.err, testing::EndsWith(" 00 C3\n\n"));
}

TEST_F(HcLogicalShowRxLM, PrintsNothingWithoutChunks) {
    const Output output = Capture([&] { lm_.ShowRxLM(); });

    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "");
}

TEST_F(HcLogicalShowRxLM, ShowsThatAllIsWellAsInvalid) {
    Received(Reply::Raw({14, 0xA5, 0xA5, 7, 1, 14, 0, 0x84, 0x01, 1, 0, 0, 0, 0x2A, 0x0C}));

    const Output output = Capture([&] { lm_.ShowRxLM(); });

    EXPECT_EQ(output.out,
              "\n\tLM Header information\n\n"
              "\t\t[0]  sync:     0xA5 (valid)\n"
              "\t\t[1]  sync:     0xA5 (valid)\n"
              "\t\t[2]  count:    7\n"
              "\t\t[3]  instance: 1\n"
              "\t\t[4]  length:   14 (valid)\n"
              "\t\t[6]  opcode:   0x84\n"
              "\t\t[7]  abort:    0x01 (invalid)\n"
              "\t\t[8]  num segs: 1\n"
              "\t\t[10] curr seg: 0\n\n"
              "\tI2C chunk [0] information (add fmt stop txlen rxlen): 0x17 0x02 0x00 65 14\n"
              "\t\t[last] LM checksum: 0C\n\n");
    EXPECT_EQ(output.err, "\n\t\t A5 A5 07 01 0E 00 84 01 01 00 00 00 2A 0C 00 00" + Row("00") +
                              Row("00") + Row("00") + "\n\t\t 00\n\n");
}

TEST_F(HcLogicalShowRxLM, PrintsTheHeaderOfTheFirstAndTheChecksumOfTheLastChunk) {
    Bytes first(65, 0x11);
    first[0] = 64;
    Bytes second(65, 0x22);
    second[0] = 2;
    second[2] = 0x99;
    Bytes third(65, 0x33);
    third[0] = 5;
    third[5] = 0x77;
    Received(Reply::Raw(first));
    Received(Reply::Raw(second));
    Received(Reply::Raw(third));
    lm_.rxBuffers[1]->SetStop(1);

    const Output output = Capture([&] { lm_.ShowRxLM(); });

    EXPECT_EQ(output.out,
              "\n\tLM Header information\n\n"
              "\t\t[0]  sync:     0x11 (invalid)\n"
              "\t\t[1]  sync:     0x11 (invalid)\n"
              "\t\t[2]  count:    17\n"
              "\t\t[3]  instance: 17\n"
              "\t\t[4]  length:   4369 (invalid)\n"
              "\t\t[6]  opcode:   0x11\n"
              "\t\t[7]  abort:    0x11 (invalid)\n"
              "\t\t[8]  num segs: 4369\n"
              "\t\t[10] curr seg: 4369\n\n"
              "\tI2C chunk [0] information (add fmt stop txlen rxlen): 0x17 0x02 0x00 65 64\n"
              "\tI2C chunk [1] information (add fmt stop txlen rxlen): 0x17 0x02 0x01 65 2\n"
              "\tI2C chunk [2] information (add fmt stop txlen rxlen): 0x17 0x02 0x00 65 5\n"
              "\t\t[last] LM checksum: 77\n\n");
    EXPECT_EQ(output.err, Row("11") + Row("11") + Row("11") + Row("11") + "\n\t\t 00\n\n" +
                              "\n\t\t 22 99 22 22 22 22 22 22 22 22 22 22 22 22 22 22" + Row("22") +
                              Row("22") + Row("22") + "\n\t\t 00\n\n" +
                              "\n\t\t 33 33 33 33 77 33 33 33 33 33 33 33 33 33 33 33" + Row("33") +
                              Row("33") + Row("33") + "\n\t\t 00\n\n");
}

TEST_F(HcLogicalShowRxLM, FindsTheChecksumInsideTheChunkForEveryCount) {
    Bytes bytes(65, 0xAB);
    for (int count = 0; count <= 255; ++count) {
        bytes[0] = static_cast<std::uint8_t>(count);
        Received(Reply::Raw(bytes));

        const Output output = Capture([&] { lm_.ShowRxLM(); });

        const char* const expected = count == 0 ? "00" : count <= 64 ? "AB" : "00";
        EXPECT_THAT(output.out,
                    testing::EndsWith("65 " + std::to_string(count) +
                                      "\n\t\t[last] LM checksum: " + expected + "\n\n"));
        delete lm_.rxBuffers.back();
        lm_.rxBuffers.clear();
    }
}

}  // namespace
