#include "cineon/dpx_reader.h"

#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::byte_image;
using testdata::with_fields_reversed;
using testdata::host_word;
using testdata::dpx_file;
using testdata::dpx_test_offset;
using testrun::scratch_dir;

class DpxReaderTest : public ::testing::Test {
protected:
    scratch_dir dir;
    smptedpx_reader reader;

    // Saves `file` and opens the reader on it; returns read_header's result.
    int load(const byte_image& file) {
        std::string path = dir.write("frame.dpx", file.data);
        return reader.open(path.c_str(), true);
    }
};

TEST_F(DpxReaderTest, HeaderBytesSwapOnlyIntegerFields) {
    for (bool big : {true, false}) {
        byte_image f(2048, big);
        f.noise(4, 2048);
        f.text(0, big ? "SDPX" : "XPDS");
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write(big ? "be.dpx" : "le.dpx", f.data).c_str(), false), codec_ok);
        std::vector<uint8_t> header(2048);
        ASSERT_EQ(r.read_header_bytes(header.data(), 2048), codec_ok);
        EXPECT_EQ(r.swap_bytes, f.foreign() ? 1u : 0u);
        EXPECT_EQ(header, f.foreign() ? with_fields_reversed(f.data, testdata::dpx_swapped_fields()) : f.data)
            << (big ? "big-endian" : "little-endian");
        EXPECT_EQ(host_word(header.data()), dpx_magic);
    }
}

TEST_F(DpxReaderTest, HeaderFillsTheDescription) {
    for (bool big : {true, false}) {
        byte_image f = dpx_file(big, 2048, 1556, 51, 10, 1, 16);
        f.u8(801, 1);
        f.u32(784, 64);
        f.u32(792, 940);
        f.u32(1428, 1500);
        f.u32(1628, 4);
        f.u32(1632, 3);
        f.u32(1920, 0xFFFFFFFFu);
        f.f32(1724, 23.976f);
        f.f32(1948, 1.7f);
        f.f32(1956, 0.25f);
        f.f32(1964, 700.0f);
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("desc.dpx", f.data).c_str(), true), codec_ok);
        EXPECT_EQ(r.width, 2048u);
        EXPECT_EQ(r.height, 1500u);
        EXPECT_EQ(r.descriptor, 51u);
        EXPECT_EQ(r.channels, 4);
        EXPECT_EQ(r.bit_depth, 10);
        EXPECT_EQ(r.packed, 0u);
        EXPECT_EQ(r.is_log, 1u);
        EXPECT_EQ(r.ref_low, 64);
        EXPECT_EQ(r.ref_high, 940);
        EXPECT_EQ(r.data_offset, dpx_test_offset);
        EXPECT_EQ(r.time_code, 0x7F7F7F3Fu);
        EXPECT_FLOAT_EQ(r.pixel_aspect, 4.0f / 3.0f);
        EXPECT_FLOAT_EQ(r.frame_rate, 23.976f);
        EXPECT_FLOAT_EQ(r.gamma, 1.7f);
        EXPECT_FLOAT_EQ(r.black_gain, 0.25f);
        EXPECT_FLOAT_EQ(r.white_level, 700.0f);
    }
}

TEST_F(DpxReaderTest, OrientationCodesSetTheFlags) {
    // transposed, mirror_x, flip_y for codes 0-7.
    const unsigned flags[8][3] = {{0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1},
                                  {1, 0, 0}, {1, 0, 1}, {1, 1, 1}, {1, 1, 0}};
    for (uint16_t code = 0; code < 8; ++code) {
        byte_image f = dpx_file(true, 4, 4);
        f.u16(768, code);
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("o.dpx", f.data).c_str(), true), codec_ok);
        EXPECT_EQ(r.transposed, flags[code][0]) << code;
        EXPECT_EQ(r.mirror_x, flags[code][1]) << code;
        EXPECT_EQ(r.flip_y, flags[code][2]) << code;
    }
}

TEST_F(DpxReaderTest, OriginalSizeAndFrameRateFallbacks) {
    struct size_case { uint32_t orig, expected; };
    for (size_case c : {size_case{0, 640}, size_case{0xFFFFFFFFu, 640}, size_case{720, 720}}) {
        byte_image f = dpx_file(false, 640, 480);
        f.u32(1424, c.orig);
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("s.dpx", f.data).c_str(), true), codec_ok);
        EXPECT_EQ(r.width, c.expected);
        EXPECT_EQ(r.height, 480u);
    }
    struct rate_case { float film, tv, expected; };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (rate_case c : {rate_case{0.0f, 25.0f, 25.0f}, rate_case{200.0f, 200.0f, 24.0f},
                        rate_case{1.0f, 30.0f, 1.0f}, rate_case{101.0f, 100.5f, 100.5f},
                        rate_case{nan, nan, 24.0f}}) {
        byte_image f = dpx_file(false, 4, 4);
        f.f32(1724, c.film);
        f.f32(1940, c.tv);
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("r.dpx", f.data).c_str(), true), codec_ok);
        EXPECT_FLOAT_EQ(r.frame_rate, c.expected) << c.film << " / " << c.tv;
    }
}

