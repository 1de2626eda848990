// The image holder: loads a film-image file by path, building the reader
// that the file's magic selects.
#pragma once

#include <cstdint>

#include "cineon/codec.h"

class kodakcineon_reader;
class kodakcineon_writer;
class smptedpx_reader;
class smptedpx_writer;

// Owns whichever reader or writer is in use for one file.
struct image_holder {
    kodakcineon_reader* cineon_reader = nullptr;  // set when a Cineon file was loaded
    kodakcineon_writer* cineon_writer = nullptr;  // Cineon writer in use, if any
    smptedpx_reader* dpx_reader = nullptr;        // set when a DPX file was loaded
    smptedpx_writer* dpx_writer = nullptr;        // DPX writer in use, if any

    // An empty holder.
    image_holder() = default;
    // Not copyable: it owns what its pointers point to.
    image_holder(const image_holder&) = delete;
    image_holder& operator=(const image_holder&) = delete;
    // Deletes every reader and writer held.
    ~image_holder();

    // Opens the file once, builds the reader that its magic selects and
    // hands it that descriptor with its header read, so header and image come
    // from the same file whatever happens to the path meanwhile: ok, or io
    // for an unreadable, unknown or refused file, after which every pointer is
    // null. With `any_depth` a DPX file of any bit depth, packing and
    // descriptor loads (see smptedpx_reader).
    codec_result load(const char* path, bool any_depth = false);
};

// Reads the first four bytes of the open file `descriptor` into `magic`: ok or io.
codec_result read_magic(int descriptor, uint32_t& magic);
