#include "support/dpx_bytes.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace testdata {

void put(bytes& b, size_t at, uint64_t v, int n, bool big_endian) {
    for (int i = 0; i < n; ++i) {
        int shift = big_endian ? 8 * (n - 1 - i) : 8 * i;
        b[at + size_t(i)] = uint8_t(v >> shift);
    }
}

uint64_t get(const bytes& b, size_t at, int n, bool big_endian) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) {
        int shift = big_endian ? 8 * (n - 1 - i) : 8 * i;
        v |= uint64_t(b[at + size_t(i)]) << shift;
    }
    return v;
}

namespace {

void put_text(bytes& b, size_t at, const std::string& text, size_t width) {
    std::memcpy(&b[at], text.data(), std::min(text.size(), width));
}

// Four bytes no byte reversal leaves as they are.
void put_float_bytes(bytes& b, size_t at, uint8_t seed) {
    for (int i = 0; i < 4; ++i) b[at + size_t(i)] = uint8_t(seed + 17 * i + 1);
}

}  // namespace

const std::vector<std::pair<size_t, int>>& dpx_swapped_fields() {
    static const std::vector<std::pair<size_t, int>> fields = [] {
        std::vector<std::pair<size_t, int>> f = {
            {0, 4}, {4, 4}, {16, 4}, {20, 4}, {24, 4}, {28, 4}, {32, 4}, {660, 4},
            {768, 2}, {770, 2}, {772, 4}, {776, 4},
            {1408, 4}, {1412, 4}, {1424, 4}, {1428, 4},
            {1620, 2}, {1622, 2}, {1624, 2}, {1626, 2}, {1628, 4}, {1632, 4},
            {1712, 4}, {1716, 4}, {1720, 4}, {1920, 4}, {1924, 4}};
        for (size_t k = 0; k < 8; ++k) {
            size_t e = 780 + 72 * k;
            for (auto [rel, n] : std::vector<std::pair<size_t, int>>{
                     {0, 4}, {4, 4}, {12, 4}, {24, 2}, {26, 2}, {28, 4}, {32, 4}, {36, 4}})
                f.push_back({e + rel, n});
        }
        return f;
    }();
    return fields;
}

bytes make_dpx(const dpx_layout& s) {
    const bool be = s.big_endian;
    const uint64_t words = uint64_t(s.width) * s.height + s.extra_image_words;
    const uint64_t end = uint64_t(s.image_offset) + words * 4;
    bytes b(size_t(std::max<uint64_t>(end, 2048) + s.trailing_bytes), 0);

    put(b, 0, 0x53445058, 4, be);  // "SDPX" in the file's order
    put(b, 4, s.image_offset, 4, be);
    put_text(b, 8, "V2.0", 8);
    put(b, 16, b.size(), 4, be);
    put(b, 20, 1, 4, be);
    put(b, 24, 1664, 4, be);
    put(b, 28, 384, 4, be);
    put(b, 32, s.image_offset > 2048 ? s.image_offset - 2048 : 0, 4, be);
    put_text(b, 36, "frame.dpx", 100);
    put_text(b, 136, s.date, 24);
    put_text(b, 160, s.creator, 100);
    put_text(b, 260, "project", 200);
    put(b, 660, 0xFFFFFFFF, 4, be);
    put(b, 768, 0, 2, be);
    put(b, 770, 1, 2, be);
    put(b, 772, s.width, 4, be);
    put(b, 776, s.height, 4, be);
    // Element 0.
    put(b, 780, 0, 4, be);
    put(b, 784, s.ref_low, 4, be);
    put_float_bytes(b, 788, 0x10);
    put(b, 792, s.ref_high, 4, be);
    put_float_bytes(b, 796, 0x20);
    b[800] = s.descriptor;
    b[801] = s.transfer;
    b[802] = 2;
    b[803] = s.bit_size;
    put(b, 804, s.packing, 2, be);
    put(b, 806, 0, 2, be);
    put(b, 808, s.element_offset, 4, be);
    put(b, 812, 0, 4, be);
    put(b, 816, 0, 4, be);
    put_text(b, 820, "element zero", 32);
    // Orientation, film and television sections.
    put(b, 1408, 7, 4, be);
    put(b, 1412, 9, 4, be);
    put_float_bytes(b, 1416, 0x30);
    put_float_bytes(b, 1420, 0x40);
    put(b, 1424, s.x_orig, 4, be);
    put(b, 1428, s.y_orig, 4, be);
    put(b, 1620, 1, 2, be);
    put(b, 1622, 2, 2, be);
    put(b, 1628, 1, 4, be);
    put(b, 1632, 1, 4, be);
    put_text(b, 1680, "35mm", 32);
    put(b, 1712, 1001, 4, be);
    put(b, 1716, 240, 4, be);
    put_float_bytes(b, 1724, 0x50);  // film frame rate
    put(b, 1920, 0x01020304, 4, be);
    put_float_bytes(b, 1940, 0x60);  // tv frame rate
    put_float_bytes(b, 1948, 0x70);  // gamma
    // User data between the header and the image.
    for (size_t i = 2048; i < s.image_offset && i < b.size(); ++i) b[i] = uint8_t(0xA0 + i % 7);
    // Pixels: distinct words, none of them a palindrome.
    for (uint64_t i = 0; i < words; ++i) {
        uint32_t r = uint32_t(i * 37 % 1024), g = uint32_t(i * 11 % 1024), bl = uint32_t((i * 5 + 3) % 1024);
        put(b, size_t(s.image_offset + i * 4), uint64_t(r) << 22 | uint64_t(g) << 12 | uint64_t(bl) << 2, 4, be);
    }
    for (size_t i = size_t(std::max<uint64_t>(end, 2048)); i < b.size(); ++i) b[i] = uint8_t(0x5A ^ i);
    return b;
}

