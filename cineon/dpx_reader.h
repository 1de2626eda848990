// Reader of DPX (SMPTE 268M) files.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

// Reads a DPX header into the description and the image as 10-bit words.
class smptedpx_reader : public cineonreader {
public:
    // A closed reader with the description's defaults.
    smptedpx_reader() = default;
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

private:
    // Expands `width` x `height` 8-bit pixels of `channels` components into
    // one 10-bit word each in `buf`.
    codec_result expand_8bit(void* buf, uint64_t pixels);
};

// The 10-bit code that expansion gives the 8-bit value `v`.
uint32_t dpx_expand_8bit(uint8_t v);
