// The byte-swap walk, the DPX and Cineon readers and writers and the image holder, on files built byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <tuple>

#include "cineon/bs_struct.h"
#include "cineon/cineon_reader.h"
#include "cineon/cineon_writer.h"
#include "cineon/dpx_reader.h"
#include "cineon/dpx_writer.h"
#include "cineon/image_holder.h"
#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using namespace testdata;
using std::make_tuple;
using pokes = std::vector<std::tuple<size_t, int, uint32_t>>;  // offset, width (0: cut the file to the value), value

// Bytes 0, 1, 2, ... after walking `codes` (none: no description) over the first `extent` of them.
bytes walked(const std::vector<int>& codes, size_t extent, size_t size) {
    bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = uint8_t(i);
    common::stack<int> d;
    for (int c : codes) d.append(c);
    common::bs_struct<char*> swap(reinterpret_cast<char*>(b.data()), codes.empty() ? nullptr : &d, extent);
    return b;
}

TEST(ByteOrder, LayoutWalks) {
    // Single fields pad to their alignment, arrays neither pad nor count, other codes are single bytes; groups
    // align inside each record and step by the record size; nothing at or past the extent is touched.
    struct walk { std::vector<int> codes; size_t n; fields reversed; };
    const walk walks[] = {
        {{-1, -1, -1, -4}, 8, {{4, 4}}}, {{-1, -2, -4}, 8, {{2, 2}, {4, 4}}}, {{-1, -1, -1, -1, -1, -4}, 12, {{8, 4}}},
        {{7, -2}, 4, {{2, 2}}}, {{-101, -1, 3, -4}, 8, {{3, 4}}}, {{-1, -101, -2, 2, -2}, 8, {{1, 2}, {3, 2}, {6, 2}}},
        {{-1, -102, 8, 2, -1, -4, -103}, 17, {{5, 4}, {13, 4}}}, {{-102, 3, 2, -1, -103, -2}, 8, {{6, 2}}},
        {{-102, 4, 0, -4, -103, -4}, 8, {{0, 4}}}, {{-101, -4, 4}, 8, {{0, 4}, {4, 4}}}, {{-2, -4, -4}, 6, {{0, 2}}},
        {{-102, 6, 3, -4, -103}, 10, {{0, 4}, {6, 4}}}, {{}, 8, {}},
    };
    for (const walk& w : walks)
        EXPECT_EQ(walked(w.codes, w.n, w.n + 4), with_fields_reversed(walked({}, 0, w.n + 4), w.reversed))
            << ::testing::PrintToString(w.codes);
}

// Stores each value in the file's order; width 0 cuts the file to the value instead.
void poke(byte_image& f, const pokes& changes) {
    for (auto [at, n, v] : changes)
        n == 0 ? f.data.resize(v) : n == 1 ? f.u8(at, uint8_t(v)) : n == 2 ? f.u16(at, uint16_t(v)) : f.u32(at, v);
}

// A valid file of each format in the given order with room for its image at 2048, then `changes` made.
byte_image valid(bool dpx, bool big, uint32_t width, uint32_t height, const pokes& changes = {}) {
    byte_image f = dpx ? dpx_file(big, width, height, 50, 10, 1, size_t(width) * height * 4) : byte_image(0, big);
    if (!dpx) f.data = make_cineon(big, width, height);
    poke(f, changes);
    return f;
}

std::unique_ptr<cineonreader> reader(bool dpx) {
    return dpx ? std::unique_ptr<cineonreader>(new smptedpx_reader) : std::make_unique<kodakcineon_reader>();
}
std::unique_ptr<cineonwriter> writer(bool dpx) {
    return dpx ? std::unique_ptr<cineonwriter>(new smptedpx_writer) : std::make_unique<kodakcineon_writer>();
}

class Codec : public ::testing::Test {
protected:
    testrun::scratch_dir dir;
    std::string out = dir / "out";
    codec_result load(cineonreader& r, const byte_image& f) { return r.open(dir.write("in", f.data).c_str(), true); }
};

