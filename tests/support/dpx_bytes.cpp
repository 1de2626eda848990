#include "support/dpx_bytes.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace testdata {

void put(bytes& b, size_t at, uint64_t v, int n, bool big_endian) {
    for (int i = 0; i < n; ++i) b.at(at + size_t(i)) = uint8_t(v >> (big_endian ? 8 * (n - 1 - i) : 8 * i));
}

uint64_t get(const bytes& b, size_t at, int n, bool big_endian) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v |= uint64_t(b.at(at + size_t(i))) << (big_endian ? 8 * (n - 1 - i) : 8 * i);
    return v;
}

void byte_image::f32(size_t at, float v) { std::memcpy(&data.at(at), &v, 4); }
void byte_image::text(size_t at, const char* s) { std::memcpy(&data.at(at), s, std::strlen(s)); }
void byte_image::noise(size_t from, size_t to) {
    uint32_t x = 0x9E3779B9u;
    for (size_t i = from; i < to; ++i) data.at(i) = uint8_t((x = x * 1664525u + 1013904223u) >> 24);
}

const fields& dpx_swapped_fields() {
    static const fields all = [] {
        fields f = {{0, 4},    {4, 4},    {16, 4},   {20, 4},   {24, 4},   {28, 4},   {32, 4},   {660, 4},  {768, 2},
                    {770, 2},  {772, 4},  {776, 4},  {1408, 4}, {1412, 4}, {1424, 4}, {1428, 4}, {1620, 2}, {1622, 2},
                    {1624, 2}, {1626, 2}, {1628, 4}, {1632, 4}, {1712, 4}, {1716, 4}, {1720, 4}, {1920, 4}, {1924, 4}};
        for (size_t e = 780; e < 780 + 8 * 72; e += 72)  // the eight image elements
            for (auto [at, n] : fields{{0, 4}, {4, 4}, {12, 4}, {24, 2}, {26, 2}, {28, 4}, {32, 4}, {36, 4}})
                f.push_back({e + at, n});
        return f;
    }();
    return all;
}

bytes with_fields_reversed(bytes image, const fields& reversed) {
    for (auto [at, n] : reversed) std::reverse(image.begin() + long(at), image.begin() + long(at) + n);
    return image;
}

byte_image dpx_file(bool big, uint32_t width, uint32_t height, uint8_t descriptor, uint8_t bits, uint16_t packing,
                    size_t data_bytes) {
    byte_image f(2048 + data_bytes, big);
    f.text(0, big ? "SDPX" : "XPDS");
    for (auto [at, v, n] : std::vector<patch>{{4, 2048, 4}, {660, 0xFFFFFFFF, 4}, {770, 1, 2},
                                              {772, width, 4}, {776, height, 4}, {800, descriptor, 1}, {803, bits, 1},
                                              {804, packing, 2}, {808, 2048, 4}})
        put(f.data, at, v, n, big);
    return f;
}

bytes make_cineon(bool big_endian, uint32_t width, uint32_t height) {
    byte_image f(size_t(2048 + uint64_t(width) * height * 4), big_endian);
    for (auto [at, v] : std::vector<std::pair<size_t, uint32_t>>{
             {0, 0x802A5FD7}, {4, 2048}, {8, 1024}, {12, 1024}, {20, uint32_t(f.data.size())}})
        f.u32(at, v);
    f.text(24, "V4.5");
    f.u8(193, 3);  // three 10-bit channels of 32-bit words (packing 5 at 681), not interleaved
    f.u8(681, 5);
    for (size_t k = 0, at = 196; k < 3; ++k, at += 28)  // each channel's designator, bits, width and height
        f.u8(at + 1, uint8_t(k)), f.u8(at + 2, 10), f.u32(at + 4, width), f.u32(at + 8, height);
    f.noise(2048, f.data.size());
    return f.data;
}

bytes frame(bool big, const std::vector<patch>& patches) {
    byte_image f(2048 + 60, big);
    f.noise(0, f.data.size());
    std::fill(f.data.begin() + 136, f.data.begin() + 260, 0);
    f.text(0, big ? "SDPX" : "XPDS");
    f.text(136, "2026:11:21:10:00:00UTC");
    f.text(160, "hand-built scanner");
    std::vector<patch> all = {{4, 2048, 4},   {660, 0xFFFFFFFF, 4}, {768, 0, 2},  {770, 1, 2},   {772, 5, 4},
                              {776, 3, 4},    {784, 95, 4},         {792, 685, 4}, {800, 50, 1},  {801, 3, 1},
                              {803, 10, 1},   {804, 1, 2},          {806, 0, 2},  {808, 2048, 4}, {1424, 0, 4},
                              {1428, 0, 4}};
    all.insert(all.end(), patches.begin(), patches.end());
    for (const patch& p : all) {
        const size_t old = f.data.size();
        if (p.width > 0) put(f.data, p.at, p.value, p.width, big);
        if (p.width < 0) std::fill_n(f.data.begin() + long(p.at), -p.width, uint8_t(p.value));
        if (p.width == 0) f.data.resize(size_t(p.value)), f.noise(std::min(old, f.data.size()), f.data.size());
    }
    return f.data;
}

std::vector<patch> image_at(uint32_t offset, uint32_t width, uint32_t height, uint32_t tail) {
    uint64_t end = std::max<uint64_t>(offset + uint64_t(width) * height * 4, 2048) + tail;
    return {{4, offset, 4}, {808, offset, 4}, {772, width, 4}, {776, height, 4}, {0, end, 0}};
}

bytes read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool write_file(const std::string& path, const bytes& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    return bool(out.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size())));
}

}  // namespace testdata
