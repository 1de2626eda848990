// Reads an image every way a loaded reader offers, with the fuzzer's bytes
// as the file, and checks what comes back against those bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cineon/codec.h"
#include "fuzz/fuzz_support.h"

namespace fuzzing {

// Calls read_image on `reader` with expansion on and then off. The buffer is
// as large as the description asks when the file (`size` bytes at `data`)
// could fill it, and too small otherwise, where the reader must refuse it.
// A direct read that succeeds (every read when `never_expands`) must return
// the file's bytes from the data offset, each 32-bit word reversed when the
// file is in the other order.
void read_image_every_way(cineonreader& reader, const uint8_t* data, size_t size, bool never_expands);

// Loads the fuzzer's bytes through the image holder. A failed load must leave
// no reader behind; a successful one is handed to `inspect`, after which no
// allocation may have outgrown the file. Returns what a fuzz target returns.
template <class Inspect>
int load_and_inspect(const uint8_t* data, size_t size, Inspect inspect) {
    static memory_file file;
    file.assign(data, size);
    allocation_watch watch;
    {
        image_holder holder;
        if (holder.load(file.path()) != codec_ok) {
            check(!holder.cineon_reader && !holder.dpx_reader, "a failed load left a reader behind");
            return 0;
        }
        inspect(holder);
    }
    watch.check_bounded_by(size);
    return 0;
}

}  // namespace fuzzing
