// The 2048-byte DPX (SMPTE 268M) file header, held in memory exactly as it
// lies on disk, and the description that swaps it between byte orders.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/stack.h"

// Magic of a DPX file in the reading host's byte order: "SDPX" as a
// big-endian 32-bit value.
constexpr uint32_t dpx_magic = 0x53445058;
// Magic of a DPX file written in the other byte order ("XPDS").
constexpr uint32_t dpx_magic_swapped = 0x58504453;

// One of the eight 72-byte image element records of a DPX header.
struct __attribute__((packed)) SMPTE268M_ImageElement_t {
    uint32_t data_sign;       // 0 unsigned, 1 signed
    uint32_t ref_low_data;    // reference low data code value
    float ref_low_quantity;   // reference low quantity
    uint32_t ref_high_data;   // reference high data code value
    float ref_high_quantity;  // reference high quantity
    uint8_t descriptor;       // component descriptor: 50 RGB, 51 RGBA
    uint8_t transfer;         // transfer characteristic; 1 and 3 are logarithmic
    uint8_t colorimetric;     // colorimetric code
    uint8_t bit_size;         // bits per component
    uint16_t packing;         // 0 packed, 1 filled method A, 2 filled method B
    uint16_t encoding;        // 0 none, 1 run-length
    uint32_t data_offset;     // offset of this element's data from the file start
    uint32_t eol_padding;     // end-of-line padding in bytes
    uint32_t eoi_padding;     // end-of-image padding in bytes
    char description[32];     // element description text
};

// The DPX file header: file, image, orientation, film and television sections.
struct __attribute__((packed)) SMPTE268M_Header_t {
    uint32_t magic;                             // dpx_magic in the writer's byte order
    uint32_t image_offset;                      // offset of the image data from the file start
    char version[8];                            // header format version text
    uint32_t file_size;                         // total file size in bytes
    uint32_t ditto_key;                         // 0 same as previous frame, 1 new
    uint32_t generic_size;                      // size of the file, image and orientation sections
    uint32_t industry_size;                     // size of the film and television sections
    uint32_t user_size;                         // size of the user-defined data
    char file_name[100];                        // image file name
    char create_time[24];                       // creation date and time
    char creator[100];                          // creator text
    char project[200];                          // project name
    char copyright[200];                        // copyright statement
    uint32_t encrypt_key;                       // 0xFFFFFFFF when not encrypted
    uint8_t reserved_file[104];                 // reserved, file section
    uint16_t orientation;                       // orientation code 0-7
    uint16_t element_number;                    // number of image elements
    uint32_t pixels_per_line;                   // width
    uint32_t lines_per_element;                 // height
    SMPTE268M_ImageElement_t image_element[8];  // image element records
    uint8_t reserved_image[52];                 // reserved, image section
    uint32_t x_offset;                          // X offset
    uint32_t y_offset;                          // Y offset
    float x_center;                             // X centre
    float y_center;                             // Y centre
    uint32_t x_orig_size;                       // X original size
    uint32_t y_orig_size;                       // Y original size
    char source_file_name[100];                 // source image file name
    char source_create_time[24];                // source image date and time
    char input_device[32];                      // input device name
    char input_serial[32];                      // input device serial number
    uint16_t border[4];                         // border validity XL, XR, YT, YB
    uint32_t pixel_aspect[2];                   // pixel aspect, horizontal then vertical
    uint8_t reserved_orientation[28];           // reserved, orientation section
    char film_mfg_id[2];                        // film manufacturer ID code
    char film_type[2];                          // film type
    char film_offset[2];                        // offset in perforations
    char film_prefix[6];                        // prefix
    char film_count[4];                         // count
    char film_format[32];                       // format
    uint32_t frame_position;                    // frame position in sequence
    uint32_t sequence_length;                   // sequence length in frames
    uint32_t held_count;                        // held count
    float frame_rate;                           // frame rate of original, frames per second
    float shutter_angle;                        // shutter angle of camera in degrees
    char frame_id[32];                          // frame identification
    char slate_info[100];                       // slate information
    uint8_t reserved_film[56];                  // reserved, film section
    uint32_t time_code;                         // SMPTE time code, BCD hh:mm:ss:ff
    uint32_t user_bits;                         // SMPTE user bits
    uint8_t interlace;                          // interlace
    uint8_t field_number;                       // field number
    uint8_t video_signal;                       // video signal standard
    uint8_t padding;                            // alignment byte
    float horizontal_sample_rate;               // Hz
    float vertical_sample_rate;                 // Hz
    float tv_frame_rate;                        // temporal sampling rate, frames per second
    float time_offset;                          // time offset from sync to first pixel
    float gamma;                                // gamma
    float black_level;                          // black level code value
    float black_gain;                           // black gain
    float break_point;                          // break point
    float white_level;                          // reference white level code value
    float integration_times;                    // integration times
    uint8_t reserved_tv[76];                    // reserved, television section
};

