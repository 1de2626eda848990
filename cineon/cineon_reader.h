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

    // Loads and checks the header and fills the description: 0, the header
    // read's failure, or 1 for a channel layout the codecs do not handle.
    int read_header() override;
    // Reads the 2048-byte header into `buf`, swapped into host order when the
    // file is in the other order: 0, 3 short, 4 not open, 5 not Cineon, 7 bad argument.
    int read_header_bytes(void* buf, uint32_t size) override;
    // Reads the 10-bit image into `buf` of `size` bytes, words in host order;
    // never expands 8-bit data: 0, 1, 3 short, 4 not open, 7 bad argument.
    int read_image(void* buf, uint64_t size) override;
};
