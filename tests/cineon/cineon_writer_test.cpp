#include "cineon/cineon_writer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::f32_at;
using testdata::u32_at;
using testrun::scratch_dir;

class CineonWriterTest : public ::testing::Test {
protected:
    scratch_dir dir;
    kodakcineon_writer writer;
    std::string path = dir.path() + "/out.cin";

    void SetUp() override {
        writer.width = 2048;
        writer.height = 1556;
        writer.data_offset = 32256;
        writer.bit_depth = 10;
    }
};

TEST_F(CineonWriterTest, HeaderInHostOrderEvenWhenAskedToSwap) {
    for (bool host_order : {true, false}) {
        ASSERT_EQ(writer.open(path.c_str(), true, host_order), codec_ok);
        EXPECT_EQ(writer.swap_bytes, host_order ? 0u : 1u);
        writer.close();
        std::vector<uint8_t> b = testdata::read_file(path);
        ASSERT_EQ(b.size(), 2048u);
        const std::pair<size_t, uint32_t> words[] = {
            {0, cineon_magic}, {4, 32256}, {8, 1024}, {12, 1024}, {16, 30208}, {20, 12779008}};
        for (auto [offset, value] : words) EXPECT_EQ(u32_at(b, offset), value) << "offset " << offset;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[24])), "V4.5");
        for (auto [offset, value] : {std::pair<size_t, int>{193, 3}, {681, 5}, {143, 0}, {155, 0}})
            EXPECT_EQ(b[offset], value) << "offset " << offset;
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + 132, b.begin() + 156),
                  std::vector<uint8_t>(b.begin() + 820, b.begin() + 844));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[844])), "Workstation");
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&b[908])), "(BigEndian) BSD Veltrix");
        for (size_t k = 0; k < 3; ++k) {
            size_t c = 196 + 28 * k;
            EXPECT_EQ(b[c], 0);
            EXPECT_EQ(b[c + 1], k);
            EXPECT_EQ(b[c + 2], 10);
            EXPECT_EQ(u32_at(b, c + 4), 2048u);
            EXPECT_EQ(u32_at(b, c + 8), 1556u);
            EXPECT_EQ(f32_at(b, c + 12), 1149222912.0f);
            EXPECT_FLOAT_EQ(f32_at(b, c + 16), 2.046f);
        }
        EXPECT_EQ(std::vector<uint8_t>(b.begin() + 196 + 84, b.begin() + 420), std::vector<uint8_t>(140, 0));
        for (size_t off : {420, 424, 428, 432, 436, 440, 444, 448, 972, 976, 980})
            EXPECT_EQ(f32_at(b, off), 4294967296.0f) << off;
    }
}

TEST_F(CineonWriterTest, RawHeaderAndImageAreWrittenUnchanged) {
    ASSERT_EQ(writer.open(path.c_str(), false, false), codec_ok);
    Kodak_Header_t h;
    cineon_default_header(h);
    h.image_offset = 2048;
    ASSERT_EQ(writer.write_header_bytes(&h, sizeof h), codec_ok);
    EXPECT_EQ(h.magic, cineon_magic);
    writer.data_offset = 2048;
    const uint32_t words[2] = {0x11223344u, 0xA0B0C0D0u};
    ASSERT_EQ(writer.write_image(words, sizeof words), codec_ok);
    EXPECT_EQ(writer.write_header_bytes(nullptr, 2048), codec_bad_argument);
    std::vector<uint8_t> b = testdata::read_file(path);
    ASSERT_EQ(b.size(), 2056u);
    EXPECT_EQ(u32_at(b, 0), cineon_magic);
    EXPECT_EQ(u32_at(b, 4), 2048u);
    EXPECT_EQ(u32_at(b, 2048), words[0]);
    EXPECT_EQ(u32_at(b, 2052), words[1]);
}

}  // namespace