TEST_F(Codec, DpxReadingRules) {
    // Orientations give transposed (4), mirror_x (2), flip_y (1); transfers 1 and 3 are logarithmic; packing 0 or
    // 3-channel 8-bit data is packed; original sizes win unless 0 or ~0; a film rate in [1, 101) wins, else a TV one.
    struct rule { uint32_t orientation, descriptor, bits, packing, transfer, orig; float film, tv;
                  uint32_t flags, packed, log, width, height; float rate; };
    const rule rules[] = {
        {0, 50, 8, 1, 0, 0, 0, 25, 0, 1, 0, 64, 48, 25},   {1, 51, 8, 1, 1, ~0u, 200, 200, 2, 0, 1, 64, 48, 24},
        {2, 51, 8, 0, 2, 72, 1, 30, 1, 1, 0, 72, 72, 1},    {3, 50, 10, 1, 3, 0, 101, 99, 3, 0, 1, 64, 48, 99},
        {4, 51, 10, 1, 4, 0, NAN, NAN, 4, 0, 0, 64, 48, 24}, {5, 50, 8, 1, 3, 0, 30, 0, 5, 1, 1, 64, 48, 30},
        {6, 50, 8, 1, 0, 0, 0, 0, 7, 1, 0, 64, 48, 24},     {7, 50, 8, 1, 0, 0, 0, 0, 6, 1, 0, 64, 48, 24},
    };
    for (const rule& c : rules) {
        byte_image f = valid(true, c.orientation % 2, 64, 48, {{768, 2, c.orientation}, {800, 1, c.descriptor},
            {801, 1, c.transfer}, {803, 1, c.bits}, {804, 2, c.packing}, {1424, 4, c.orig}, {1428, 4, c.orig}});
        for (auto [at, v] : {std::pair<size_t, float>{1724, c.film}, {1940, c.tv}}) f.f32(at, v);
        smptedpx_reader r;
        ASSERT_EQ(load(r, f), codec_result::ok);
        EXPECT_EQ(make_tuple(r.transposed, r.mirror_x, r.flip_y, r.packed, r.is_log, r.width, r.height, r.frame_rate),
                  make_tuple(c.flags >> 2, c.flags >> 1 & 1, c.flags & 1, c.packed, c.log, c.width, c.height, c.rate))
            << "orientation " << c.orientation;
    }
    smptedpx_reader r;  // 8-bit RGB: a pixel's first byte goes to the low bits; 255 gives 1022
    uint32_t px[2] = {};
    ASSERT_EQ(load(r, valid(true, !host_little, 2, 1, {{803, 1, 8}, {0, 0, 2054}, {2048, 1, 255}, {2049, 1, 128},
                                                      {2050, 1, 1}, {2052, 1, 254}, {2053, 1, 255}})), codec_result::ok);
    ASSERT_EQ(r.read_image(px, 8), codec_result::ok);
    EXPECT_EQ(make_tuple(px[0], px[1]), make_tuple(4u << 22 | 513u << 12 | 1022u << 2, 1022u << 22 | 1018u << 12));
}

TEST_F(Codec, ReadersAndTheHolderRefuseWhatTheyCannotHandle) {
    const codec_result ok = codec_result::ok, bad = codec_result::bad_header, unsupported = codec_result::unsupported;
    const std::tuple<const char*, bool, pokes, codec_result> cases[] = {  // what, DPX, changes to a valid file, result
        {"data in the generic header", true, {{808, 4, 1663}}, bad},   {"past the end", true, {{808, 4, 2113}}, bad},
        {"data after the generic header", true, {{808, 4, 1664}}, ok}, {"at the end", true, {{808, 4, 2112}}, ok},
        {"1 channel packing 3", false, {{193, 1, 1}, {681, 1, 3}}, ok},
        {"4 channels packing 0, the matte not 10-bit", false, {{193, 1, 4}, {681, 1, 0}}, ok},
        {"2 channels", false, {{193, 1, 2}}, unsupported}, {"8-bit channel 2", false, {{226, 1, 8}}, unsupported},
        {"4 channels packing 3", false, {{193, 1, 4}, {681, 1, 3}}, unsupported},
        {"3 channels packing 0", false, {{681, 1, 0}}, unsupported}, {"packing 1", false, {{681, 1, 1}}, unsupported},
    };
    image_holder holder;  // one for every file: each load drops what the one before held
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& [what, dpx, changes, result] = cases[i];
        std::string path = dir.write("in", valid(dpx, i % 2, 4, 4, changes).data);
        std::unique_ptr<cineonreader> r = reader(dpx);
        EXPECT_EQ(r->open(path.c_str(), true), result) << what;
        EXPECT_EQ(holder.load(path.c_str()), result == ok ? ok : codec_result::io) << what;
        EXPECT_EQ(make_tuple(holder.dpx_reader != nullptr, holder.cineon_reader != nullptr),
                  make_tuple(result == ok && dpx, result == ok && !dpx)) << what;
    }
    for (bool dpx : {true, false}) EXPECT_EQ(reader(dpx)->open(dir.path().c_str(), true), codec_result::io) << "a folder";
}

