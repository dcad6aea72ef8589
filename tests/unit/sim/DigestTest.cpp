// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "sim/Digest.h"

namespace sim {
namespace {

TEST(SimDigest, IsTheStandardsForItsExamples) {
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              Sha256({'a', 'b', 'c'}));
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", Sha256({}));
}

}  // namespace
}  // namespace sim