static_assert(sizeof(SMPTE268M_ImageElement_t) == 72, "image element record is 72 bytes");
static_assert(sizeof(SMPTE268M_Header_t) == 2048, "DPX header is 2048 bytes");

static_assert(offsetof(SMPTE268M_ImageElement_t, ref_low_data) == 4, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, ref_low_quantity) == 8, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, ref_high_data) == 12, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, ref_high_quantity) == 16, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, descriptor) == 20, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, transfer) == 21, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, bit_size) == 23, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, packing) == 24, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, encoding) == 26, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, data_offset) == 28, "layout");
static_assert(offsetof(SMPTE268M_ImageElement_t, description) == 40, "layout");

static_assert(offsetof(SMPTE268M_Header_t, image_offset) == 4, "layout");
static_assert(offsetof(SMPTE268M_Header_t, version) == 8, "layout");
static_assert(offsetof(SMPTE268M_Header_t, file_size) == 16, "layout");
static_assert(offsetof(SMPTE268M_Header_t, generic_size) == 24, "layout");
static_assert(offsetof(SMPTE268M_Header_t, industry_size) == 28, "layout");
static_assert(offsetof(SMPTE268M_Header_t, user_size) == 32, "layout");
static_assert(offsetof(SMPTE268M_Header_t, create_time) == 136, "layout");
static_assert(offsetof(SMPTE268M_Header_t, creator) == 160, "layout");
static_assert(offsetof(SMPTE268M_Header_t, copyright) == 460, "layout");
static_assert(offsetof(SMPTE268M_Header_t, encrypt_key) == 660, "layout");
static_assert(offsetof(SMPTE268M_Header_t, orientation) == 768, "layout");
static_assert(offsetof(SMPTE268M_Header_t, element_number) == 770, "layout");
static_assert(offsetof(SMPTE268M_Header_t, pixels_per_line) == 772, "layout");
static_assert(offsetof(SMPTE268M_Header_t, lines_per_element) == 776, "layout");
static_assert(offsetof(SMPTE268M_Header_t, image_element) == 780, "layout");
static_assert(offsetof(SMPTE268M_Header_t, x_offset) == 1408, "layout");
static_assert(offsetof(SMPTE268M_Header_t, x_orig_size) == 1424, "layout");
static_assert(offsetof(SMPTE268M_Header_t, y_orig_size) == 1428, "layout");
static_assert(offsetof(SMPTE268M_Header_t, source_create_time) == 1532, "layout");
static_assert(offsetof(SMPTE268M_Header_t, border) == 1620, "layout");
static_assert(offsetof(SMPTE268M_Header_t, pixel_aspect) == 1628, "layout");
static_assert(offsetof(SMPTE268M_Header_t, film_mfg_id) == 1664, "layout");
static_assert(offsetof(SMPTE268M_Header_t, frame_position) == 1712, "layout");
static_assert(offsetof(SMPTE268M_Header_t, frame_rate) == 1724, "layout");
static_assert(offsetof(SMPTE268M_Header_t, reserved_film) == 1864, "layout");
static_assert(offsetof(SMPTE268M_Header_t, time_code) == 1920, "layout");
static_assert(offsetof(SMPTE268M_Header_t, padding) == 1931, "layout");
static_assert(offsetof(SMPTE268M_Header_t, tv_frame_rate) == 1940, "layout");
static_assert(offsetof(SMPTE268M_Header_t, gamma) == 1948, "layout");
static_assert(offsetof(SMPTE268M_Header_t, black_level) == 1952, "layout");
static_assert(offsetof(SMPTE268M_Header_t, black_gain) == 1956, "layout");
static_assert(offsetof(SMPTE268M_Header_t, break_point) == 1960, "layout");
static_assert(offsetof(SMPTE268M_Header_t, white_level) == 1964, "layout");
static_assert(offsetof(SMPTE268M_Header_t, reserved_tv) == 1972, "layout");

// Size of the generic header (file, image and orientation sections); image
// data may not start inside it.
constexpr uint32_t dpx_generic_size = 1664;

// Fills `out` (expected empty) with the codes that swap a SMPTE268M_Header_t.
// Floating-point fields appear as single bytes, so they are never swapped.
void dpx_swap_description(common::stack<int>& out);

// Swaps `header` between byte orders in place.
void dpx_swap_header(SMPTE268M_Header_t& header);
