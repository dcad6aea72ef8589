// SPDX-License-Identifier: Apache-2.0
// The percentages of images far larger than any chip takes: 26843545 bytes times 80 is the last
// product that 31 bits hold.
#include <algorithm>
#include <cstddef>

#include "tests/run/RunTest.h"

namespace run {

namespace {

class PercentageTest : public RunTest {
  protected:
    // The percentages of a download of `size` bytes.
    Strings Percentages(std::size_t size) {
        virt::FileContent image = virt::FileContent::WithLabelOnly("2.0.0xx");
        image.size = size;
        Unit().files.Put("image.bin", {image});
        Run("-s image.bin");
        EXPECT_EQ("exit 0", Ending());
        Strings output = Output();
        const Strings burn = {"85", "90", "95", "99", "100", "DONE"};
        EXPECT_TRUE(output.size() > burn.size() &&
                    std::equal(burn.rbegin(), burn.rend(), output.rbegin()));
        output.resize(output.size() - std::min(output.size(), burn.size()));
        return output;
    }
};

}  // namespace

TEST_F(PercentageTest, IsExactUpToThirtyOneBits) {
    EXPECT_EQ(Numbers(1, 80), Percentages(26843545));
}

TEST_F(PercentageTest, WrapsBeyondThirtyOneBitsAndTheRunGoesOn) {
    // No reader of the output expects numbers below zero.
    Unit().checks_output = false;
    // 2^31 - 2^32 is -71 times the size, and the last byte's product -63 times.
    EXPECT_EQ(Numbers(1, 71) + Numbers(-71, -63), Percentages(30000000));
}

}  // namespace run
