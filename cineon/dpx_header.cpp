#include "cineon/dpx_header.h"

#include "cineon/bs_struct.h"

namespace {

using common::bs_array;
using common::bs_byte;
using common::bs_group;
using common::bs_group_end;
using common::bs_long;
using common::bs_short;

// The DPX header's layout, field by field. Floats are listed as bytes and so
// keep the file's byte order, as they always have: the readers take them as
// they come. The last two entries cover 80 + 76 bytes where only 116 remain;
// single bytes are never touched and the walk clamps at the record's end, so
// the overrun is harmless. The list is kept as it is on purpose.
// clang-format off
const int dpx_codes[] = {
    // File information.
    bs_long, bs_long,                            // magic, image_offset
    bs_array, bs_byte, 8,                        // version
    bs_long, bs_long, bs_long, bs_long, bs_long, // file_size, ditto_key, generic_size, industry_size, user_size
    bs_array, bs_byte, 100,                      // file_name
    bs_array, bs_byte, 24,                       // create_time
    bs_array, bs_byte, 100,                      // creator
    bs_array, bs_byte, 200,                      // project
    bs_array, bs_byte, 200,                      // copyright
    bs_long,                                     // encrypt_key
    bs_array, bs_byte, 104,                      // reserved_file
    // Image information.
    bs_short, bs_short,                          // orientation, element_number
    bs_long, bs_long,                            // pixels_per_line, lines_per_element
    bs_group, 72, 8,                             // image_element[8], 72 bytes each:
        bs_long, bs_long,                        //   data_sign, ref_low_data
        bs_byte, bs_byte, bs_byte, bs_byte,      //   ref_low_quantity
        bs_long,                                 //   ref_high_data
        bs_byte, bs_byte, bs_byte, bs_byte,      //   ref_high_quantity
        bs_byte, bs_byte, bs_byte, bs_byte,      //   descriptor, transfer, colorimetric, bit_size
        bs_short, bs_short,                      //   packing, encoding
        bs_long, bs_long, bs_long,               //   data_offset, eol_padding, eoi_padding
        bs_array, bs_byte, 32,                   //   description
    bs_group_end,
    bs_array, bs_byte, 52,                       // reserved_image
    // Orientation information.
    bs_long, bs_long,                            // x_offset, y_offset
    bs_array, bs_byte, 8,                        // x_center, y_center
    bs_long, bs_long,                            // x_orig_size, y_orig_size
    bs_array, bs_byte, 100,                      // source_file_name
    bs_array, bs_byte, 24,                       // source_create_time
    bs_array, bs_byte, 32,                       // input_device
    bs_array, bs_byte, 32,                       // input_serial
    bs_array, bs_short, 4,                       // border
    bs_array, bs_long, 2,                        // pixel_aspect
    bs_array, bs_byte, 28,                       // reserved_orientation
    // Film information.
    bs_array, bs_byte, 2,                        // film_mfg_id
    bs_array, bs_byte, 2,                        // film_type
    bs_array, bs_byte, 2,                        // film_offset
    bs_array, bs_byte, 6,                        // film_prefix
    bs_array, bs_byte, 4,                        // film_count
    bs_array, bs_byte, 32,                       // film_format
    bs_long, bs_long, bs_long,                   // frame_position, sequence_length, held_count
    bs_array, bs_byte, 8,                        // frame_rate, shutter_angle
    bs_array, bs_byte, 32,                       // frame_id
    bs_array, bs_byte, 100,                      // slate_info
    bs_array, bs_byte, 56,                       // reserved_film
    // Television information.
    bs_long, bs_long,                            // time_code, user_bits
    bs_byte, bs_byte, bs_byte, bs_byte,          // interlace, field_number, video_signal, padding
    bs_array, bs_byte, 80,                       // the ten floats from horizontal_sample_rate on
    bs_array, bs_byte, 76,                       // reserved_tv
};
// clang-format on

}  // namespace

void dpx_swap_description(common::stack<int>& out) {
    for (int code : dpx_codes) out.append(code);
}

void dpx_swap_header(SMPTE268M_Header_t& header) {
    common::stack<int> description;
    dpx_swap_description(description);
    common::bs_struct<SMPTE268M_Header_t*> swap(&header, &description);
}
