// Reader of Kodak Cineon files.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

// Reads a Cineon header into the description and the image as stored.
class kodakcineon_reader : public cineonreader {
public:
    // A closed reader with the description's defaults.
    kodakcineon_reader() = default;
    // Closes the descriptor if one is still open.
    ~kodakcineon_reader() override = default;

    // Loads and checks the header and fills the description: ok, the header
    // read's failure, or unsupported for a channel layout the codecs do not handle.
    codec_result read_header() override;
    // Reads the 2048-byte header into `buf`, swapped into host order when the
    // file is in the other order: ok, io when short, not_open, bad_magic, bad_argument.
    codec_result read_header_bytes(void* buf, uint32_t size) override;
    // Reads the 10-bit image into `buf` of `size` bytes, words in host order;
    // never expands 8-bit data: ok, unsupported, io, not_open, bad_argument.
    codec_result read_image(void* buf, uint64_t size) override;
};
