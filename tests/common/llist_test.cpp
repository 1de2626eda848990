#include "common/llist.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<long> g_released;
void record(long v) { g_released.push_back(v); }
void record_negated(long v) { g_released.push_back(-v); }

std::vector<long> forward(common::llist<long>& l) {
    std::vector<long> out;
    for (auto* e = l.head; e; e = e->next) out.push_back(*e->cell);
    return out;
}

std::vector<long> backward(common::llist<long>& l) {
    std::vector<long> out;
    for (auto* e = l.tail; e; e = e->prev) out.push_back(*e->cell);
    return out;
}

common::llist<long>::iterator at(common::llist<long>& l, int n) {
    auto it = l.begin();
    while (n-- > 0) ++it;
    return it;
}

TEST(LlistTest, UnlinksHeadTailAndMiddle) {
    g_released.clear();
    common::llist<long> l(record);
    for (long v = 1; v <= 5; ++v) l.append(v);
    l.erase(at(l, 2));  // middle
    EXPECT_EQ(forward(l), (std::vector<long>{1, 2, 4, 5}));
    EXPECT_EQ(backward(l), (std::vector<long>{5, 4, 2, 1}));
    l.erase(at(l, 0));  // head
    EXPECT_EQ(forward(l), (std::vector<long>{2, 4, 5}));
    EXPECT_EQ(l.head->prev, nullptr);
    l.erase(at(l, 2));  // tail
    EXPECT_EQ(backward(l), (std::vector<long>{4, 2}));
    EXPECT_EQ(l.tail->next, nullptr);
    EXPECT_EQ(l.count, 2);
    EXPECT_EQ(g_released, (std::vector<long>{3, 1, 5}));
    l.erase(l.end());  // a null element is ignored
    EXPECT_EQ(l.count, 2);
}

TEST(LlistTest, ErasingTheOnlyElementEmptiesTheList) {
    common::llist<long> l;
    l.append(7);
    l.erase(l.begin());
    EXPECT_EQ(l.head, nullptr);
    EXPECT_EQ(l.tail, nullptr);
    EXPECT_EQ(l.count, 0);
}

TEST(LlistTest, AppendKeepsItsOwnCopyAndReleasesInListOrder) {
    g_released.clear();
    {
        common::llist<long> l(record);
        long value = 11;
        long* cell = l.append(value);
        value = 99;
        EXPECT_EQ(*cell, 11);
        l.append(12, record_negated);  // its own callback wins over the default
        l.append(13);
    }
    EXPECT_EQ(g_released, (std::vector<long>{11, -12, 13}));
}

}  // namespace
