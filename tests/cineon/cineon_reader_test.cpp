#include "cineon/cineon_reader.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::byte_image;
using testdata::with_fields_reversed;
using testdata::host_word;
using testrun::scratch_dir;

// A Cineon file with `count` 10-bit channels of `width` x `height`, the
// given packing and data at 2048.
byte_image cineon_file(bool big, uint8_t count, uint8_t packing, uint32_t width, uint32_t height,
                       size_t data_bytes = 0) {
    byte_image f(2048 + data_bytes, big);
    f.u32(0, 0x802A5FD7u);
    f.u32(4, 2048);
    f.u8(193, count);
    f.u8(681, packing);
    for (size_t k = 0; k < count && k < 8; ++k) {
        f.u8(196 + 28 * k + 2, 10);
        f.u32(196 + 28 * k + 4, width);
        f.u32(196 + 28 * k + 8, height);
    }
    return f;
}

// Every integer field of the Cineon header with its width.
std::vector<std::pair<size_t, int>> cineon_integer_fields() {
    std::vector<std::pair<size_t, int>> f;
    for (size_t off : {0, 4, 8, 12, 16, 20, 684, 688, 712, 716, 1028, 1032, 1068}) f.push_back({off, 4});
    for (size_t k = 0; k < 8; ++k) {
        f.push_back({196 + 28 * k + 4, 4});
        f.push_back({196 + 28 * k + 8, 4});
    }
    return f;
}

class CineonReaderTest : public ::testing::Test {
protected:
    scratch_dir dir;

    int load(kodakcineon_reader& r, const byte_image& f) { return r.open(dir.write("f.cin", f.data).c_str(), true); }
};

TEST_F(CineonReaderTest, HeaderBytesSwapOnlyIntegerFields) {
    for (bool big : {true, false}) {
        byte_image f(2048, big);
        f.noise(4, 2048);
        f.u32(0, 0x802A5FD7u);
        kodakcineon_reader r;
        ASSERT_EQ(r.open(dir.write("k.cin", f.data).c_str(), false), codec_ok);
        std::vector<uint8_t> header(2048);
        ASSERT_EQ(r.read_header_bytes(header.data(), 2048), codec_ok);
        EXPECT_EQ(r.swap_bytes, f.foreign() ? 1u : 0u);
        EXPECT_EQ(header, f.foreign() ? with_fields_reversed(f.data, cineon_integer_fields()) : f.data);
        EXPECT_EQ(host_word(header.data()), cineon_magic);
    }
}

TEST_F(CineonReaderTest, HeaderFillsTheDescription) {
    for (bool big : {true, false}) {
        byte_image f = cineon_file(big, 4, 0, 1828, 1332);
        f.u8(196 + 28 * 3 + 2, 8);  // an 8-bit fourth channel reads as 10-bit
        f.u32(4, 4096);
        f.f32(980, 1.7f);
        kodakcineon_reader r;
        ASSERT_EQ(load(r, f), codec_ok);
        EXPECT_EQ(r.width, 1828u);
        EXPECT_EQ(r.height, 1332u);
        EXPECT_EQ(r.bit_depth, 10);
        EXPECT_EQ(r.data_offset, 4096u);
        EXPECT_EQ(r.is_log, 1u);
        EXPECT_EQ(r.packed, 1u);
        EXPECT_EQ(r.ref_low, 95);
        EXPECT_EQ(r.ref_high, 685);
        EXPECT_EQ(r.channels, 0) << "the channel count is not copied";
        EXPECT_EQ(r.descriptor, 0u);
    }
}

TEST_F(CineonReaderTest, ChannelPackingAndInterleaveRules) {
    struct layout { const char* what; uint8_t count, packing; std::function<void(byte_image&)> change; int result; };
    const std::vector<layout> cases = {
        {"1 channel packing 3", 1, 3, nullptr, codec_ok},
        {"3 channels packing 5", 3, 5, nullptr, codec_ok},
        {"4 channels packing 0", 4, 0, nullptr, codec_ok},
        {"2 channels", 2, 5, nullptr, codec_unsupported},
        {"negative count", 0xFF, 5, nullptr, codec_unsupported},
        {"4 channels packing 3", 4, 3, nullptr, codec_unsupported},
        {"3 channels packing 0", 3, 0, nullptr, codec_unsupported},
        {"packing 1", 3, 1, nullptr, codec_unsupported},
        {"interleave 1", 3, 5, [](byte_image& f) { f.u8(680, 1); }, codec_unsupported},
        {"8-bit second channel", 3, 5, [](byte_image& f) { f.u8(196 + 28 + 2, 8); }, codec_unsupported},
        {"bad magic", 3, 5, [](byte_image& f) { f.u32(0, 0x802A5FD6u); }, codec_bad_magic},
        {"short header", 3, 5, [](byte_image& f) { f.data.resize(100); }, codec_io},
    };
    for (const layout& c : cases) {
        byte_image f = cineon_file(true, c.count, c.packing, 8, 8);
        if (c.change) c.change(f);
        kodakcineon_reader r;
        EXPECT_EQ(load(r, f), c.result) << c.what;
        EXPECT_EQ(r.header_loaded, c.result == codec_ok ? 1u : 0u) << c.what;
    }
}

TEST_F(CineonReaderTest, ImageReadsAsStoredInHostOrder) {
    for (bool big : {true, false}) {
        byte_image f = cineon_file(big, 3, 5, 2, 1, 8);
        f.u32(2048, 0xFFC00004u);
        f.u32(2052, 0x12345678u);
        kodakcineon_reader r;
        ASSERT_EQ(load(r, f), codec_ok);
        uint32_t out[2] = {};
        EXPECT_EQ(r.read_image(out, 4), codec_bad_argument);
        ASSERT_EQ(r.read_image(out, 8), codec_ok);
        EXPECT_EQ(out[0], 0xFFC00004u);
        EXPECT_EQ(out[1], 0x12345678u);
        // 8-bit data is never expanded: the caller must read it as stored.
        r.bit_depth = 8;
        EXPECT_EQ(r.read_image(out, 8), codec_unsupported);
        r.expand_to_10bit = 0;
        EXPECT_EQ(r.read_image(out, 8), codec_ok);
    }
}

}  // namespace
