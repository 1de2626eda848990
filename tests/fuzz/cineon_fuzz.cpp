// Fuzz target: loads the bytes through the image holder and, when they are a
// Cineon file, reads the header and the image every way the reader offers.
#include <cstddef>
#include <cstdint>

#include "cineon/cineon_header.h"
#include "cineon/cineon_reader.h"
#include "cineon/codec.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/read_checks.h"

using fuzzing::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzzing::load_and_inspect(data, size, [&](image_holder& holder) {
        if (!holder.cineon_reader) return;
        kodakcineon_reader& reader = *holder.cineon_reader;
        check(reader.header_loaded == 1, "a loaded reader has no header");
        check(reader.bit_depth == 10, "a Cineon file loaded with channel 0 other than 10-bit");
        Kodak_Header_t header;
        check(reader.read_header_bytes(&header, sizeof header) == codec_ok, "the header could not be read again");
        fuzzing::read_image_every_way(reader, data, size, true);
    });
}
