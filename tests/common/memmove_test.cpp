#include "common/memmove.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

// Runs `body` with descriptor 1 sent to a temporary file and returns what it wrote.
template <class F>
std::string capture_stdout(F body) {
    std::fflush(stdout);
    FILE* tmp = std::tmpfile();
    int saved = dup(1);
    dup2(fileno(tmp), 1);
    body();
    dup2(saved, 1);
    close(saved);
    std::string out;
    std::rewind(tmp);
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, tmp)) > 0) out.append(buf, n);
    std::fclose(tmp);
    return out;
}

TEST(CheckedMemmoveTest, MovesOverlappingBytes) {
    char text[] = "abcdef";
    std::string out = capture_stdout([&] {
        EXPECT_EQ(common::checked_memmove(text + 1, text, 4), text + 1);
    });
    EXPECT_STREQ(text, "aabcdf");
    EXPECT_EQ(out, "");
}

TEST(CheckedMemmoveTest, RefusalsPrintTheirMessagesInOrder) {
    char dst[4] = "xyz";
    const char src[4] = "abc";
    EXPECT_EQ(capture_stdout([&] { EXPECT_EQ(common::checked_memmove(dst, src, 0), dst); }),
              "memmove with 0 Bytes\n");
    EXPECT_STREQ(dst, "xyz");
    EXPECT_EQ(capture_stdout([&] { EXPECT_EQ(common::checked_memmove(nullptr, nullptr, 0), nullptr); }),
              "memmove with no destination\nmemmove with no source\nmemmove with 0 Bytes\n");
    EXPECT_EQ(capture_stdout([&] { common::checked_memmove(nullptr, src, 5); }),
              "memmove with no destination\n");
    EXPECT_EQ(capture_stdout([&] { common::checked_memmove(dst, nullptr, 5); }),
              "memmove with no source\n");
    EXPECT_STREQ(dst, "xyz");
}

}  // namespace
