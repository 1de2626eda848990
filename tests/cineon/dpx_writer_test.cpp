#include "cineon/dpx_writer.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"
#include "cineon/dpx_reader.h"

namespace {

using testdata::f32_at;
using testdata::u32_at;
using testdata::text_at;
using testdata::u16_at;
using testrun::scratch_dir;

class DpxWriterTest : public ::testing::Test {
protected:
    scratch_dir dir;
    smptedpx_writer writer;
    std::string path = dir.path() + "/out.dpx";

    void SetUp() override {
        writer.width = 2048;
        writer.height = 1556;
        writer.data_offset = 8192;
        writer.channels = 3;
        writer.descriptor = 50;
        writer.bit_depth = 10;
        writer.ref_low = 64;
        writer.ref_high = 940;
        writer.time_code = 0x01020304u;
        writer.frame_rate = 25.0f;
        writer.gamma = 2.2f;
        writer.black_level = 12.0f;
        writer.black_gain = 0.5f;
        writer.break_point = 3.0f;
        writer.white_level = 900.0f;
    }
};

TEST_F(DpxWriterTest, HeaderFieldsAtTheirOffsets) {
    ASSERT_EQ(writer.open(path.c_str(), true, true), codec_ok);
    writer.close();
    std::vector<uint8_t> b = testdata::read_file(path);
    ASSERT_EQ(b.size(), 2048u);
    const std::pair<size_t, uint32_t> words[] = {
        {0, dpx_magic}, {4, 8192},     {16, 12754944}, {24, 1664},    {28, 384},   {32, 6144},
        {660, 0xFFFFFFFF}, {772, 2048}, {776, 1556},   {1424, 2048},  {1428, 1556}, {784, 64},
        {792, 940},     {808, 8192},   {1628, 1000},   {1632, 1000},  {1920, 0x01020304}};
    for (auto [offset, value] : words) EXPECT_EQ(u32_at(b, offset), value) << "offset " << offset;
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + 8, b.begin() + 16), (std::vector<uint8_t>{'v', '1', '.', '0', 0, 0, 0, 0}));
    EXPECT_TRUE(std::regex_match(text_at(b, 136, 24), std::regex(R"(\d{4}:\d\d:\d\d:\d\d:\d\d:\d\d.*)")))
        << text_at(b, 136, 24);
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + 136, b.begin() + 160), std::vector<uint8_t>(b.begin() + 1532, b.begin() + 1556));
    EXPECT_EQ(text_at(b, 160, 100), "Quillmoor.filmframecodec");
    EXPECT_EQ(text_at(b, 460, 200).size(), 45u);
    for (auto [offset, value] : {std::pair<size_t, int>{768, 0}, {770, 1}, {804, 1}})
        EXPECT_EQ(u16_at(b, offset), value) << "offset " << offset;
    for (auto [offset, value] : {std::pair<size_t, int>{800, 50}, {801, 2}, {803, 10}})
        EXPECT_EQ(b[offset], value) << "offset " << offset;
    // Black level (1952) is never written.
    const std::pair<size_t, float> reals[] = {{796, 2.048f}, {1724, 25.0f}, {1940, 25.0f}, {1948, 2.2f},
                                              {1952, 0.0f},  {1956, 0.5f},  {1960, 3.0f},  {1964, 900.0f}};
    for (auto [offset, value] : reals) EXPECT_FLOAT_EQ(f32_at(b, offset), value) << "offset " << offset;

    smptedpx_writer log;
    log.copy_description(writer);
    log.is_log = 1;
    log.packed = 1;
    log.data_offset = 4096;
    ASSERT_EQ(log.open(path.c_str(), true, true), codec_ok);
    b = testdata::read_file(path);
    EXPECT_EQ(b[801], 3);
    EXPECT_EQ(u16_at(b, 804), 0);
    for (auto [offset, value] :
         {std::pair<size_t, uint32_t>{4, 4096}, {808, 4096}, {16, 4096 + 2048 * 1556 * 4}, {32, 2048}})
        EXPECT_EQ(u32_at(b, offset), value) << "offset " << offset;
}

