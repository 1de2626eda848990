// tarvex-mkframes: writes test frames (DPX or Cineon) with a visible gradient,
// through tarvex's own writers.
#include <getopt.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cineon/cineon_writer.h"
#include "cineon/dpx_writer.h"

namespace {

void usage() {
    std::fputs(
        "usage: tarvex-mkframes [options] PATTERN\n"
        "  PATTERN   output path; a printf number field such as %04d takes the frame number\n"
        "  -W WIDTH  pixels per line (default 2048)\n"
        "  -H HEIGHT lines (default 1556)\n"
        "  -n COUNT  number of frames (default 1)\n"
        "  -s FIRST  first frame number (default 1)\n"
        "  -e ORDER  byte order: big or little (default big)\n"
        "  -b BITS   10 (RGB filled to 32-bit words, method A), 8 (packed RGB bytes), or 12 or 16\n"
        "            (RGB, one 16-bit unit a component, 12-bit data in its high bits)\n"
        "  -k KIND   dpx or cineon (a Cineon file is always in this machine's order)\n"
        "  -o OFFSET image data offset (default 8192 for DPX, 32256 for Cineon)\n",
        stderr);
}

struct options {
    uint32_t width = 2048, height = 1556;
    int count = 1, first = 1;
    bool big_endian = true;
    int bits = 10;
    bool cineon = false;
    long offset = -1;
    std::string pattern;
};

bool parse(int argc, char** argv, options& o) {
    int c;
    while ((c = getopt(argc, argv, "W:H:n:s:e:b:k:o:")) != -1) {
        switch (c) {
            case 'W': o.width = uint32_t(std::strtoul(optarg, nullptr, 10)); break;
            case 'H': o.height = uint32_t(std::strtoul(optarg, nullptr, 10)); break;
            case 'n': o.count = std::atoi(optarg); break;
            case 's': o.first = std::atoi(optarg); break;
            case 'e':
                if (std::strcmp(optarg, "big") == 0) o.big_endian = true;
                else if (std::strcmp(optarg, "little") == 0) o.big_endian = false;
                else return false;
                break;
            case 'b': o.bits = std::atoi(optarg); break;
            case 'k':
                if (std::strcmp(optarg, "dpx") == 0) o.cineon = false;
                else if (std::strcmp(optarg, "cineon") == 0) o.cineon = true;
                else return false;
                break;
            case 'o': o.offset = std::atol(optarg); break;
            default: return false;
        }
    }
    if (optind + 1 != argc) return false;
    o.pattern = argv[optind];
    if (o.bits != 8 && o.bits != 10 && o.bits != 12 && o.bits != 16) return false;
    if (o.width == 0 || o.height == 0 || o.count < 1) return false;
    if (uint64_t(o.width) * o.height > (uint64_t(1) << 28)) return false;
    if (o.offset == -1) o.offset = o.cineon ? 32256 : 8192;
    return o.offset >= 2048 && o.offset <= 0x7fffffff;
}

uint32_t byte_swapped(uint32_t v) { return __builtin_bswap32(v); }

// Bytes one pixel takes on disk.
uint64_t pixel_bytes(int bits) { return bits == 10 ? 4 : bits == 8 ? 3 : 6; }

// Stores the 10-bit components `rgb` of pixel `i` in `data` as the depth lays them out.
void put_pixel(const options& o, std::vector<uint8_t>& data, uint64_t i, const uint32_t (&rgb)[3]) {
    uint8_t* p = &data[size_t(i * pixel_bytes(o.bits))];
    if (o.bits == 10) {
        uint32_t word = rgb[0] << 22 | rgb[1] << 12 | rgb[2] << 2;
        // Method A words go to disk in the file's byte order.
        if (o.big_endian) word = byte_swapped(word);
        std::memcpy(p, &word, 4);
        return;
    }
    for (size_t k = 0; k < 3; ++k) {
        if (o.bits == 8) p[k] = uint8_t(rgb[k] >> 2);
        // 16-bit units in the file's byte order; 12-bit data keeps the low four bits zero.
        const uint16_t unit = uint16_t(rgb[k] << 6), stored = o.big_endian ? __builtin_bswap16(unit) : unit;
        if (o.bits > 10) std::memcpy(p + 2 * k, &stored, 2);
    }
}

// A diagonal gradient that moves with the frame number: red across, green
// down, blue along the diagonal.
std::vector<uint8_t> picture(const options& o, int frame) {
    const uint64_t pixels = uint64_t(o.width) * o.height;
    std::vector<uint8_t> data(size_t(pixels * pixel_bytes(o.bits)));
    for (uint32_t y = 0; y < o.height; ++y) {
        for (uint32_t x = 0; x < o.width; ++x) {
            uint32_t r = uint32_t(uint64_t(x) * 1023 / (o.width > 1 ? o.width - 1 : 1));
            uint32_t g = uint32_t(uint64_t(y) * 1023 / (o.height > 1 ? o.height - 1 : 1));
            uint32_t b = (x + y + uint32_t(frame) * 16) % 1024;
            put_pixel(o, data, uint64_t(y) * o.width + x, {r, g, b});
        }
    }
    return data;
}

// The pattern with its first %d / %0Nd field replaced by `frame`; other text,
// "%%" included, stands as written.
std::string frame_path(const std::string& pattern, int frame) {
    std::string out;
    bool done = false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%' || i + 1 >= pattern.size()) {
            out += pattern[i];
            continue;
        }
        if (pattern[i + 1] == '%') {
            out += '%';
            ++i;
            continue;
        }
        size_t j = i + 1;
        bool zero = j < pattern.size() && pattern[j] == '0';
        int width = 0;
        while (j < pattern.size() && pattern[j] >= '0' && pattern[j] <= '9' && width < 100)
            width = width * 10 + (pattern[j++] - '0');
        if (done || j >= pattern.size() || pattern[j] != 'd') {
            out += pattern[i];
            continue;
        }
        std::string digits = std::to_string(frame);
        if (int(digits.size()) < width) digits.insert(0, size_t(width) - digits.size(), zero ? '0' : ' ');
        out += digits;
        i = j;
        done = true;
    }
    return out;
}

