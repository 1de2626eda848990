#include "cineon/image_holder.h"

#include <sys/stat.h>

#include <cstring>

#include "cineon/cineon_reader.h"
#include "cineon/cineon_writer.h"
#include "cineon/dpx_reader.h"
#include "cineon/dpx_writer.h"
#include "common/io.h"

namespace {

// Builds a reader of type R from `args` into `slot` and hands it the open
// `file` with its header read: ok, or io with the slot left null when the
// reader refuses it.
template <class R, class... Args>
codec_result attach_reader(R*& slot, common::descriptor& file, Args... args) {
    slot = new R(args...);
    if (slot->attach(file.release(), true) == codec_result::ok) return codec_result::ok;
    delete slot;
    slot = nullptr;
    return codec_result::io;
}

}  // namespace

codec_result read_magic(int descriptor, uint32_t& magic) {
    magic = 0;
    unsigned char bytes[4];
    if (descriptor < 0 || common::read_at(descriptor, bytes, sizeof bytes, 0) != common::io_result::ok)
        return codec_result::io;
    std::memcpy(&magic, bytes, sizeof bytes);
    return codec_result::ok;
}

image_holder::~image_holder() {
    delete cineon_reader;
    delete cineon_writer;
    delete dpx_reader;
    delete dpx_writer;
}

codec_result image_holder::load(const char* path, bool any_depth) {
    // A holder reused for another file drops the reader of the previous one.
    delete cineon_reader;
    cineon_reader = nullptr;
    delete dpx_reader;
    dpx_reader = nullptr;

    if (!path) return codec_result::io;
    // Only a regular file is a frame: a FIFO, device or folder is refused at
    // once (the open does not wait for a FIFO's writer).
    common::descriptor file = common::open_for_reading(path);
    struct stat st;
    if (!file.valid() || common::status_of(file.get(), st) != common::io_result::ok || !S_ISREG(st.st_mode))
        return codec_result::io;
    uint32_t magic = 0;
    const codec_result result = read_magic(file.get(), magic);
    if (result != codec_result::ok) return result;

    if (magic == cineon_magic || magic == cineon_magic_swapped) return attach_reader(cineon_reader, file);
    if (magic == dpx_magic || magic == dpx_magic_swapped) return attach_reader(dpx_reader, file, any_depth);
    return codec_result::io;
}
