// tarvex-info: what tarvex reads in a frame (byte order, size, the image data
// offset, transfer and levels of element 0), read with tarvex's own codec, and
// the settings the first frame that loads as DPX gives a run.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"
#include "cineon/image_holder.h"
#include "driver/settings_report.h"

namespace {

void usage() {
    std::fputs(
        "usage: tarvex-info [-f] [-a] [-r] (FRAME... | -l LIST)\n"
        "  one line per frame: byte order, size, bits, offset, transfer, low and high\n"
        "  -f       stop after the first frame that loads as DPX\n"
        "  -a       print only the -o -t -w -b words that frame gives a tarvex run\n"
        "  -r       print only tarvex's settings report for that frame\n"
        "  -l LIST  take the frames from LIST, one path a line\n",
        stderr);
}

// Element 0's values as a tarvex run takes them from its first DPX frame.
struct frame_settings {
    int32_t offset, transfer, low, high;
};

// Loads `path` as tarvex's job does; false unless it loads as DPX.
bool load_dpx(const char* path, image_holder& holder, SMPTE268M_Header_t& header) {
    return holder.load(path) == codec_result::ok && holder.dpx_reader &&
           holder.dpx_reader->read_header_bytes(&header, sizeof header) == codec_result::ok;
}

bool host_is_little_endian() {
    const uint16_t probe = 1;
    return *reinterpret_cast<const uint8_t*>(&probe) == 1;
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

}  // namespace

int main(int argc, char** argv) {
    bool first_only = false, words = false, report = false;
    const char* list = nullptr;
    int c;
    while ((c = getopt(argc, argv, "farl:")) != -1) {
        switch (c) {
            case 'f': first_only = true; break;
            case 'a': words = true; break;
            case 'r': report = true; break;
            case 'l': list = optarg; break;
            default: usage(); return 2;
        }
    }
    std::vector<std::string> frames(argv + optind, argv + argc);
    if (list) {
        std::ifstream in(list);
        for (std::string line; std::getline(in, line);) frames.push_back(line);
    }
    if (frames.empty()) {
        usage();
        return 2;
    }
    const bool lines = !words && !report;
    int loaded = 0;
    for (const std::string& path : frames) {
        image_holder holder;
        SMPTE268M_Header_t header;
        if (!load_dpx(path.c_str(), holder, header)) {
            if (lines) std::printf("%s: not a DPX frame tarvex can load\n", path.c_str());
            continue;
        }
        ++loaded;
        const smptedpx_reader& reader = *holder.dpx_reader;
        const auto& e = header.image_element[0];
        const frame_settings s{int32_t(e.data_offset), e.transfer, int32_t(e.ref_low_data), int32_t(e.ref_high_data)};
        // The file is in the host's order unless the reader had to swap it.
        const bool little = host_is_little_endian() != bool(reader.swap_bytes);
        if (lines)
            std::printf("%s: %s %ux%u %u-bit offset %d transfer %d low %d high %d\n", path.c_str(),
                        little ? "little-endian" : "big-endian", reader.width, reader.height,
                        unsigned(reader.bit_depth), s.offset, s.transfer, s.low, s.high);
        if (report) {
            std::fflush(stdout);
            print_settings_report(reader, header);
        }
        if (words) print_words(s);
        if (first_only || !lines) break;
    }
    return loaded > 0 && (first_only || !lines || loaded == int(frames.size())) ? 0 : 1;
}
