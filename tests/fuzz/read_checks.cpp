#include "fuzz/read_checks.h"

#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace fuzzing {

namespace {

// The bytes a read can fill at most: the whole file, or 4/3 of it when
// 3-byte pixels are expanded to 4-byte words.
uint64_t fillable(size_t size) { return (uint64_t(size) / 3 + 1) * 4; }

bool direct_read(const cineonreader& reader) {
    return !reader.expand_to_10bit || (!reader.packed && reader.bit_depth == 10);
}

void check_direct_bytes(const cineonreader& reader, const std::vector<uint8_t>& buffer, const uint8_t* data,
                        size_t size) {
    const uint64_t offset = reader.data_offset;
    check(offset + buffer.size() <= size, "a read succeeded past the end of the file");
    for (size_t i = 0; i < buffer.size(); ++i) {
        size_t from = i;
        if (reader.swap_bytes && i < buffer.size() / 4 * 4) from = i / 4 * 4 + 3 - i % 4;
        check(buffer[i] == data[offset + from], "a direct read returned other bytes than the file holds");
    }
}

}  // namespace

void read_image_every_way(cineonreader& reader, const uint8_t* data, size_t size, bool never_expands) {
    for (uint32_t expand : {1u, 0u}) {
        reader.expand_to_10bit = expand;
        uint64_t wanted = 0;
        if (!reader.image_bytes(wanted) || wanted > fillable(size)) {
            std::vector<uint8_t> small(16);
            check(reader.read_image(small.data(), small.size()) == codec_bad_argument,
                  "a buffer smaller than the image was not refused");
            continue;
        }
        // An image of no pixels is read into a buffer of some bytes.
        std::vector<uint8_t> buffer(wanted > 0 ? size_t(wanted) : 16);
        int r = reader.read_image(buffer.data(), buffer.size());
        check(r == codec_ok || r == codec_unsupported || r == codec_io, "unexpected read_image result");
        if (r != codec_ok) continue;
        if (never_expands || direct_read(reader)) {
            check_direct_bytes(reader, buffer, data, size);
            continue;
        }
        // Expanded words hold three 10-bit codes shifted up by two bits.
        for (size_t i = 0; i + 4 <= buffer.size(); i += 4) {
            uint32_t word;
            std::memcpy(&word, &buffer[i], 4);
            check((word & 3) == 0, "an expanded word has its two low bits set");
        }
    }
    reader.expand_to_10bit = 1;
}

}  // namespace fuzzing
