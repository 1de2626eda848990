#include "cineon/codec.h"

#include <fcntl.h>
#include <sys/stat.h>

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

codec_result cineon::image_bytes(uint64_t& bytes) const {
    uint64_t per_pixel = (!expand_to_10bit && channels == 3 && bit_depth == 8) ? 3 : 4;
    uint64_t pixels = uint64_t(width) * uint64_t(height);
    return __builtin_mul_overflow(pixels, per_pixel, &bytes) ? codec_result::unsupported : codec_result::ok;
}

cineonreader::cineonreader() {
    gamma = 1.0f;
    frame_rate = 24.0f;
}

codec_result cineonreader::open(const char* path, bool read_header) {
    if (fd >= 0) return codec_result::already_open;
    if (!path) return codec_result::io;
    return attach(common::open_for_reading(path).release(), read_header);
}

codec_result cineonreader::attach(int file, bool read_header) {
    common::descriptor owned(file);
    if (fd >= 0) return codec_result::already_open;
    if (!owned.valid()) return codec_result::io;
    fd = owned.release();
    // Each frame is read once; NOREUSE keeps it from crowding the page cache.
    posix_fadvise(fd, 0, 0, POSIX_FADV_NOREUSE);
    if (!read_header) return codec_result::ok;
    return this->read_header();
}

codec_result cineonreader::read_header_bytes(void* buf, uint32_t size) {
    if (!buf || size != codec_header_size) return codec_result::bad_argument;
    if (fd < 0) return codec_result::not_open;
    return read_exact(buf, 0, size);
}

codec_result cineonreader::read_image(void*, uint64_t) { return codec_result::unsupported; }

codec_result cineonreader::read_at(void* buf, uint64_t offset, uint64_t size) {
    if (!buf || size == 0) return codec_result::bad_argument;
    if (fd < 0) return codec_result::not_open;
    return read_exact(buf, offset, size);
}

codec_result cineonreader::read_user_data(void*, uint64_t) { return codec_result::unsupported; }

codec_result cineonreader::read_lines(void*, uint32_t, uint32_t, uint64_t) { return codec_result::unsupported; }

codec_result cineonreader::read_element(uint32_t, void*, uint64_t) { return codec_result::unsupported; }

codec_result cineonreader::read_thumbnail(void*, uint32_t, uint32_t, uint64_t) { return codec_result::unsupported; }

codec_result cineonreader::read_exact(void* buf, uint64_t offset, uint64_t size) {
    return common::read_at(fd, buf, size, offset) == common::io_result::ok ? codec_result::ok : codec_result::io;
}

codec_result cineonreader::file_size(uint64_t& bytes) const {
    return common::size_of(fd, bytes) == common::io_result::ok ? codec_result::ok : codec_result::io;
}

codec_result cineonwriter::open(const char* path, bool write_header, bool host_order) {
    if (fd >= 0) return codec_result::already_open;
    if (!path) return codec_result::io;
    fd = common::open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0664).release();
    if (fd < 0) return codec_result::io;
    swap_bytes = host_order ? 0 : 1;
    if (!write_header) return codec_result::ok;
    return this->write_header();
}

codec_result cineonwriter::write_header_bytes(void* buf, uint32_t size) {
    if (!buf || size != codec_header_size) return codec_result::bad_argument;
    if (fd < 0) return codec_result::not_open;
    return write_exact(buf, 0, size);
}

codec_result cineonwriter::write_image(const void* buf, uint64_t size) {
    if (fd < 0) return codec_result::not_open;
    if (!buf) return codec_result::bad_argument;
    return write_exact(buf, data_offset, size);
}

codec_result cineonwriter::write_exact(const void* buf, uint64_t offset, uint64_t size) {
    return common::write_at(fd, buf, size, offset) == common::io_result::ok ? codec_result::ok : codec_result::io;
}
