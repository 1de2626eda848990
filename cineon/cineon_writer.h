// Writer of Kodak Cineon files.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

// Writes a Cineon header built from the description, always in host order.
class kodakcineon_writer : public cineonwriter {
public:
    // A closed writer with the description's defaults.
    kodakcineon_writer() = default;
    // Closes the descriptor if one is still open.
    ~kodakcineon_writer() override = default;

    // Builds the header from the defaults and the description and writes it
    // in host order whatever `swap_bytes` says: ok, unsupported, io, not_open.
    codec_result write_header() override;
};
