// Reader of DPX (SMPTE 268M) files.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

// Reads a DPX header into the description and the image as 10-bit words.
class smptedpx_reader : public cineonreader {
public:
    // A closed reader with the description's defaults; with `any_depth`
    // frames of every bit depth, packing and descriptor load, not only the
    // 8- and 10-bit RGB(A) that the image reads expand.
    explicit smptedpx_reader(bool any_depth = false) : any_depth_(any_depth) {}
    // Closes the descriptor if one is still open.
    ~smptedpx_reader() override = default;

    // Loads and checks the header and fills the description: ok, or the
    // header read's failure, or bad_header for contents the codecs do not handle.
    codec_result read_header() override;
    // Reads the 2048-byte header into `buf`, swapped into host order when the
    // file is in the other order: ok, io when short, not_open, bad_magic, bad_argument.
    codec_result read_header_bytes(void* buf, uint32_t size) override;
    // Reads the image into `buf` of `size` bytes as stored, or expanded from
    // 8-bit components to 10-bit words: ok, unsupported, io, not_open,
    // bad_argument. Throws std::bad_alloc only when memory runs out.
    codec_result read_image(void* buf, uint64_t size) override;

    // Bytes of the unit whose byte order differs between the two orders,
    // worked out by read_header from the bit depth and packing: 1 (bytes:
    // none), 2, 4 or 8.
    uint32_t swap_unit = 4;
    // The least number of bytes the stored image takes from `data_offset` on,
    // by read_header: the larger of what the original and the stored size
    // call for; beyond 64 bits, the largest size.
    uint64_t image_size = 0;

private:
    // The 8- and 10-bit RGB and RGBA frames the image reads handle.
    codec_result check_rgb(const SMPTE268M_ImageElement_t& e);
    // Any depth, packing and descriptor whose unit is known.
    codec_result check_any_depth(const SMPTE268M_ImageElement_t& e);

    bool any_depth_;
    // Expands `width` x `height` 8-bit pixels of `channels` components into
    // one 10-bit word each in `buf`.
    codec_result expand_8bit(void* buf, uint64_t pixels);
};

// The 10-bit code that expansion gives the 8-bit value `v`.
uint32_t dpx_expand_8bit(uint8_t v);
// The unit (see swap_unit) of components of `bits` bits with `packing`: 1 for
// 8-bit; 4 for 1-bit, 10-bit, 12-bit packed (0) and 32-bit; 2 for 12-bit
// filled (1, 2) and 16-bit; 8 for 64-bit; 0 for any other.
uint32_t dpx_swap_unit(uint32_t bits, uint32_t packing);
// Components a pixel of descriptor `descriptor` carries (on average, for the
// 4:2:2 ones); 1 for the single-component and the reserved codes.
uint32_t dpx_components(uint32_t descriptor);
// The least bytes `pixels` pixels of `components` components of `bits` bits
// take with `packing` (filled 10-bit: three components to a 32-bit word;
// filled 12-bit: one to 16 bits; else packed bit after bit), line ends not
// padded; beyond 64 bits, the largest size.
uint64_t dpx_image_bytes(uint64_t pixels, uint32_t components, uint32_t bits, uint32_t packing);
