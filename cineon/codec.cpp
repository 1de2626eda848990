#include "cineon/codec.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "cineon/cineon_reader.h"
#include "cineon/cineon_writer.h"
#include "cineon/dpx_reader.h"
#include "cineon/dpx_writer.h"
#include "common/io.h"

cineon::~cineon() { close(); }

int cineon::close() {
    if (fd < 0) return fd;
    common::descriptor owned(fd);
    fd = -1;
    return owned.close() == common::io_result::ok ? 0 : -1;
}

void cineon::copy_description(const cineon& from) {
    int32_t own = fd;
    width = from.width;
    height = from.height;
    descriptor = from.descriptor;
    channels = from.channels;
    bit_depth = from.bit_depth;
    transposed = from.transposed;
    mirror_x = from.mirror_x;
    flip_y = from.flip_y;
    header_loaded = from.header_loaded;
    expand_to_10bit = from.expand_to_10bit;
    packed = from.packed;
    is_log = from.is_log;
    swap_bytes = from.swap_bytes;
    ref_low = from.ref_low;
    ref_high = from.ref_high;
    pixel_aspect = from.pixel_aspect;
    gamma = from.gamma;
    black_level = from.black_level;
    black_gain = from.black_gain;
    break_point = from.break_point;
    white_level = from.white_level;
    data_offset = from.data_offset;
    time_code = from.time_code;
    frame_rate = from.frame_rate;
    fd = own;
}

bool cineon::image_bytes(uint64_t& bytes) const {
    uint64_t per_pixel = (!expand_to_10bit && channels == 3 && bit_depth == 8) ? 3 : 4;
    uint64_t pixels = uint64_t(width) * uint64_t(height);
    return !__builtin_mul_overflow(pixels, per_pixel, &bytes);
}

cineonreader::cineonreader() {
    gamma = 1.0f;
    frame_rate = 24.0f;
}

int cineonreader::open(const char* path, bool read_header) {
    if (fd >= 0) return codec_already_open;
    if (!path) return codec_io;
    return attach(common::open_for_reading(path).release(), read_header);
}

int cineonreader::attach(int file, bool read_header) {
    common::descriptor owned(file);
    if (fd >= 0) return codec_already_open;
    if (!owned.valid()) return codec_io;
    fd = owned.release();
    // Each frame is read once; NOREUSE keeps it from crowding the page cache.
    posix_fadvise(fd, 0, 0, POSIX_FADV_NOREUSE);
    if (!read_header) return codec_ok;
    return this->read_header();
}

int cineonreader::read_header_bytes(void* buf, uint32_t size) {
    if (!buf || size != codec_header_size) return codec_bad_argument;
    if (fd < 0) return codec_not_open;
    return read_exact(buf, 0, size);
}

int cineonreader::read_image(void*, uint64_t) { return codec_unsupported; }

int cineonreader::read_at(void* buf, uint64_t offset, uint64_t size) {
    if (!buf || size == 0) return codec_bad_argument;
    if (fd < 0) return codec_not_open;
    return read_exact(buf, offset, size);
}

int cineonreader::read_user_data(void*, uint64_t) { return codec_unsupported; }

int cineonreader::read_lines(void*, uint32_t, uint32_t, uint64_t) { return codec_unsupported; }

int cineonreader::read_element(uint32_t, void*, uint64_t) { return codec_unsupported; }

int cineonreader::read_thumbnail(void*, uint32_t, uint32_t, uint64_t) { return codec_unsupported; }

int cineonreader::read_exact(void* buf, uint64_t offset, uint64_t size) {
    return common::read_at(fd, buf, size, offset) == common::io_result::ok ? codec_ok : codec_io;
}

int cineonreader::file_size(uint64_t& bytes) const {
    return common::size_of(fd, bytes) == common::io_result::ok ? codec_ok : codec_io;
}

int cineonwriter::open(const char* path, bool write_header, bool host_order) {
    if (fd >= 0) return codec_already_open;
    if (!path) return codec_io;
    fd = common::open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0664).release();
    if (fd < 0) return codec_io;
    swap_bytes = host_order ? 0 : 1;
    if (!write_header) return codec_ok;
    return this->write_header();
}

int cineonwriter::write_header_bytes(void* buf, uint32_t size) {
    if (!buf || size != codec_header_size) return codec_bad_argument;
    if (fd < 0) return codec_not_open;
    return write_exact(buf, 0, size);
}

int cineonwriter::write_image(const void* buf, uint64_t size) {
    if (fd < 0) return codec_not_open;
    if (!buf) return codec_bad_argument;
    return write_exact(buf, data_offset, size);
}

int cineonwriter::write_exact(const void* buf, uint64_t offset, uint64_t size) {
    return common::write_at(fd, buf, size, offset) == common::io_result::ok ? codec_ok : codec_io;
}

int read_magic(int descriptor, uint32_t& magic) {
    magic = 0;
    unsigned char bytes[4];
    if (descriptor < 0 || common::read_at(descriptor, bytes, sizeof bytes, 0) != common::io_result::ok)
        return codec_io;
    std::memcpy(&magic, bytes, sizeof bytes);
    return codec_ok;
}

image_holder::~image_holder() {
    delete cineon_reader;
    delete cineon_writer;
    delete dpx_reader;
    delete dpx_writer;
}

int image_holder::load(const char* path) {
    // A holder reused for another file drops the reader of the previous one.
    delete cineon_reader;
    cineon_reader = nullptr;
    delete dpx_reader;
    dpx_reader = nullptr;

    if (!path) return codec_io;
    // Only a regular file is a frame: a FIFO, device or folder is refused at
    // once (the open does not wait for a FIFO's writer).
    common::descriptor file = common::open_for_reading(path);
    struct stat st;
    if (!file.valid() || common::status_of(file.get(), st) != common::io_result::ok || !S_ISREG(st.st_mode))
        return codec_io;
    uint32_t magic = 0;
    int result = read_magic(file.get(), magic);
    if (result != codec_ok) return result;

    if (magic == cineon_magic || magic == cineon_magic_swapped) {
        cineon_reader = new kodakcineon_reader();
        if (cineon_reader->attach(file.release(), true) == codec_ok) return codec_ok;
        delete cineon_reader;
        cineon_reader = nullptr;
        return codec_io;
    }
    if (magic == dpx_magic || magic == dpx_magic_swapped) {
        dpx_reader = new smptedpx_reader();
        if (dpx_reader->attach(file.release(), true) == codec_ok) return codec_ok;
        delete dpx_reader;
        dpx_reader = nullptr;
        return codec_io;
    }
    return codec_io;
}
