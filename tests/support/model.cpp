#include "support/model.h"

#include <algorithm>
#include <map>

namespace model {

namespace {

using testdata::bytes;

// The least bytes `pixels` pixels of `components` take: filled (packing 1 or 2) 10-bit data three to a 32-bit word,
// filled 12-bit data one to 16 bits, else bit after bit; beyond 64 bits the largest size, which no file holds.
uint64_t image_size(unsigned __int128 pixels, unsigned components, uint64_t bits, uint64_t packing) {
    unsigned __int128 n = pixels * components;
    n = packing && bits == 10 ? (n + 2) / 3 * 4 : packing && bits == 12 ? n * 2 : (n * bits + 7) / 8;
    return n > UINT64_MAX ? UINT64_MAX : uint64_t(n);
}

// Components a pixel of a DPX descriptor has: RGB 3, RGBA and ABGR 4, the 4:2:2 and 4:4:4(:4) ones 2, 3, 3, 4,
// user-defined 150 to 156 two to eight, anything else one.
unsigned components(uint64_t descriptor) {
    const std::map<uint64_t, unsigned> known = {{50, 3}, {51, 4}, {52, 4}, {100, 2}, {101, 3}, {102, 3}, {103, 4}};
    if (known.count(descriptor)) return known.at(descriptor);
    return descriptor >= 150 && descriptor <= 156 ? unsigned(descriptor - 148) : 1;
}

// The bytes whose order -a reverses: 8-bit none, 16-bit and filled 12-bit 16-bit words, 64-bit 64-bit words,
// 1-, 10-, 32-bit and packed 12-bit 32-bit words; 0 for other depths (and 12-bit of an unknown packing).
uint64_t unit(uint64_t bits, uint64_t packing) {
    const std::map<uint64_t, uint64_t> units = {{1, 4}, {8, 1}, {10, 4}, {16, 2}, {32, 4}, {64, 8}};
    return bits == 12 ? (packing == 0 ? 4 : packing < 3 ? 2 : 0) : units.count(bits) ? units.at(bits) : 0;
}

// One to four channels, 10-bit (a fourth may differ), packed as the count allows, not interleaved.
bool cineon_loads(const bytes& in) {
    const int channels = int8_t(in[193]), packing = in[681];
    bool ok = (channels == 1 || channels == 3 || channels == 4) && in[680] == 0 &&
              (packing == 5 || (packing == 3 && channels == 1) || (packing == 0 && channels == 4));
    for (int k = 0; ok && k < std::min(channels, 3); ++k) ok = in[size_t(196 + 28 * k + 2)] == 10;
    return ok;
}

// The converted file: the header, reversed when `swapped`, with the run's settings when `settings`, its bytes that
// were image data zeros; the image, its `word`-byte units reversed when `swapped`, at the run's offset when the
// settings are rewritten, zeros before it; with -a the user data as it is.
bytes rewritten(const bytes& in, const run& r, uint64_t offset, size_t word, uint64_t packing, bool swapped,
                bool settings) {
    bytes header(in.begin(), in.begin() + 2048), image(in.begin() + long(offset), in.end());
    if (swapped) {
        header = testdata::with_fields_reversed(header, testdata::dpx_swapped_fields());
        for (size_t w = 0; w + word <= image.size(); w += word)
            std::reverse(image.begin() + long(w), image.begin() + long(w + word));
    }
    if (settings)
        for (auto [at, v, n] : std::vector<testdata::patch>{{4, uint32_t(r.offset), 4}, {808, uint32_t(r.offset), 4},
                                                            {784, uint32_t(r.low), 4}, {792, uint32_t(r.high), 4},
                                                            {801, uint8_t(r.transfer), 1}, {804, r.all ? packing : 1, 2}})
            testdata::put(header, at, v, n, r.big);  // of the transfer code only its low byte
    std::fill(header.begin() + long(std::min<uint64_t>(2048, offset)), header.end(), 0);
    const uint64_t at = settings ? uint32_t(r.offset) : offset;
    bytes out(at + image.size(), 0);
    std::copy(image.begin(), image.end(), out.begin() + long(at));
    for (uint64_t i = 2048; r.all && i < std::min(offset, at); ++i) out[i] = in[i];  // -a: user data as it is
    std::copy(header.begin(), header.begin() + long(std::min<uint64_t>(2048, at)), out.begin());
    return out;
}

}  // namespace

std::string cineon_name(const std::string& name) {
    const size_t base = name.rfind('/') + 1, dot = name.rfind('.');
    if (dot == std::string::npos || dot < base) return name + ".cin";
    const std::string extension = name.substr(dot + 1);
    if (extension == "cin") return name;
    const bool digits = !extension.empty() && extension.find_first_not_of("0123456789") == std::string::npos;
    return digits ? name + ".cin" : name.substr(0, dot + 1) + "cin";
}

job convert(const bytes& in, run& r, bool copy) {
    job j;
    auto fail = [&](const char* why) { return j.error = why, j.failures = 1, j; };
    const uint64_t magic = in.size() >= 4 ? testdata::get(in, 0, 4, true) : 0;
    if (magic == 0x802A5FD7 || magic == 0xD75F2A80) {
        if (in.size() < 2048 || !cineon_loads(in)) return fail(load_failed);
        return j.renamed = true, j;
    }
    const bool big = magic == 0x53445058;
    auto field = [&](size_t at, int n) { return testdata::get(in, at, n, big); };
    if ((!big && magic != 0x58504453) || in.size() < 2048) return fail(load_failed);
    const uint64_t offset = field(808, 4), packing = field(804, 2), bits = in[803], descriptor = in[800];
    // Without -a only 8- and 10-bit RGB(A) loads, 10-bit filled by method A; with it every depth whose unit is known.
    const bool rgb = packing != 2 && (bits == 8 || bits == 10) && (descriptor == 50 || descriptor == 51) &&
                     !(bits == 10 && packing == 0);
    if (field(660, 4) != 0xFFFFFFFF || field(770, 2) != 1 || field(806, 2) != 0 || field(768, 2) >= 8 ||
        offset < 1664 || offset > in.size() || !(r.all ? unit(bits, packing) != 0 : rgb))
        return fail(load_failed);

    const auto low = int32_t(field(784, 4)), high = int32_t(field(792, 4));
    const uint8_t transfer = in[801];
    if (r.first) {
        j.report = true, r.first = false;
        r.offset = r.offset == -1 ? int32_t(offset) : r.offset;
        r.low = r.low == -1 ? low : r.low;
        r.high = r.high == -1 ? high : r.high;
        r.transfer = r.transfer == -1 ? transfer : r.transfer;
    }
    if (bits != 10 && !r.all) return fail(not_10bit);
    j.works = true;

    // The reference values compare as the 16-bit numbers the report prints, with -a as stored.
    const bool settings = (r.all ? low : int16_t(low)) != r.low || (r.all ? high : int16_t(high)) != r.high ||
                          transfer != r.transfer ||
                          (packing != 1 && !r.all) || field(4, 4) != uint32_t(r.offset) || field(4, 4) != offset;
    const bool swapped = big != r.big;
    if (!swapped && !settings) return copy ? (j.written = true, j.output = in, j) : j;
    // The header's size (the larger of the stored and the original size, when
    // given) must lie in the file; every byte from the offset on is carried over.
    const uint64_t width = field(772, 4), height = field(776, 4), x = field(1424, 4), y = field(1428, 4);
    auto least = [&](unsigned __int128 w, uint64_t h) {  // without -a as 10-bit RGB filled by method A
        return image_size(w * h, r.all ? components(descriptor) : 3, bits, r.all ? packing : 1);
    };
    const uint64_t size = std::max(least(width, height), least(x == 0 || x == 0xFFFFFFFF ? width : x,
                                                               y == 0 || y == 0xFFFFFFFF ? height : y));
    if (size == 0 || size > in.size() - offset) return fail(read_failed);

    j.output = rewritten(in, r, offset, r.all ? unit(bits, packing) : 4, packing, swapped, settings);
    return j.written = true, j;
}

}  // namespace model