bytes converted(const bytes& input, const dpx_layout& s) {
    const uint64_t words = uint64_t(s.width) * s.height + s.extra_image_words;
    const uint64_t end = uint64_t(s.image_offset) + words * 4;
    // Header bytes go up to the image's offset at most, so the image always
    // ends the file, also a small one inside the header.
    bytes out(size_t(end), 0);
    const size_t header = std::min<size_t>(2048, s.element_offset);
    std::copy(input.begin(), input.begin() + long(header), out.begin());
    for (auto [at, n] : dpx_swapped_fields())
        if (at + size_t(n) <= header) put(out, at, get(input, at, n, true), n, false);
    for (uint64_t i = 0; i < words; ++i) {
        size_t at = size_t(s.element_offset + i * 4);
        put(out, at, get(input, at, 4, true), 4, false);
    }
    return out;
}

bytes make_cineon(bool big_endian, uint32_t width, uint32_t height) {
    bytes b(size_t(2048 + uint64_t(width) * height * 4), 0);
    put(b, 0, 0x802A5FD7, 4, big_endian);
    put(b, 4, 2048, 4, big_endian);
    put(b, 8, 1024, 4, big_endian);
    put(b, 12, 1024, 4, big_endian);
    put(b, 20, b.size(), 4, big_endian);
    put_text(b, 24, "V4.5", 8);
    b[192] = 0;
    b[193] = 3;  // channels
    for (size_t k = 0; k < 3; ++k) {
        size_t c = 196 + 28 * k;
        b[c + 1] = uint8_t(k);
        b[c + 2] = 10;
        put(b, c + 4, width, 4, big_endian);
        put(b, c + 8, height, 4, big_endian);
    }
    b[680] = 0;  // interleave
    b[681] = 5;  // packing
    for (size_t i = 2048; i < b.size(); ++i) b[i] = uint8_t(i * 13);
    return b;
}

void byte_image::f32(size_t offset, float v) { std::memcpy(&data.at(offset), &v, 4); }

void byte_image::text(size_t offset, const char* s) { std::memcpy(&data.at(offset), s, std::strlen(s)); }

void byte_image::noise(size_t from, size_t to) {
    uint32_t x = 0x9E3779B9u;
    for (size_t i = from; i < to; ++i) {
        x = x * 1664525u + 1013904223u;
        data.at(i) = uint8_t(x >> 24);
    }
}

bytes with_fields_reversed(bytes image, const std::vector<std::pair<size_t, int>>& fields) {
    for (auto [at, n] : fields) std::reverse(image.begin() + long(at), image.begin() + long(at) + n);
    return image;
}

uint32_t host_word(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return w;
}

uint16_t u16_at(const bytes& b, size_t at) {
    b.at(at + 1);
    uint16_t v;
    std::memcpy(&v, &b[at], 2);
    return v;
}

uint32_t u32_at(const bytes& b, size_t at) {
    b.at(at + 3);
    return host_word(&b[at]);
}

float f32_at(const bytes& b, size_t at) {
    b.at(at + 3);
    float v;
    std::memcpy(&v, &b[at], 4);
    return v;
}

std::string text_at(const bytes& b, size_t at, size_t max) {
    b.at(at);
    std::string text;
    for (size_t i = at; i < b.size() && text.size() < max && b[i] != 0; ++i) text += char(b[i]);
    return text;
}

byte_image dpx_file(bool big, uint32_t width, uint32_t height, uint8_t descriptor, uint8_t bits, uint16_t packing,
                    size_t data_bytes) {
    byte_image f(dpx_test_offset + data_bytes, big);
    f.text(0, big ? "SDPX" : "XPDS");
    f.u32(4, dpx_test_offset);
    f.u32(660, 0xFFFFFFFFu);
    f.u16(770, 1);
    f.u32(772, width);
    f.u32(776, height);
    f.u8(800, descriptor);
    f.u8(803, bits);
    f.u16(804, packing);
    f.u32(808, dpx_test_offset);
    return f;
}

bytes read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool write_file(const std::string& path, const bytes& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
    return bool(out);
}

}  // namespace testdata
