// Test files built byte by byte at absolute offsets, independently of the
// codecs, and the bytes a correct conversion must produce from them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testdata {

using bytes = std::vector<uint8_t>;

// What goes into a hand-built DPX file.
struct dpx_layout {
    bool big_endian = true;
    uint32_t width = 5, height = 3;
    uint32_t image_offset = 2048;     // header offset 4
    uint32_t element_offset = 2048;   // element 0 offset to data (808)
    uint32_t ref_low = 95, ref_high = 685;
    uint8_t descriptor = 50, transfer = 3, bit_size = 10;
    uint16_t packing = 1;
    uint32_t x_orig = 0, y_orig = 0;  // 0 = not given
    std::string creator = "hand-built scanner";
    std::string date = "2026:11:21:10:00:00UTC";
    uint32_t extra_image_words = 0;   // stored beyond width x height
    uint32_t trailing_bytes = 0;      // file bytes after the image and header
};

// Stores `v` in `n` bytes at `at` in the given byte order.
void put(bytes& b, size_t at, uint64_t v, int n, bool big_endian);
// Reads `n` bytes at `at` in the given byte order.
uint64_t get(const bytes& b, size_t at, int n, bool big_endian);

// A DPX file with every header field the codecs look at filled, float
// fields holding recognisable non-symmetric bytes, text in the text fields,
// user data between the header and the image, and a pixel pattern.
bytes make_dpx(const dpx_layout& layout);

// Offsets and widths of every integer field a byte-order conversion reverses.
const std::vector<std::pair<size_t, int>>& dpx_swapped_fields();

// The file tarvex must write for a big-endian `input` made by make_dpx with
// no settings change: integer fields and image words reversed, floats and
// text as they were, zeros between the header and the image; no header
// bytes at or past the image's offset.
bytes converted(const bytes& input, const dpx_layout& layout);

// A Cineon file in the given byte order (magic 0x802A5FD7 in it).
bytes make_cineon(bool big_endian, uint32_t width, uint32_t height);

// True on a little-endian host.
constexpr bool host_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// A file's bytes, with integers placed in the file's own byte order.
struct byte_image {
    bytes data;  // the whole file
    bool big;    // integers are stored most significant byte first

    // `size` zero bytes in the given order.
    byte_image(size_t size, bool big_endian) : data(size, 0), big(big_endian) {}
    // True when the file's order is not the host's.
    bool foreign() const { return big == host_little; }
    // One-, two- and four-byte integers at `offset` in the file's order.
    void u8(size_t offset, uint8_t v) { put(data, offset, v, 1, big); }
    void u16(size_t offset, uint16_t v) { put(data, offset, v, 2, big); }
    void u32(size_t offset, uint32_t v) { put(data, offset, v, 4, big); }
    // Stores a float's bytes in host order whatever the file's order: the
    // codecs never swap floating-point header fields.
    void f32(size_t offset, float v);
    // The characters of `s`, without its NUL.
    void text(size_t offset, const char* s);
    // Fills [from, to) with a fixed pseudo-random pattern.
    void noise(size_t from, size_t to);
};

// The bytes of `image` with each listed (offset, width) field reversed.
bytes with_fields_reversed(bytes image, const std::vector<std::pair<size_t, int>>& fields);

// A host-order 32-bit word from four bytes.
uint32_t host_word(const uint8_t* p);
// The host-order 16-bit integer at `at` in `b`; throws when `b` is too short.
uint16_t u16_at(const bytes& b, size_t at);
// The host-order 32-bit integer at `at` in `b`; throws when `b` is too short.
uint32_t u32_at(const bytes& b, size_t at);
// The host-order float at `at` in `b`; throws when `b` is too short.
float f32_at(const bytes& b, size_t at);
// The text at `at` in `b` up to its NUL, at most `max` bytes long.
std::string text_at(const bytes& b, size_t at, size_t max);

// Offset of the image data in the files dpx_file builds.
constexpr uint32_t dpx_test_offset = 2048;

// A minimal DPX file the reader accepts: one element of `width` x `height`
// pixels, the given descriptor, bit size and packing, data at 2048 and room
// for `data_bytes` bytes of image data; every other byte zero.
byte_image dpx_file(bool big, uint32_t width, uint32_t height, uint8_t descriptor = 50, uint8_t bits = 10,
                    uint16_t packing = 1, size_t data_bytes = 0);

// Reads a whole file; empty when it cannot be read.
bytes read_file(const std::string& path);
// Writes a whole file; false on failure.
bool write_file(const std::string& path, const bytes& data);

}  // namespace testdata
