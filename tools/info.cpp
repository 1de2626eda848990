// tarvex-info: what tarvex reads in a frame (byte order, size, bit depth,
// packing, descriptor, element count, the image data offset, transfer and
// levels of element 0) and what tarvex does with it, without and with -a,
// read with tarvex's own codec; the settings the first frame that loads as
// DPX gives a run; and a digest of each frame's image data that is the same
// in either byte order.
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "cineon/byteswap.h"
#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"
#include "cineon/image_holder.h"
#include "common/io.h"
#include "driver/settings_report.h"

namespace {

const char kUsage[] =
    "usage: tarvex-info [-f] [-A] [-a | -r | -d] (FRAME... | -l LIST)\n"
    "  one line per frame: byte order, size, bits, packing, descriptor, elements, offset,\n"
    "  transfer, low and high, and what tarvex does with it without and with -a\n"
    "  -f       stop after the first frame that loads as DPX\n"
    "  -A       frames load as tarvex -a loads them: of every bit depth, packing and descriptor\n"
    "  -a       print only the -o -t -w -b words that frame gives a tarvex run\n"
    "  -r       print only tarvex's settings report for that frame\n"
    "  -d       print a digest of each frame's image data, the same in either byte order\n"
    "  -l LIST  take the frames from LIST, one path a line\n"
    "  -h       print this and exit (also --help)\n";

// What the command line asks for.
struct request {
    bool first_only = false, any_depth = false, words = false, report = false, digest = false;
    std::vector<std::string> frames;
};

// Element 0's values as a tarvex run takes them from its first DPX frame.
struct frame_settings {
    int32_t offset, transfer, low, high;
};

const bool host_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Loads `path` as tarvex's job does (of any depth with `any_depth`); false
// unless it loads as DPX.
bool load_dpx(const std::string& path, bool any_depth, image_holder& holder, SMPTE268M_Header_t& header) {
    return holder.load(path.c_str(), any_depth) == codec_result::ok && holder.dpx_reader &&
           holder.dpx_reader->read_header_bytes(&header, sizeof header) == codec_result::ok;
}

// What tarvex does with `path`: without -a, or with it (`any_depth`).
const char* verdict(const std::string& path, bool any_depth) {
    image_holder holder;
    SMPTE268M_Header_t header;
    if (!load_dpx(path, any_depth, holder, header)) return "refuses it (cannot load)";
    if (!any_depth && holder.dpx_reader->bit_depth != 10) return "refuses it (not 10-bit)";
    return holder.dpx_reader->swap_bytes ? "converts it" : "leaves its byte order";
}

// One line: the header's fields as the reader brings them into host order,
// whether or not tarvex loads the frame; false when it is not a DPX file.
bool describe(const std::string& path) {
    smptedpx_reader reader(true);
    SMPTE268M_Header_t h;
    if (reader.open(path.c_str(), false) != codec_result::ok ||
        reader.read_header_bytes(&h, sizeof h) != codec_result::ok) {
        std::printf("%s: not a DPX frame tarvex can load\n", path.c_str());
        return false;
    }
    const auto& e = h.image_element[0];
    // The file is in the host's order unless the reader had to swap it.
    const bool little = host_little != bool(reader.swap_bytes);
    std::printf(
        "%s: %s %ux%u %u-bit packing %u descriptor %u elements %u offset %d transfer %d low %d high %d; "
        "tarvex: %s; tarvex -a: %s\n",
        path.c_str(), little ? "little-endian" : "big-endian", h.pixels_per_line, h.lines_per_element,
        unsigned(e.bit_size), unsigned(e.packing), unsigned(e.descriptor), unsigned(h.element_number),
        int32_t(e.data_offset), int(e.transfer), int32_t(e.ref_low_data), int32_t(e.ref_high_data),
        verdict(path, false), verdict(path, true));
    return true;
}

// FNV-1a (64 bits) over the image data from the data offset to the end of the
// file, each unit taken in big-endian order, so a frame and its conversion
// into the other byte order have the same digest.
bool image_digest(smptedpx_reader& reader, uint64_t& digest) {
    uint64_t size = 0;
    if (common::size_of(reader.fd, size) != common::io_result::ok) return false;
    const bool little = host_little != bool(reader.swap_bytes);
    std::vector<uint8_t> chunk(uint64_t(1) << 20);
    digest = 0xcbf29ce484222325u;
    for (uint64_t at = reader.data_offset; at < size; at += chunk.size()) {
        const uint64_t n = std::min<uint64_t>(chunk.size(), size - at);
        if (reader.read_at(chunk.data(), at, n) != codec_result::ok) return false;
        if (little) reverse_units(chunk.data(), n, reader.swap_unit);
        for (uint64_t i = 0; i < n; ++i) digest = (digest ^ chunk[i]) * 0x100000001b3u;
    }
    return true;
}

// The command-line words for these settings. tarvex takes an offset below
// 2048, or a level of -1 (an unset 0xFFFFFFFF field), only from a frame, so
// those words are left out and named on standard error.
void print_words(const frame_settings& s) {
    std::string words;
    auto add = [&words](const char* option, int32_t value) {
        words += (words.empty() ? "" : " ") + std::string(option) + " " + std::to_string(value);
    };
    if (s.offset >= 2048) add("-o", s.offset);
    else std::fprintf(stderr, "tarvex-info: offset %d is below what -o takes; left out\n", s.offset);
    add("-t", s.transfer);
    if (s.high != -1) add("-w", s.high);
    else std::fputs("tarvex-info: high level unset (-1); -w left out\n", stderr);
    if (s.low != -1) add("-b", s.low);
    else std::fputs("tarvex-info: low level unset (-1); -b left out\n", stderr);
    std::printf("%s\n", words.c_str());
}

// The options and the frames; false after a usage error.
bool parse(int argc, char** argv, request& r) {
    const struct option longs[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    const char* list = nullptr;
    for (int c; (c = getopt_long(argc, argv, "fAardl:h", longs, nullptr)) != -1;) {
        switch (c) {
            case 'f': r.first_only = true; break;
            case 'A': r.any_depth = true; break;
            case 'a': r.words = true; break;
            case 'r': r.report = true; break;
            case 'd': r.digest = true; break;
            case 'l': list = optarg; break;
            case 'h': std::fputs(kUsage, stdout); std::exit(0);
            default: return false;
        }
    }
    r.frames.assign(argv + optind, argv + argc);
    if (list) {
        std::ifstream in(list);
        for (std::string line; std::getline(in, line);) r.frames.push_back(line);
    }
    return !r.frames.empty();
}

// The digest line of each frame; true when every frame loaded.
bool print_digests(const request& r) {
    bool all = true;
    for (const std::string& path : r.frames) {
        image_holder holder;
        SMPTE268M_Header_t header;
        uint64_t digest = 0;
        if (load_dpx(path, true, holder, header) && image_digest(*holder.dpx_reader, digest)) {
            std::printf("%016llx  %s\n", static_cast<unsigned long long>(digest), path.c_str());
            continue;
        }
        std::printf("%s: not a DPX frame tarvex can load\n", path.c_str());
        all = false;
    }
    return all;
}

// The report or words of the first frame that loads; true when one did.
bool print_first(const request& r) {
    for (const std::string& path : r.frames) {
        image_holder holder;
        SMPTE268M_Header_t header;
        if (!load_dpx(path, r.any_depth, holder, header)) continue;
        const auto& e = header.image_element[0];
        // The report is written straight to the descriptor, past stdio's buffer.
        if (r.report) std::fflush(stdout), print_settings_report(*holder.dpx_reader, header);
        if (r.words)
            print_words({int32_t(e.data_offset), e.transfer, int32_t(e.ref_low_data), int32_t(e.ref_high_data)});
        return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    request r;
    if (!parse(argc, argv, r)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (r.digest) return print_digests(r) ? 0 : 1;
    if (r.words || r.report) return print_first(r) ? 0 : 1;
    int loaded = 0;
    for (const std::string& path : r.frames) {
        image_holder holder;
        SMPTE268M_Header_t header;
        describe(path);
        const bool loads = load_dpx(path, r.any_depth, holder, header);
        loaded += loads;
        if (loads && r.first_only) return 0;
    }
    return loaded == int(r.frames.size()) ? 0 : 1;
}