TEST_F(DpxWriterTest, RefusesOnlyWhenChannelsAndDescriptorAreBothWrong) {
    struct combo { uint16_t channels; uint32_t descriptor; int result; };
    for (combo c : {combo{5, 50, codec_ok}, combo{3, 7, codec_ok}, combo{5, 7, codec_unsupported}}) {
        smptedpx_writer w;
        w.copy_description(writer);
        w.channels = c.channels;
        w.descriptor = c.descriptor;
        EXPECT_EQ(w.open(path.c_str(), true, true), c.result) << c.channels << " " << c.descriptor;
    }
}

TEST_F(DpxWriterTest, ForeignOrderSwapsIntegersOnly) {
    ASSERT_EQ(writer.open(path.c_str(), true, false), codec_ok);
    EXPECT_EQ(writer.swap_bytes, 1u);
    std::vector<uint8_t> b = testdata::read_file(path);
    EXPECT_EQ(u32_at(b, 0), dpx_magic_swapped);
    EXPECT_EQ(u32_at(b, 16), __builtin_bswap32(12754944u));
    EXPECT_EQ(u16_at(b, 770), __builtin_bswap16(1));
    EXPECT_FLOAT_EQ(f32_at(b, 1948), 2.2f);

    SMPTE268M_Header_t h;
    dpx_default_header(h);
    ASSERT_EQ(writer.write_header_bytes(&h, sizeof h), codec_ok);
    EXPECT_EQ(h.magic, dpx_magic_swapped) << "the caller's buffer is left swapped";
    EXPECT_EQ(u32_at(testdata::read_file(path), 4), __builtin_bswap32(8192u));
    EXPECT_EQ(writer.write_header_bytes(&h, 2047), codec_bad_argument);
}

TEST_F(DpxWriterTest, RoundTripsInBothByteOrders) {
    for (bool host_order : {true, false}) {
        smptedpx_writer w;
        w.copy_description(writer);
        w.width = 3;
        w.height = 2;
        w.data_offset = 4096;
        w.is_log = 1;
        const uint32_t pixels[6] = {0xFFC00000u, 0x003FF000u, 0x00000FFCu, 0x12345678u, 0, 0xFFFFFFFCu};
        std::vector<uint32_t> stored(pixels, pixels + 6);
        if (!host_order) reverse_words(stored.data(), 24);
        ASSERT_EQ(w.open(path.c_str(), true, host_order), codec_ok);
        ASSERT_EQ(w.write_image(stored.data(), 24), codec_ok);
        w.close();

        smptedpx_reader r;
        ASSERT_EQ(r.open(path.c_str(), true), codec_ok);
        EXPECT_EQ(r.swap_bytes, host_order ? 0u : 1u);
        EXPECT_EQ(r.width, 3u);
        EXPECT_EQ(r.height, 2u);
        EXPECT_EQ(r.descriptor, 50u);
        EXPECT_EQ(r.channels, 3);
        EXPECT_EQ(r.bit_depth, 10);
        EXPECT_EQ(r.is_log, 1u);
        EXPECT_EQ(r.data_offset, 4096u);
        EXPECT_EQ(r.ref_low, 64);
        EXPECT_EQ(r.ref_high, 940);
        EXPECT_EQ(r.time_code, 0x01020304u);
        EXPECT_FLOAT_EQ(r.pixel_aspect, 1.0f);
        EXPECT_FLOAT_EQ(r.frame_rate, 25.0f);
        EXPECT_FLOAT_EQ(r.gamma, 2.2f);
        uint32_t back[6] = {};
        ASSERT_EQ(r.read_image(back, sizeof back), codec_ok);
        EXPECT_EQ(std::vector<uint32_t>(back, back + 6), std::vector<uint32_t>(pixels, pixels + 6));
    }
}

TEST_F(DpxWriterTest, SizesThatDoNotFitAreRefused) {
    writer.width = 0xFFFFFFFFu;
    writer.height = 0xFFFFFFFFu;
    EXPECT_EQ(writer.open(path.c_str(), true, true), codec_unsupported);
    writer.width = 0x8000;
    writer.height = 0x8000;
    EXPECT_EQ(writer.write_header(), codec_unsupported) << "4 GiB of image data overflows file_size";
    writer.close();
    uint8_t h[2048] = {};
    EXPECT_EQ(writer.write_header(), codec_not_open);
    EXPECT_EQ(writer.write_header_bytes(h, 2048), codec_not_open);
    EXPECT_EQ(writer.write_image(h, 4), codec_not_open);
}

}  // namespace
