// Reads an image every way a loaded reader offers, with the fuzzer's bytes
// as the file, and checks what comes back against those bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cineon/codec.h"

namespace fuzzing {

// Calls read_image on `reader` with expansion on and then off. The buffer is
// as large as the description asks when the file (`size` bytes at `data`)
// could fill it, and too small otherwise, where the reader must refuse it.
// A direct read that succeeds (every read when `never_expands`) must return
// the file's bytes from the data offset, each 32-bit word reversed when the
// file is in the other order.
void read_image_every_way(cineonreader& reader, const uint8_t* data, size_t size, bool never_expands);

}  // namespace fuzzing
