#include "cineon/dpx_writer.h"

#include <cstring>
#include <ctime>

#include "cineon/dpx_reader.h"

namespace {

const char creator_text[] = "Quillmoor.filmframecodec";
const char copyright_text[] = "Copyright (c) Quillmoor. All rights reserved.";
static_assert(sizeof(copyright_text) == 46, "the notice is 45 characters and its NUL");

}  // namespace

void dpx_default_header(SMPTE268M_Header_t& header) {
    std::memset(&header, 0, sizeof header);
    header.magic = dpx_magic;
    header.image_offset = 8192;
    std::memcpy(header.version, "v1.0", 5);
    header.generic_size = dpx_generic_size;
    header.industry_size = 384;
    header.user_size = 6144;
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (!localtime_r(&now, &parts) ||
        std::strftime(header.create_time, sizeof header.create_time, "%Y:%m:%d:%H:%M:%S%Z", &parts) == 0)
        std::memset(header.create_time, 0, sizeof header.create_time);
    std::memcpy(header.creator, creator_text, sizeof creator_text);
    std::memcpy(header.copyright, copyright_text, sizeof copyright_text);
    header.encrypt_key = 0xFFFFFFFFu;
    header.orientation = 0;
    header.element_number = 1;
    SMPTE268M_ImageElement_t& e = header.image_element[0];
    e.data_sign = 0;
    e.ref_low_data = 95;
    e.ref_low_quantity = 0.0f;
    e.ref_high_data = 685;
    e.ref_high_quantity = 2.048f;
    e.descriptor = 51;
    e.transfer = 3;
    e.colorimetric = 0;
    e.bit_size = 10;
    e.packing = 1;
    e.encoding = 0;
    e.data_offset = 8192;
    e.eol_padding = 0;
    e.eoi_padding = 0;
    std::memcpy(header.source_create_time, header.create_time, sizeof header.create_time);
}

codec_result smptedpx_writer::write_header() {
    if (fd < 0) return codec_result::not_open;
    SMPTE268M_Header_t h;
    dpx_default_header(h);
    SMPTE268M_ImageElement_t& e = h.image_element[0];

    h.image_offset = data_offset;
    uint64_t image = 0;
    if (image_bytes(image) != codec_result::ok || image > 0xFFFFFFFFu || uint64_t(data_offset) + image > 0xFFFFFFFFu)
        return codec_result::unsupported;
    // Deeper components than the image reads expand: each whole in its units.
    if (bit_depth > 10) image = dpx_image_bytes(uint64_t(width) * height, channels, bit_depth, packed ? 0 : 1);
    h.file_size = uint32_t(data_offset + image);
    h.user_size = data_offset > codec_header_size ? data_offset - codec_header_size : 0;

    h.pixels_per_line = width;
    h.x_orig_size = width;
    h.lines_per_element = height;
    h.y_orig_size = height;
    e.data_sign = 0;
    e.ref_low_data = ref_low;
    e.ref_high_data = ref_high;
    e.descriptor = uint8_t(descriptor);
    // Refused only when both are wrong, on purpose: callers that set just one
    // of them still get their file written.
    if (channels != 3 && channels != 4 && descriptor != 50 && descriptor != 51) return codec_result::unsupported;

    e.data_offset = h.image_offset;
    e.packing = packed ? 0 : 1;
    e.bit_size = uint8_t(bit_depth);
    h.pixel_aspect[0] = 1000;
    h.pixel_aspect[1] = 1000;
    h.time_code = time_code;
    h.frame_rate = frame_rate;
    h.tv_frame_rate = frame_rate;
    h.gamma = gamma;
    // black_level is deliberately left at 0 although the reader reads it;
    // files written so far carry 0 there.
    h.black_gain = black_gain;
    h.break_point = break_point;
    h.white_level = white_level;
    e.transfer = is_log ? 3 : 2;

    if (swap_bytes) dpx_swap_header(h);
    return write_exact(&h, 0, sizeof h);
}

codec_result smptedpx_writer::write_header_bytes(void* buf, uint32_t size) {
    if (!buf || size != codec_header_size) return codec_result::bad_argument;
    if (fd < 0) return codec_result::not_open;
    if (swap_bytes) dpx_swap_header(*static_cast<SMPTE268M_Header_t*>(buf));
    return write_exact(buf, 0, size);
}
