// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>

#include "common/ErrnoName.h"

namespace {

using common::ErrnoName;
using common::ErrnoValue;

TEST(ErrnoName, IsTheHeadersName) {
    EXPECT_EQ(ErrnoName(EIO), "EIO");
    EXPECT_EQ(ErrnoName(ENXIO), "ENXIO");
    EXPECT_EQ(ErrnoName(4000), "4000");
}

TEST(ErrnoValue, KnowsEveryName) {
    EXPECT_EQ(ErrnoValue("EPERM"), EPERM);
    EXPECT_EQ(ErrnoValue("EHWPOISON"), EHWPOISON);
    for (int error = 1; error <= EHWPOISON; ++error) {
        const std::string name = ErrnoName(error);
        if (name[0] == 'E') {
            EXPECT_EQ(ErrnoValue(name), error) << name;
        }
    }
}

TEST(ErrnoValue, KnowsSecondNames) {
    EXPECT_EQ(ErrnoValue("EWOULDBLOCK"), EWOULDBLOCK);
    EXPECT_EQ(ErrnoValue("ENOTSUP"), ENOTSUP);
    EXPECT_EQ(ErrnoValue("EDEADLOCK"), EDEADLK);
}

TEST(ErrnoValue, IsNothingForOtherTexts) {
    EXPECT_EQ(ErrnoValue(""), std::nullopt);
    EXPECT_EQ(ErrnoValue("EIOX"), std::nullopt);
    EXPECT_EQ(ErrnoValue("eio"), std::nullopt);
}

}  // namespace