TEST_F(DpxReaderTest, RefusesHeadersOneByOne) {
    struct refusal { const char* what; std::function<void(byte_image&)> change; int result; };
    const std::vector<refusal> cases = {
        {"encrypted", [](byte_image& f) { f.u32(660, 0); }, codec_bad_header},
        {"two elements", [](byte_image& f) { f.u16(770, 2); }, codec_bad_header},
        {"packing 2", [](byte_image& f) { f.u16(804, 2); }, codec_bad_header},
        {"run-length", [](byte_image& f) { f.u16(806, 1); }, codec_bad_header},
        {"orientation 8", [](byte_image& f) { f.u16(768, 8); }, codec_bad_header},
        {"12-bit", [](byte_image& f) { f.u8(803, 12); }, codec_bad_header},
        {"descriptor 52", [](byte_image& f) { f.u8(800, 52); }, codec_bad_header},
        {"10-bit packed", [](byte_image& f) { f.u16(804, 0); }, codec_bad_header},
        {"data inside the generic header", [](byte_image& f) { f.u32(808, 1663); }, codec_bad_header},
        {"data past the end", [](byte_image& f) { f.u32(808, 2049); }, codec_bad_header},
        {"bad magic", [](byte_image& f) { f.text(0, "SDPY"); }, codec_bad_magic},
        {"short header", [](byte_image& f) { f.data.resize(2047); }, codec_io},
    };
    for (const refusal& c : cases) {
        byte_image f = dpx_file(true, 4, 4);
        c.change(f);
        smptedpx_reader r;
        EXPECT_EQ(r.open(dir.write("bad.dpx", f.data).c_str(), true), c.result) << c.what;
        EXPECT_EQ(r.header_loaded, 0u) << c.what;
    }
    // The data offset may start right after the generic header, or at the very end.
    for (uint32_t offset : {1664u, 2048u}) {
        byte_image f = dpx_file(true, 4, 4);
        f.u32(808, offset);
        smptedpx_reader r;
        EXPECT_EQ(r.open(dir.write("edge.dpx", f.data).c_str(), true), codec_ok) << offset;
    }
}

TEST_F(DpxReaderTest, PackingRule) {
    struct packing_case { uint8_t descriptor, bits; uint16_t packing; uint32_t packed; };
    for (packing_case c : {packing_case{50, 8, 1, 1}, packing_case{51, 8, 1, 0}, packing_case{51, 8, 0, 1},
                           packing_case{50, 10, 1, 0}}) {
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("p.dpx", dpx_file(true, 4, 4, c.descriptor, c.bits, c.packing).data).c_str(), true),
                  codec_ok);
        EXPECT_EQ(r.packed, c.packed) << int(c.descriptor) << " " << int(c.bits) << " " << c.packing;
    }
}

TEST_F(DpxReaderTest, DirectReadReversesWordsOfForeignFiles) {
    for (bool big : {true, false}) {
        byte_image f = dpx_file(big, 3, 1, 50, 10, 1, 12);
        const uint32_t pixels[3] = {0xFFC00000u, 0x003FF000u, 0x12345678u};
        for (int i = 0; i < 3; ++i) f.u32(dpx_test_offset + 4 * i, pixels[i]);
        smptedpx_reader r;
        ASSERT_EQ(r.open(dir.write("d.dpx", f.data).c_str(), true), codec_ok);
        uint32_t out[4] = {};
        EXPECT_EQ(r.read_image(out, 8), codec_bad_argument);
        EXPECT_EQ(r.read_image(nullptr, 12), codec_bad_argument);
        ASSERT_EQ(r.read_image(out, 12), codec_ok);
        EXPECT_EQ(std::vector<uint32_t>(out, out + 3), std::vector<uint32_t>(pixels, pixels + 3));
        // A size beyond the image reads exactly that many bytes or fails.
        EXPECT_EQ(r.read_image(out, 16), codec_io);
        uint8_t raw[4];
        ASSERT_EQ(r.read_at(raw, dpx_test_offset + 8, 4), codec_ok);
        EXPECT_EQ(std::vector<uint8_t>(raw, raw + 4), std::vector<uint8_t>(f.data.end() - 4, f.data.end()));
        EXPECT_EQ(r.read_at(raw, dpx_test_offset + 9, 4), codec_io);
    }
}