bool host_is_big_endian() {
    const uint16_t probe = 1;
    return *reinterpret_cast<const uint8_t*>(&probe) == 0;
}

template <class Writer>
codec_result write_frame(Writer& writer, const options& o, const std::string& path, int frame) {
    writer.width = o.width;
    writer.height = o.height;
    writer.descriptor = 50;
    writer.channels = 3;
    writer.bit_depth = uint16_t(o.bits);
    writer.expand_to_10bit = o.bits == 10;
    // 16-bit data fills its words whatever the packing; readers expect 0 there.
    writer.packed = o.bits == 8 || o.bits == 16;
    writer.is_log = 1;
    writer.ref_low = 95;
    writer.ref_high = 685;
    writer.data_offset = uint32_t(o.offset);
    writer.frame_rate = 24.0f;
    bool host_order = o.cineon || o.big_endian == host_is_big_endian();
    codec_result r = writer.open(path.c_str(), true, host_order);
    if (r == codec_result::ok) {
        std::vector<uint8_t> data = picture(o, frame);
        r = writer.write_image(data.data(), data.size());
    }
    writer.close();
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    options o;
    if (!parse(argc, argv, o)) {
        usage();
        return 2;
    }
    for (int i = 0; i < o.count; ++i) {
        int frame = o.first + i;
        std::string path = frame_path(o.pattern, frame);
        codec_result r;
        if (o.cineon) {
            kodakcineon_writer writer;
            r = write_frame(writer, o, path, frame);
        } else {
            smptedpx_writer writer;
            r = write_frame(writer, o, path, frame);
        }
        if (r != codec_result::ok) {
            std::fprintf(stderr, "tarvex-mkframes: could not write %s (result %d)\n", path.c_str(), int(r));
            return 1;
        }
    }
    return 0;
}
