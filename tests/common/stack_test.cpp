#include "common/stack.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <algorithm>
#include <vector>

namespace {

int greater_int(const int* a, const int* b) { return *a > *b; }

TEST(StackTest, IteratorChecksBoundsAndBuffer) {
    common::stack<int> never;
    EXPECT_THROW(*never.begin(), common::_throw_empty_allocation);

    common::stack<int> s;
    for (int i = 0; i < 3; ++i) s.append(i * 10);
    EXPECT_EQ(*s.at(2), 20);
    EXPECT_THROW(*s.at(3), common::_throw_out_of_range);
    EXPECT_THROW(*s.at(-1), common::_throw_out_of_range);
    EXPECT_EQ(s.at(2) - s.at(0), 2);
    EXPECT_EQ(s.at(1) - s.at(1), 0);
    EXPECT_THROW(s.end() - s.begin(), common::_throw_out_of_range);

    EXPECT_THROW(s.insert(5, -1), common::_throw_out_of_range);
    EXPECT_EQ(s.count, 3);
    EXPECT_EQ(s[0], 0);
    EXPECT_EQ(s[1], 10);
}

TEST(StackTest, SortsIntegersIncludingSortedAndReversedInput) {
    std::vector<std::vector<int>> inputs = {
        {5, 3, 9, 1, 7, 3, 0, -4}, {1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}, {2, 2, 2, 1, 1}};
    for (const auto& in : inputs) {
        common::stack<int> s;
        for (int v : in) s.append(v);
        s.sort(greater_int);
        std::vector<int> got(s.data, s.data + s.count);
        std::vector<int> want = in;
        std::sort(want.begin(), want.end());
        EXPECT_EQ(got, want);
    }
}

TEST(StackTest, SortOfOneElementTouchesNothing) {
    common::stack<int> s;
    s.append(42);
    int* buffer = s.data;
    s.sort(greater_int);
    EXPECT_EQ(s.data, buffer);
    EXPECT_EQ(s[0], 42);
}

TEST(CompareCstringsTest, CaseInsensitiveWithPrefixesFirst) {
    char b[] = "b", A[] = "A", a2[] = "a2", a[] = "a";
    common::stack<char*> s;
    for (char* p : {b, A, a2, a}) s.append(p);
    s.sort(common::compare_cstrings);
    std::vector<std::string> got;
    for (int i = 0; i < s.count; ++i) got.push_back(s[i]);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_TRUE((got[0] == "A" && got[1] == "a") || (got[0] == "a" && got[1] == "A"));
    EXPECT_EQ(got[2], "a2");
    EXPECT_EQ(got[3], "b");

    char x[] = "shot10", y[] = "SHOT9", z[] = "shot";
    char *px = x, *py = y, *pz = z;
    EXPECT_EQ(common::compare_cstrings(&py, &px), 1);  // '9' > '1'
    EXPECT_EQ(common::compare_cstrings(&px, &py), 0);
    EXPECT_EQ(common::compare_cstrings(&px, &pz), 1);  // longer after its prefix
    EXPECT_EQ(common::compare_cstrings(&pz, &px), 0);
}

}  // namespace
