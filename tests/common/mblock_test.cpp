#include "common/mblock.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using block = common::mblock<long>;

std::vector<long> g_released;
void record_release(long v) { g_released.push_back(v); }

std::vector<long> contents(const block& b) {
    return std::vector<long>(b.data, b.data + b.count);
}

TEST(MblockTest, AppendsGrowToOneThreeSevenFifteen) {
    block b;
    std::vector<int> caps;
    std::vector<long*> buffers;
    for (long i = 0; i < 9; ++i) {
        b.append(i);
        caps.push_back(b.capacity());
        EXPECT_EQ(b.top, b.data + i) << "top marks the last element after append " << i;
    }
    EXPECT_EQ(caps, (std::vector<int>{1, 3, 3, 7, 7, 7, 7, 15, 15}));
    EXPECT_EQ(contents(b), (std::vector<long>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(MblockTest, GrowthPutsTopAtTheInsertionPoint) {
    block b;
    for (long i = 0; i < 3; ++i) b.append(i);  // capacity 3, full
    b.insert(9, 1);
    EXPECT_EQ(b.capacity(), 7);
    EXPECT_EQ(b.top, b.data + 1);
    EXPECT_EQ(contents(b), (std::vector<long>{0, 9, 1, 2}));
    // Later inserts still land where they are asked to and never overrun.
    for (long i = 10; i < 20; ++i) b.append(i);
    EXPECT_EQ(b.count, 14);
    EXPECT_LE(b.count, b.capacity());
    EXPECT_EQ(b.data[3], 2);
    EXPECT_EQ(b.data[13], 19);
}

TEST(MblockTest, BadIndicesThrowAndChangeNothing) {
    block b;
    b.append(5);
    b.append(6);
    long* before = b.data;
    EXPECT_THROW(b.insert(1, -1), common::_throw_out_of_range);
    EXPECT_THROW(b.insert(1, 3), common::_throw_out_of_range);
    EXPECT_THROW(b.remove(2), common::_throw_out_of_range);
    EXPECT_THROW(b.remove(-1), common::_throw_out_of_range);
    EXPECT_EQ(b.data, before);
    EXPECT_EQ(contents(b), (std::vector<long>{5, 6}));
    block empty;
    EXPECT_THROW(empty.remove(0), common::_throw_out_of_range);
    EXPECT_EQ(empty.data, nullptr);
}

TEST(MblockTest, ShrinksOnlyPastTheHalfEmptyMark) {
    block b;
    for (long i = 0; i < 8; ++i) b.append(i);  // capacity 15, 7 unused
    ASSERT_EQ(b.capacity(), 15);
    b.remove(7);  // count 8, unused 7: not more than half empty yet
    EXPECT_EQ(b.capacity(), 15);
    b.remove(0);  // count 7 < unused 8: shrink to exactly full
    EXPECT_EQ(b.count, 6);
    EXPECT_EQ(b.capacity(), 6);
    EXPECT_EQ(b.top, b.last);
    EXPECT_EQ(contents(b), (std::vector<long>{1, 2, 3, 4, 5, 6}));
    b.append(7);  // full again: grows to 2 * 6 + 1
    EXPECT_EQ(b.capacity(), 13);
    EXPECT_EQ(contents(b), (std::vector<long>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(MblockTest, RemovingTheLastElementFreesTheBuffer) {
    block b;
    b.append(1);
    b.remove(0);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.first, nullptr);
    EXPECT_EQ(b.top, nullptr);
    EXPECT_EQ(b.last, nullptr);
    EXPECT_EQ(b.count, 0);
    b.insert(4, 0);
    ASSERT_NE(b.data, nullptr);
    EXPECT_EQ(b.capacity(), 1);
    EXPECT_EQ(b.data[0], 4);
}

TEST(MblockTest, ReleaseRunsOncePerElementInIndexOrder) {
    g_released.clear();
    {
        block b(record_release);
        for (long i = 10; i < 15; ++i) b.append(i);
        b.remove(2);  // releases 12
        EXPECT_EQ(g_released, (std::vector<long>{12}));
    }
    EXPECT_EQ(g_released, (std::vector<long>{12, 10, 11, 13, 14}));
}

TEST(MblockTest, CapacityLimitThrowsBeforeTouchingTheBuffer) {
    block b;
    b.append(1);
    // An insert far beyond the end is refused as out of range, never grown into.
    EXPECT_THROW(b.insert(2, 0x3fffffff), common::_throw_out_of_range);
    EXPECT_EQ(contents(b), (std::vector<long>{1}));
}

}  // namespace