TEST_F(Codec, WritersWriteTheFileBuiltHereWhichTheReadersRead) {
    // DPX 10-bit linear RGB, 8-bit log packed RGBA, Cineon (always in host order), in the order asked for or not.
    const uint32_t pixels[2] = {0xFFC00000u, 0x12345678u};
    for (int round = 0; round < 6; ++round) {
        const bool dpx = round < 4, eight = round / 2 == 1, host = round % 2 == 0;
        smptedpx_writer m;  // copied into the writer
        std::tie(m.width, m.height, m.ref_low, m.ref_high, m.time_code, m.frame_rate, m.gamma, m.black_level,
                 m.black_gain, m.break_point, m.white_level, m.channels, m.descriptor, m.bit_depth, m.is_log, m.packed,
                 m.data_offset) = make_tuple(2, 1, 64, 940, ~0u, 25.0f, 2.2f, 12.0f, 0.5f, 3.0f, 900.0f, 3 + eight,
                                             50 + eight, 10 - 2 * eight, eight, eight, 2048);
        std::unique_ptr<cineonwriter> w = writer(dpx);
        w->copy_description(m);
        auto expected = [&](bool big) {
            byte_image e = valid(dpx, big, 2, 1, {{2048, 4, pixels[0]}, {2052, 4, pixels[1]}});
            if (dpx) {
                poke(e, {{16, 4, 2056}, {24, 4, 1664}, {28, 4, 384}, {784, 4, 64}, {792, 4, 940}, {800, 1, 50u + eight},
                         {801, 1, 2u + eight}, {803, 1, 10u - 2 * eight}, {804, 2, !eight}, {1424, 4, 2}, {1428, 4, 1},
                         {1628, 4, 1000}, {1632, 4, 1000}, {1920, 4, ~0u}});
                for (auto [a, v] : {std::pair<size_t, float>{796, 2.048f}, {1724, 25}, {1940, 25}, {1948, 2.2f},
                                    {1956, 0.5f}, {1960, 3}, {1964, 900}})  // black level (1952) stays 0
                    e.f32(a, v);
                e.text(8, "v1.0");
                e.text(160, "Quillmoor.filmframecodec");
                e.text(460, "Copyright (c) Quillmoor. All rights reserved.");
                return e;
            }
            poke(e, {{16, 4, 30208}});
            for (size_t at = 208; at < 208 + 3 * 28; at += 28) e.f32(at, 1149222912.0f);  // channels' minimum data
            for (size_t at = 212; at < 212 + 3 * 28; at += 28) e.f32(at, 2.046f);          // and minimum quantity
            for (size_t a : {420u, 424u, 428u, 432u, 436u, 440u, 444u, 448u, 972u, 976u, 980u}) e.f32(a, 4294967296.0f);
            e.text(844, "Workstation");
            e.text(908, "(BigEndian) BSD Veltrix");
            return e;
        };
        uint32_t image[2] = {pixels[0], pixels[1]};
        if (dpx && !host) reverse_words(image, 8);
        ASSERT_EQ(w->open(out.c_str(), true, host), codec_result::ok);
        ASSERT_EQ(w->write_image(image, 8), codec_result::ok);
        bytes b = read_file(out);
        byte_image e = expected(dpx && !host ? host_little : !host_little);
        const size_t date = dpx ? 136 : 132, copy = dpx ? 1532 : 820;  // creation time, copied as the source's
        for (size_t at : {date, copy}) std::copy_n(b.begin() + long(date), 24, e.data.begin() + long(at));
        EXPECT_EQ(b, e.data) << "differs from " << std::mismatch(b.begin(), b.end(), e.data.begin()).first - b.begin();

        e = expected(host ? !host_little : host_little);
        e.f32(1952, 9.5f);  // fields only the reader looks at
        poke(e, {{1628, 4, 4}, {1632, 4, 3}});
        std::unique_ptr<cineonreader> r = reader(dpx);
        ASSERT_EQ(load(*r, e), codec_result::ok);
        EXPECT_EQ(make_tuple(r->width, r->height, r->channels, r->bit_depth, r->ref_low, r->ref_high, r->descriptor,
                             r->is_log, r->packed, r->data_offset, r->time_code, r->swap_bytes, r->pixel_aspect,
                             r->gamma, r->black_level, r->black_gain, r->break_point, r->white_level, r->frame_rate),
                  dpx ? make_tuple(2, 1, 3 + eight, 10 - 2 * eight, 64, 940, 50 + eight, +eight, +eight, 2048,
                                   0x7F7F7F3F, +e.foreign(), 4.0f / 3, 2.2f, 9.5f, 0.5f, 3.0f, 900.0f, 25.0f)
                      : make_tuple(2, 1, 0, 10, 95, 685, 0, 1, 1, 2048, 0, +e.foreign(), 0.0f, 1.0f, 0.0f, 0.0f, 0.0f,
                                   0.0f, 24.0f));
        uint32_t buf[512] = {};
        for (codec_result result : {r->read_image(buf, 4), r->read_image(nullptr, 8), r->read_at(buf, 0, 0),
                           r->read_at(nullptr, 0, 4), r->read_header_bytes(buf, 2047)})
            EXPECT_EQ(result, codec_result::bad_argument);
        EXPECT_EQ(r->read_image(buf, 12), eight ? codec_result::ok : codec_result::io) << "more than the file holds, unless expanded";
        ASSERT_EQ(r->read_image(buf, 8), codec_result::ok);
        EXPECT_EQ(make_tuple(buf[0], buf[1]),  // 8-bit RGBA expands the top three bytes of each word
                  eight ? make_tuple(1022u << 22 | 770u << 12, 72u << 22 | 208u << 12 | 345u << 2)
                        : make_tuple(pixels[0], pixels[1]));
    }
}

}  // namespace
