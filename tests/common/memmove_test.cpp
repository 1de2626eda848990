#include "common/memmove.h"

#include <gtest/gtest.h>

#include <string>

#include "support/tarvex_process.h"

namespace {

using testrun::stdout_of;

TEST(CheckedMemmoveTest, MovesOverlappingBytes) {
    char text[] = "abcdef";
    std::string out = stdout_of([&] {
        EXPECT_EQ(common::checked_memmove(text + 1, text, 4), text + 1);
    });
    EXPECT_STREQ(text, "aabcdf");
    EXPECT_EQ(out, "");
}

TEST(CheckedMemmoveTest, RefusalsPrintTheirMessagesInOrder) {
    char dst[4] = "xyz";
    const char src[4] = "abc";
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(common::checked_memmove(dst, src, 0), dst); }),
              "memmove with 0 Bytes\n");
    EXPECT_STREQ(dst, "xyz");
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(common::checked_memmove(nullptr, nullptr, 0), nullptr); }),
              "memmove with no destination\nmemmove with no source\nmemmove with 0 Bytes\n");
    EXPECT_EQ(stdout_of([&] { common::checked_memmove(nullptr, src, 5); }),
              "memmove with no destination\n");
    EXPECT_EQ(stdout_of([&] { common::checked_memmove(dst, nullptr, 5); }),
              "memmove with no source\n");
    EXPECT_STREQ(dst, "xyz");
}

}  // namespace
