// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "common/Sha256.h"

namespace {

using common::Sha256;
using common::Sha256Of;

// What sha256sum prints.
TEST(Sha256, OfNothing) {
    EXPECT_EQ(Sha256().Finish(),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Sha256, OfPieces) {
    Sha256 digest;
    digest.Update("a", 1);
    digest.Update("", 0);
    digest.Update("bc", 2);
    const char abc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_EQ(digest.Finish(), abc);
    EXPECT_EQ(Sha256Of("abc", 3), abc);
}

}  // namespace