TEST_F(DpxReaderTest, EightBitExpansion) {
    // Values from 255 down to 0 and the codes they expand to.
    const uint8_t in[5] = {255, 254, 128, 1, 0};
    const uint32_t code[5] = {1022, 1018, 513, 4, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(dpx_expand_8bit(in[i]), code[i]) << int(in[i]);

    for (bool big : {true, false}) {
        // Three channels: a pixel's first byte lands in the low bits.
        byte_image rgb = dpx_file(big, 2, 1, 50, 8, 1, 6);
        const uint8_t bytes[6] = {255, 128, 1, 0, 254, 255};
        for (int i = 0; i < 6; ++i) rgb.u8(dpx_test_offset + i, bytes[i]);
        smptedpx_reader r3;
        ASSERT_EQ(r3.open(dir.write("rgb.dpx", rgb.data).c_str(), true), codec_ok);
        uint32_t out[2] = {};
        ASSERT_EQ(r3.read_image(out, 8), codec_ok);
        EXPECT_EQ(out[0], 4u << 22 | 513u << 12 | 1022u << 2);
        EXPECT_EQ(out[1], 1022u << 22 | 1018u << 12 | 0u << 2);

        // Four channels: the top three bytes of the file's word, top first.
        byte_image rgba = dpx_file(big, 2, 1, 51, 8, 1, 8);
        rgba.u32(dpx_test_offset, 0xFF800100u);
        rgba.u32(dpx_test_offset + 4, 0x01FEFF80u);
        smptedpx_reader r4;
        ASSERT_EQ(r4.open(dir.write("rgba.dpx", rgba.data).c_str(), true), codec_ok);
        ASSERT_EQ(r4.read_image(out, 8), codec_ok);
        EXPECT_EQ(out[0], 1022u << 22 | 513u << 12 | 4u << 2);
        EXPECT_EQ(out[1], 4u << 22 | 1018u << 12 | 1022u << 2);

        // With expansion off the bytes come three per pixel, each whole
        // 32-bit word still reversed for a foreign file.
        r3.expand_to_10bit = 0;
        uint8_t stored[6];
        ASSERT_EQ(r3.read_image(stored, 6), codec_ok);
        std::vector<uint8_t> data(rgb.data.begin() + dpx_test_offset, rgb.data.end());
        EXPECT_EQ(std::vector<uint8_t>(stored, stored + 6), rgb.foreign() ? with_fields_reversed(data, {{0, 4}}) : data);
    }
}

TEST_F(DpxReaderTest, HeaderSizesCannotOverrunBuffers) {
    // width x height x 4 wraps to 4 in 32 bits and does not fit in 64 bits.
    ASSERT_EQ(load(dpx_file(true, 0xFFFFFFFFu, 0xFFFFFFFFu, 50, 10, 1, 64)), codec_ok);
    std::vector<uint8_t> buf(256);
    EXPECT_EQ(reader.read_image(buf.data(), 4), codec_bad_argument);
    EXPECT_EQ(reader.read_image(buf.data(), std::numeric_limits<uint64_t>::max()), codec_bad_argument);
}

TEST_F(DpxReaderTest, ExpansionBufferIsBoundedByTheFile) {
    // 2^28 8-bit RGB pixels would need a 768 MiB buffer the 64 bytes of data
    // cannot fill. With the address space capped well below that, a reader
    // that allocates before checking the file dies; one that checks answers 3.
    ASSERT_EQ(load(dpx_file(true, 1u << 14, 1u << 14, 50, 8, 1, 64)), codec_ok);
    EXPECT_EXIT(
        {
            unsigned long pages = 0;
            if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
                if (std::fscanf(statm, "%lu", &pages) != 1) pages = 0;
                std::fclose(statm);
            }
            rlimit cap{};
            getrlimit(RLIMIT_AS, &cap);
            cap.rlim_cur = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (rlim_t(256) << 20);
            setrlimit(RLIMIT_AS, &cap);
            std::vector<uint8_t> buf(256, 0xAB);
            int result = reader.read_image(buf.data(), uint64_t(1) << 30);
            _exit(buf == std::vector<uint8_t>(256, 0xAB) ? result : 100);
        },
        ::testing::ExitedWithCode(codec_io), "");
}

TEST_F(DpxReaderTest, ClosedReaderAndBadArguments) {
    uint8_t header[2048];
    EXPECT_EQ(reader.read_header_bytes(header, 2048), codec_not_open);
    EXPECT_EQ(reader.read_header(), codec_not_open);
    EXPECT_EQ(reader.read_at(header, 0, 4), codec_not_open);
    ASSERT_EQ(load(dpx_file(true, 4, 4)), codec_ok);
    EXPECT_EQ(reader.read_header_bytes(header, 2047), codec_bad_argument);
    EXPECT_EQ(reader.read_header_bytes(nullptr, 2048), codec_bad_argument);
    EXPECT_EQ(reader.read_at(header, 0, 0), codec_bad_argument);
}

}  // namespace
