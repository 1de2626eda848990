#include "common/stream.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/file.h"
#include "common/unicode.h"

namespace {

using common::stream;

// The text's bytes must match `expected`, and size/top must agree with them.
void expect_text(const stream& s, const std::string& expected) {
    EXPECT_EQ(std::string(s.c_str()), expected);
    if (expected.empty()) {
        EXPECT_EQ(s.data, nullptr);
        EXPECT_EQ(s.size, 0);
        return;
    }
    ASSERT_NE(s.data, nullptr);
    EXPECT_EQ(s.size, int32_t(expected.size() + 1));
    EXPECT_EQ(s.top, s.data + expected.size());
    EXPECT_EQ(*s.top, '\0');
    EXPECT_LE(s.top, s.last);
}

TEST(StreamTest, AssignAndFirstAppendAllocateExactly) {
    stream s;
    s.append("hello");
    expect_text(s, "hello");
    EXPECT_EQ(s.capacity(), 6);
    s.assign("hi");
    expect_text(s, "hi");
    EXPECT_EQ(s.capacity(), 3);
    s.assign("");
    expect_text(s, "");
    s.assign("x");
    s.assign(nullptr);
    expect_text(s, "");
}

TEST(StreamTest, AppendsAndInsertsMatchAStringModel) {
    stream s;
    std::string model;
    const char* pieces[] = {"a", "bc", "", "defgh", "ij", "klmnopqrstuv", "w"};
    unsigned seed = 7;
    for (int round = 0; round < 200; ++round) {
        seed = seed * 1103515245u + 12345u;
        const char* piece = pieces[(seed >> 8) % 7];
        int position = int((seed >> 16) % 40) - 5;
        if (round % 3 == 0) {
            s.insert(piece, position);
            size_t at = position < 0 ? 0 : size_t(position) > model.size() ? model.size() : size_t(position);
            model.insert(at, piece);
        } else {
            s.append(piece);
            model += piece;
        }
        ASSERT_EQ(std::string(s.c_str()), model) << "round " << round;
        ASSERT_EQ(s.size, int32_t(model.size() + (model.empty() ? 0 : 1)));
        ASSERT_LT(s.top, s.data + s.capacity());
    }
}

TEST(StreamTest, InsertPastTheEndAppendsAndIntoEmptyAssigns) {
    stream s;
    s.insert("mid", 4);
    expect_text(s, "mid");
    s.insert("end", 99);
    expect_text(s, "midend");
    s.insert(">", -3);
    expect_text(s, ">midend");
    s.insert(s.c_str(), 1);
    expect_text(s, ">>midendmidend");
}

TEST(StreamTest, SelfAppendCopiesTheTextFirst) {
    stream s("ab");
    s.append(s);
    s.append(s.c_str() + 1);
    expect_text(s, "ababbab");
}

TEST(StreamTest, IntegersAppendInDecimal) {
    stream s;
    for (int32_t v : {INT32_MIN, -12, 0, 7, INT32_MAX}) s.append(v), s.append(',');
    s.append(uint32_t(4294967295u));
    expect_text(s, "-2147483648,-12,0,7,2147483647,4294967295");
}

TEST(StreamTest, DoublesAppendNineFractionDigits) {
    stream s;
    for (double v : {1.5, -2.25, 0.0, -0.5, 65535.75, 4294967295.0})
        s.append(v), s.append(' ');
    expect_text(s, "1.500000000 -2.250000000 0.000000000 -0.500000000 65535.750000000 4294967295.000000000 ");
    // float(1.1) is 1.10000002384185791015625; times 1e9 in float is 100000024.
    stream noisy;
    noisy.append(1.1);
    expect_text(noisy, "1.100000024");
}

TEST(StreamTest, DoublesOutsideTheUnsignedRangeStayWellFormed) {
    const double nan = std::strtod("nan", nullptr);
    const double inf = std::strtod("inf", nullptr);
    stream s;
    s.append(1e20);
    s.append('|');
    s.append(-1e300);
    s.append('|');
    s.append(nan);
    s.append('|');
    s.append(-inf);
    expect_text(s, "4294967295.000000000|-4294967295.000000000|0.000000000|-4294967295.000000000");
}

TEST(StreamTest, EraseFollowsItsInRangeAndPastEndRules) {
    struct case_t {
        int from, to;
        const char* left;
    } cases[] = {
        {1, 2, "adef"},  {3, 1, "acdef"}, {3, 99, "ab"},    {0, 0, "bcdef"},  {5, 5, "abcde"},
        {-1, 2, "abcdef"}, {1, -1, "abcdef"}, {0, 5, ""},   {1, 99, ""},      {10, 99, "abcdef"},
        {6, 6, "abcde"},
    };
    for (const case_t& c : cases) {
        stream s("abcdef");
        s.erase(c.from, c.to);
        SCOPED_TRACE(testing::Message() << "erase(" << c.from << ", " << c.to << ")");
        expect_text(s, c.left);
    }
    stream empty;
    empty.erase(0, 3);
    expect_text(empty, "");
}

TEST(StreamTest, TruncateCutsOrEmpties) {
    stream s("abcdef");
    s.truncate(99);
    expect_text(s, "abcdef");
    s.truncate(3);
    expect_text(s, "ab");
    s.append("XYZ");
    expect_text(s, "abXYZ");
    s.truncate(1);
    expect_text(s, "");
}

TEST(StreamTest, CaseChangesTouchLettersOnly) {
    stream s("Scan_0001.Dpx \xE9");
    s.to_upper();
    expect_text(s, "SCAN_0001.DPX \xE9");
    s.to_lower();
    expect_text(s, "scan_0001.dpx \xE9");
}

TEST(StreamTest, AppendsPathsWideTextAndStreams) {
    stream s;
    common::file path("/tmp/x.dpx");
    common::file empty_path;
    s.append(path);
    s.append(empty_path);
    s.append(common::unicode(" \xC3\xA9\xE2\x82\xAC"));
    s.append(common::unicode());
    s.append(stream(" end"));
    expect_text(s, "/tmp/x.dpx \xC3\xA9\xE2\x82\xAC end");
}

TEST(StreamTest, CopiesAreIndependent) {
    stream a("one");
    stream b(a);
    b.append("two");
    stream c;
    c = b;
    c.to_upper();
    expect_text(a, "one");
    expect_text(b, "onetwo");
    expect_text(c, "ONETWO");
}

}  // namespace
