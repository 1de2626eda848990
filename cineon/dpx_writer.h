// Writer of DPX (SMPTE 268M) files.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

// Writes a DPX header built from the description, then the image as given.
class smptedpx_writer : public cineonwriter {
public:
    // A closed writer with the description's defaults.
    smptedpx_writer() = default;
    // Closes the descriptor if one is still open.
    ~smptedpx_writer() override = default;

    // Builds the header from the defaults and the description and writes it,
    // swapped when `swap_bytes` is set: ok, unsupported, io, not_open.
    codec_result write_header() override;
    // Writes the 2048 bytes of `buf` at offset 0, first swapping them in
    // place when `swap_bytes` is set: ok, io, not_open, bad_argument.
    codec_result write_header_bytes(void* buf, uint32_t size) override;
};

// Overwrites `header` with the defaults of a new host-order DPX header,
// dated with the local time now.
void dpx_default_header(SMPTE268M_Header_t& header);
