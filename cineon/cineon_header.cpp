#include "cineon/cineon_header.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "cineon/bs_struct.h"

namespace {

using common::bs_array;
using common::bs_byte;
using common::bs_group;
using common::bs_group_end;
using common::bs_long;

// The Cineon header's layout, field by field. Floats are listed as bytes and
// so keep the file's byte order, as they always have.
// clang-format off
const int cineon_codes[] = {
    // File information.
    bs_long, bs_long, bs_long,                   // magic, image_offset, generic_size
    bs_long, bs_long, bs_long,                   // industry_size, user_size, file_size
    bs_array, bs_byte, 8,                        // version
    bs_array, bs_byte, 100,                      // file_name
    bs_array, bs_byte, 12,                       // create_date
    bs_array, bs_byte, 12,                       // create_time
    bs_array, bs_byte, 36,                       // reserved_file
    // Image information.
    bs_byte, bs_byte, bs_byte, bs_byte,          // orientation, channels, unused_image
    bs_group, 28, 8,                             // channel[8], 28 bytes each:
        bs_byte, bs_byte, bs_byte, bs_byte,      //   designator, bits_per_pixel, unused
        bs_long, bs_long,                        //   pixels_per_line, lines_per_image
        bs_byte, bs_byte, bs_byte, bs_byte,      //   min_data
        bs_byte, bs_byte, bs_byte, bs_byte,      //   min_quantity
        bs_byte, bs_byte, bs_byte, bs_byte,      //   max_data
        bs_byte, bs_byte, bs_byte, bs_byte,      //   max_quantity
    bs_group_end,
    bs_array, bs_byte, 8,                        // white_point
    bs_array, bs_byte, 8,                        // red_primary
    bs_array, bs_byte, 8,                        // green_primary
    bs_array, bs_byte, 8,                        // blue_primary
    bs_array, bs_byte, 228,                      // label, reserved_image
    // Data format information.
    bs_byte, bs_byte, bs_byte, bs_byte,          // interleave, packing, data_sign, image_sense
    bs_long, bs_long,                            // eol_padding, eoc_padding
    bs_array, bs_byte, 20,                       // reserved_format
    // Origination information.
    bs_long, bs_long,                            // x_offset, y_offset
    bs_array, bs_byte, 100,                      // source_file_name
    bs_array, bs_byte, 12,                       // source_create_date
    bs_array, bs_byte, 12,                       // source_create_time
    bs_array, bs_byte, 64,                       // input_device
    bs_array, bs_byte, 32,                       // input_model
    bs_array, bs_byte, 32,                       // input_serial
    bs_byte, bs_byte, bs_byte, bs_byte,          // x_device_pitch
    bs_byte, bs_byte, bs_byte, bs_byte,          // y_device_pitch
    bs_byte, bs_byte, bs_byte, bs_byte,          // gamma
    bs_array, bs_byte, 40,                       // reserved_origin
    // Film information.
    bs_byte, bs_byte, bs_byte, bs_byte,          // film_mfg_id, film_type, perf_offset, unused_film
    bs_long, bs_long,                            // prefix, count
    bs_array, bs_byte, 32,                       // format
    bs_long,                                     // frame_position
    bs_byte, bs_byte, bs_byte, bs_byte,          // frame_rate
    bs_array, bs_byte, 32,                       // frame_id
    bs_array, bs_byte, 200,                      // slate_info
    bs_array, bs_byte, 740,                      // reserved_film
};
// clang-format on

// The numeric values of the integers 0x447FC000 and 0xFFFFFFFF as floats,
// not those bit patterns; new headers carry exactly these on purpose.
constexpr float channel_min_data = 1149222912.0f;
constexpr float unset_float = 4294967296.0f;

// Formats the local time now by `format` into a `size`-byte text field,
// truncated to `size - 1` characters and padded with NULs to the end, so the
// last byte is always a NUL.
void local_time_field(char* field, size_t size, const char* format) {
    char text[64] = {};
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (localtime_r(&now, &parts)) std::strftime(text, sizeof text, format, &parts);
    // Copied by length rather than with strncpy: the text may be longer than
    // the field, and cutting it short is what is meant here.
    const size_t length = std::min(std::strlen(text), size - 1);
    std::copy_n(text, length, field);
    std::fill(field + length, field + size, '\0');
}

}  // namespace

void cineon_swap_description(common::stack<int>& out) {
    for (int code : cineon_codes) out.append(code);
}

void cineon_swap_header(Kodak_Header_t& header) {
    common::stack<int> description;
    cineon_swap_description(description);
    common::bs_struct<Kodak_Header_t*> swap(&header, &description);
}

void cineon_default_header(Kodak_Header_t& header) {
    std::memset(&header, 0, sizeof header);
    header.magic = cineon_magic;
    header.image_offset = 32256;
    header.generic_size = 1024;
    header.industry_size = 1024;
    header.user_size = 30208;
    header.file_size = 2048;
    std::memcpy(header.version, "V4.5", 5);
    local_time_field(header.create_date, sizeof header.create_date, "%Y:%m:%d");
    local_time_field(header.create_time, sizeof header.create_time, "%H:%M:%S%Z");
    header.orientation = 0;
    header.channels = 3;
    for (uint8_t k = 0; k < header.channels; ++k) {
        Kodak_Channel_t& c = header.channel[k];
        c.designator[0] = 0;
        c.designator[1] = k;
        c.bits_per_pixel = 10;
        c.min_data = channel_min_data;
        c.min_quantity = 2.046f;
    }
    for (int i = 0; i < 2; ++i) {
        header.white_point[i] = unset_float;
        header.red_primary[i] = unset_float;
        header.green_primary[i] = unset_float;
        header.blue_primary[i] = unset_float;
    }
    header.packing = 5;
    std::memcpy(header.source_create_date, header.create_date, sizeof header.create_date);
    std::memcpy(header.source_create_time, header.create_time, sizeof header.create_time);
    std::strncpy(header.input_device, "Workstation", sizeof header.input_device);
    std::strncpy(header.input_model, "(BigEndian) BSD Veltrix", sizeof header.input_model);
    header.x_device_pitch = unset_float;
    header.y_device_pitch = unset_float;
    header.gamma = unset_float;
}
