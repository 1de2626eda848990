#include "cineon/bs_struct.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "support/dpx_bytes.h"

namespace {

using testdata::with_fields_reversed;

// Bytes 0, 1, 2, ... of an `n`-byte record after walking `codes` over its
// first `extent` bytes; the bytes beyond `extent` are sentinels.
std::vector<uint8_t> walked(std::initializer_list<int> codes, size_t n, size_t extent) {
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = uint8_t(i);
    common::stack<int> description;
    for (int c : codes) description.append(c);
    common::bs_struct<char*> swap(reinterpret_cast<char*>(bytes.data()), &description, extent);
    return bytes;
}

std::vector<uint8_t> walked(std::initializer_list<int> codes, size_t n) { return walked(codes, n, n); }

// Bytes 0, 1, 2, ... with the listed fields reversed.
std::vector<uint8_t> expect(size_t n, const std::vector<std::pair<size_t, int>>& fields) {
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = uint8_t(i);
    return with_fields_reversed(bytes, fields);
}

TEST(BsStructTest, SingleFieldsPadToTheirAlignment) {
    EXPECT_EQ(walked({-1, -4}, 8), expect(8, {{4, 4}}));
    EXPECT_EQ(walked({-1, -2}, 4), expect(4, {{2, 2}}));
    EXPECT_EQ(walked({-2, -2, -4}, 8), expect(8, {{0, 2}, {2, 2}, {4, 4}}));
    EXPECT_EQ(walked({-1, -1, -1, -1, -4}, 8), expect(8, {{4, 4}}));
    EXPECT_EQ(walked({-1, -1, -4}, 8), expect(8, {{4, 4}}));
    // Codes that are not field codes count as single bytes.
    EXPECT_EQ(walked({7, -2}, 4), expect(4, {{2, 2}}));
}

TEST(BsStructTest, ArraysNeitherPadNorCount) {
    EXPECT_EQ(walked({-101, -1, 3, -4}, 8), expect(8, {{3, 4}}));
    EXPECT_EQ(walked({-1, -101, -2, 2, -2}, 8), expect(8, {{1, 2}, {3, 2}, {6, 2}}));
    EXPECT_EQ(walked({-101, -4, 2}, 8), expect(8, {{0, 4}, {4, 4}}));
}

TEST(BsStructTest, GroupsStepByRecordSizeWhateverTheCodesCover) {
    std::vector<std::pair<size_t, int>> firsts;
    for (size_t k = 0; k < 8; ++k) firsts.push_back({72 * k, 4});
    EXPECT_EQ(walked({-102, 72, 8, -4, -103}, 576), expect(576, firsts));
    // The field after the group starts at the group's end.
    EXPECT_EQ(walked({-102, 3, 2, -1, -103, -2}, 8), expect(8, {{6, 2}}));
    // A group of no records is skipped with its codes.
    EXPECT_EQ(walked({-102, 4, 0, -4, -103, -4}, 8), expect(8, {{0, 4}}));
}

TEST(BsStructTest, WalkStopsAtTheRecordEnd) {
    // Fields beyond the extent, or straddling it, are left untouched.
    EXPECT_EQ(walked({-101, -4, 4}, 12, 8), expect(12, {{0, 4}, {4, 4}}));
    EXPECT_EQ(walked({-2, -4, -4}, 12, 6), expect(12, {{0, 2}}));
    EXPECT_EQ(walked({-102, 6, 3, -4, -103}, 16, 10), expect(16, {{0, 4}, {6, 4}}));
    EXPECT_EQ(walked({-101, -1, 100, -4}, 8), expect(8, {}));
}

TEST(BsStructTest, MalformedDescriptionsThrow) {
    EXPECT_THROW(walked({-101, -3, 2}, 8), common::_throw_wrong_definition);
    EXPECT_THROW(walked({-101, -4}, 8), common::_throw_unexpected_termination);
    EXPECT_THROW(walked({-102, 4, 1, -4}, 8), common::_throw_unexpected_termination);
    EXPECT_THROW(walked({-102, 4}, 8), common::_throw_unexpected_termination);
}

TEST(BsStructTest, MissingDescriptionChangesNothing) {
    std::vector<uint8_t> bytes = {1, 2, 3, 4};
    common::bs_struct<uint32_t*> none(reinterpret_cast<uint32_t*>(bytes.data()), nullptr);
    common::stack<int> empty;
    common::bs_struct<uint32_t*> nothing(reinterpret_cast<uint32_t*>(bytes.data()), &empty);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2, 3, 4}));
}

}  // namespace
