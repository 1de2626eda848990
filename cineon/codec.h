// The film-image codec interface: the result every codec operation returns,
// the image description, and the base classes the DPX and Kodak Cineon
// readers and writers derive from.
#pragma once

#include <cstdint>

#include "cineon/byteswap.h"
#include "cineon/cineon_header.h"
#include "cineon/dpx_header.h"

// What a codec operation came to; the numbers are those the codecs have
// always reported.
// clang-format off
enum class [[nodiscard]] codec_result : int {
    ok = 0,            // success
    unsupported = 1,   // unsupported image or conversion
    already_open = 2,  // the file is already open
    io = 3,            // failed open, short read or short write
    not_open = 4,      // no file is open
    bad_magic = 5,     // the file does not carry the format's magic
    bad_header = 6,    // the header holds contents the codecs do not handle
    bad_argument = 7,  // null buffer, zero or too small size, or a header buffer not 2048 bytes
};
// clang-format on

// Size in bytes of both formats' file headers.
constexpr uint32_t codec_header_size = 2048;

// Abstract root: one file descriptor and the image description.
class cineon {
public:
    // A closed codec with the description's defaults.
    cineon() = default;
    // Not copyable: the descriptor has one owner; see copy_description.
    cineon(const cineon&) = delete;
    cineon& operator=(const cineon&) = delete;
    // Closes the descriptor if one is still open.
    virtual ~cineon() = 0;

    // Closes the descriptor; returns close's result, or `fd` when none is open.
    int close();
    // Copies every description field of `from` except `fd`.
    void copy_description(const cineon& from);
    // Bytes of image data the description calls for: width x height x 4, or
    // x 3 for 3-channel 8-bit data read without expansion: ok, or
    // unsupported when the product does not fit in 64 bits.
    codec_result image_bytes(uint64_t& bytes) const;

    uint32_t width = 0;            // pixels per line
    uint32_t height = 0;           // lines
    uint32_t descriptor = 0;       // DPX descriptor code, 50 RGB or 51 RGBA
    uint16_t channels = 0;         // 3 or 4
    uint16_t bit_depth = 0;        // bits per component
    uint32_t transposed = 0;       // lines and columns exchanged
    uint32_t mirror_x = 0;         // lines run right to left
    uint32_t flip_y = 0;           // image runs bottom to top
    uint32_t header_loaded = 0;    // set once read_header succeeded
    uint32_t expand_to_10bit = 1;  // image reads deliver 10-bit packed words
    uint32_t packed = 0;           // data is not filled to words by method A
    uint32_t is_log = 0;           // logarithmic transfer characteristic
    uint32_t swap_bytes = 0;       // the file's byte order is not the host's
    uint16_t ref_low = 0;          // reference low data code
    uint16_t ref_high = 1023;      // reference high data code
    float pixel_aspect = 0.0f;     // horizontal / vertical pixel aspect
    float gamma = 0.0f;            // television gamma
    float black_level = 0.0f;      // television black level
    float black_gain = 0.0f;       // television black gain
    float break_point = 0.0f;      // television break point
    float white_level = 0.0f;      // television white level
    uint32_t data_offset = 0;      // file offset of the image data
    uint32_t time_code = 0;        // SMPTE time code
    float frame_rate = 0.0f;       // frames per second
    int32_t fd = -1;               // open descriptor, -1 when closed
};

// Base of the readers: opening, raw header and offset reads.
class cineonreader : public cineon {
public:
    // A closed reader; readers start with gamma 1.0 and 24 frames per second.
    cineonreader();

    // Opens `path` read-only and, when asked, reads the header:
    // already_open, io when the open fails, else read_header's result.
    codec_result open(const char* path, bool read_header);
    // Takes over the open descriptor `file` and, when asked, reads the
    // header through it: already_open (the descriptor is then closed), io
    // for an invalid descriptor, else read_header's result.
    codec_result attach(int file, bool read_header);

    // Loads the header, checks it and fills the description.
    virtual codec_result read_header() = 0;
    // Reads the 2048 header bytes into `buf` as they lie in the file; the
    // readers override it to check the magic and swap.
    virtual codec_result read_header_bytes(void* buf, uint32_t size);
    // Reads the image into `buf` of `size` bytes; 1 in this base.
    virtual codec_result read_image(void* buf, uint64_t size);
    // Reads exactly `size` bytes at file offset `offset` into `buf`.
    virtual codec_result read_at(void* buf, uint64_t offset, uint64_t size);
    // Reads the user-defined data area; neither format supports it, returns unsupported.
    virtual codec_result read_user_data(void* buf, uint64_t size);
    // Reads `count` lines from line `first`; not supported, returns unsupported.
    virtual codec_result read_lines(void* buf, uint32_t first, uint32_t count, uint64_t size);
    // Reads image element `element` other than the first; not supported, returns unsupported.
    virtual codec_result read_element(uint32_t element, void* buf, uint64_t size);
    // Reads a reduced preview of the image; not supported, returns unsupported.
    virtual codec_result read_thumbnail(void* buf, uint32_t max_width, uint32_t max_height, uint64_t size);

protected:
    // Seeks to `offset` and reads exactly `size` bytes: ok or io.
    codec_result read_exact(void* buf, uint64_t offset, uint64_t size);
    // The open file's size in bytes: ok or io.
    codec_result file_size(uint64_t& bytes) const;
};

// Base of the writers: opening, raw header and image writes.
class cineonwriter : public cineon {
public:
    // Creates or truncates `path` (mode 0664); the file is written in the
    // host's byte order when `host_order`, else swapped where the format
    // swaps: already_open, io when the open fails, else write_header's
    // result.
    codec_result open(const char* path, bool write_header, bool host_order);

    // Builds the header from the description and writes it at offset 0.
    virtual codec_result write_header() = 0;
    // Writes the 2048 bytes of `buf` at offset 0 unchanged.
    virtual codec_result write_header_bytes(void* buf, uint32_t size);
    // Writes `size` bytes of `buf` unchanged at `data_offset`.
    virtual codec_result write_image(const void* buf, uint64_t size);

protected:
    // Seeks to `offset` and writes exactly `size` bytes: ok or io.
    codec_result write_exact(const void* buf, uint64_t offset, uint64_t size);
};
