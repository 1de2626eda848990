// Fuzz target: loads the bytes through the image holder and, when they are a
// DPX file, reads the header and the image every way the reader offers.
#include <cstddef>
#include <cstdint>

#include "cineon/codec.h"
#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/read_checks.h"

using fuzzing::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzzing::load_and_inspect(data, size, [&](image_holder& holder) {
        if (!holder.dpx_reader) return;
        smptedpx_reader& reader = *holder.dpx_reader;
        check(reader.header_loaded == 1, "a loaded reader has no header");
        check((reader.descriptor == 50 && reader.channels == 3) || (reader.descriptor == 51 && reader.channels == 4),
              "descriptor and channel count disagree");
        check(reader.bit_depth == 8 || reader.bit_depth == 10, "a bit depth other than 8 or 10 was accepted");
        SMPTE268M_Header_t header;
        check(reader.read_header_bytes(&header, sizeof header) == codec_ok, "the header could not be read again");
        check(header.magic == dpx_magic, "the header copy is not in host order");
        fuzzing::read_image_every_way(reader, data, size, false);
    });
}
