// Test files built byte by byte at absolute offsets, independently of the codecs.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testdata {

using bytes = std::vector<uint8_t>;
using fields = std::vector<std::pair<size_t, int>>;  // (offset, width) pairs
constexpr bool host_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// `n` bytes at `at` in the given byte order.
void put(bytes& b, size_t at, uint64_t v, int n, bool big_endian);
uint64_t get(const bytes& b, size_t at, int n, bool big_endian);

// A file's bytes, integers stored in the file's own byte order.
struct byte_image {
    bytes data;
    bool big;
    byte_image(size_t size, bool big_endian) : data(size, 0), big(big_endian) {}
    bool foreign() const { return big == host_little; }  // the file's order is not the host's
    void u8(size_t at, uint8_t v) { put(data, at, v, 1, big); }
    void u16(size_t at, uint16_t v) { put(data, at, v, 2, big); }
    void u32(size_t at, uint32_t v) { put(data, at, v, 4, big); }
    void f32(size_t at, float v);         // in host order: the codecs never swap floats
    void text(size_t at, const char* s);  // without its NUL
    void noise(size_t from, size_t to);   // a fixed pseudo-random pattern
};

const fields& dpx_swapped_fields();  // every integer field a byte-order conversion reverses
bytes with_fields_reversed(bytes image, const fields& reversed);

// A minimal DPX file the reader accepts: one element, data at 2048 with room for `data_bytes`, all else zero.
byte_image dpx_file(bool big, uint32_t width, uint32_t height, uint8_t descriptor = 50, uint8_t bits = 10,
                    uint16_t packing = 1, size_t data_bytes = 0);
bytes make_cineon(bool big_endian, uint32_t width, uint32_t height);  // 10-bit RGB

// A change to a frame: `width` bytes at `at` set to `value` in the frame's order; width 0 makes the
// file `value` bytes long (new bytes noise); a negative width fills -width bytes with the byte `value`.
struct patch { size_t at; uint64_t value; int width; };
// A 5 x 3 10-bit RGB DPX frame at 2048, reference values 95 and 685, transfer 3, creator
// "hand-built scanner"; every byte no check reads, the image too, is noise, so a wrongly reversed field shows.
bytes frame(bool big, const std::vector<patch>& patches = {});
// Patches that put a `width` x `height` image at `offset` in a file ending `tail` bytes after it.
std::vector<patch> image_at(uint32_t offset, uint32_t width = 5, uint32_t height = 3, uint32_t tail = 0);

bytes read_file(const std::string& path);  // empty when it cannot be read
bool write_file(const std::string& path, const bytes& data);

}  // namespace testdata
