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
    static fuzzing::memory_file file;
    file.assign(data, size);
    fuzzing::allocation_watch watch;
    {
        image_holder holder;
        if (holder.load(file.path()) != codec_ok) {
            check(!holder.cineon_reader && !holder.dpx_reader, "a failed load left a reader behind");
            return 0;
        }
        if (!holder.cineon_reader) return 0;
        kodakcineon_reader& reader = *holder.cineon_reader;
        check(reader.header_loaded == 1, "a loaded reader has no header");
        check(reader.bit_depth == 10, "a Cineon file loaded with channel 0 other than 10-bit");
        Kodak_Header_t header;
        check(reader.read_header_bytes(&header, sizeof header) == codec_ok, "the header could not be read again");
        fuzzing::read_image_every_way(reader, data, size, true);
    }
    watch.check_bounded_by(size);
    return 0;
}
