// The 2048-byte Kodak Cineon file header, held in memory exactly as it lies
// on disk, its swap description and the defaults of a new header.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/stack.h"

// Magic of a Cineon file in the reading host's byte order.
constexpr uint32_t cineon_magic = 0x802A5FD7;
// Magic of a Cineon file written in the other byte order.
constexpr uint32_t cineon_magic_swapped = 0xD75F2A80;

// One of the eight 28-byte channel records of a Cineon header.
struct __attribute__((packed)) Kodak_Channel_t {
    uint8_t designator[2];     // channel designator bytes
    uint8_t bits_per_pixel;    // bits per pixel
    uint8_t unused;            // alignment byte
    uint32_t pixels_per_line;  // width of the channel
    uint32_t lines_per_image;  // height of the channel
    float min_data;            // minimum data value
    float min_quantity;        // minimum quantity
    float max_data;            // maximum data value
    float max_quantity;        // maximum quantity
};

// The Cineon file header: file, image, data format, origination and film sections.
struct __attribute__((packed)) Kodak_Header_t {
    uint32_t magic;               // cineon_magic in the writer's byte order
    uint32_t image_offset;        // offset of the image data from the file start
    uint32_t generic_size;        // generic header length
    uint32_t industry_size;       // industry header length
    uint32_t user_size;           // user data length
    uint32_t file_size;           // total file size in bytes
    char version[8];              // header version text
    char file_name[100];          // image file name
    char create_date[12];         // creation date
    char create_time[12];         // creation time
    uint8_t reserved_file[36];    // reserved, file section
    uint8_t orientation;          // image orientation
    uint8_t channels;             // number of channels
    uint8_t unused_image[2];      // alignment bytes
    Kodak_Channel_t channel[8];   // channel records
    float white_point[2];         // white point x, y
    float red_primary[2];         // red primary x, y
    float green_primary[2];       // green primary x, y
    float blue_primary[2];        // blue primary x, y
    char label[200];              // label text
    uint8_t reserved_image[28];   // reserved, image section
    uint8_t interleave;           // data interleave
    uint8_t packing;              // packing
    uint8_t data_sign;            // data signed
    uint8_t image_sense;          // image sense
    uint32_t eol_padding;         // end-of-line padding
    uint32_t eoc_padding;         // end-of-channel padding
    uint8_t reserved_format[20];  // reserved, data format section
    int32_t x_offset;             // X offset
    int32_t y_offset;             // Y offset
    char source_file_name[100];   // source file name
    char source_create_date[12];  // source creation date
    char source_create_time[12];  // source creation time
    char input_device[64];        // input device
    char input_model[32];         // input device model number
    char input_serial[32];        // input device serial number
    float x_device_pitch;         // X device pitch
    float y_device_pitch;         // Y device pitch
    float gamma;                  // gamma
    uint8_t reserved_origin[40];  // reserved, origination section
    uint8_t film_mfg_id;          // film manufacturer ID
    uint8_t film_type;            // film type
    uint8_t perf_offset;          // perforation offset
    uint8_t unused_film;          // alignment byte
    uint32_t prefix;              // prefix
    uint32_t count;               // count
    char format[32];              // format
    uint32_t frame_position;      // frame position
    float frame_rate;             // frame rate
    char frame_id[32];            // frame identification
    char slate_info[200];         // slate information
    uint8_t reserved_film[740];   // reserved, film section
};

static_assert(sizeof(Kodak_Channel_t) == 28, "channel record is 28 bytes");
static_assert(sizeof(Kodak_Header_t) == 2048, "Cineon header is 2048 bytes");

static_assert(offsetof(Kodak_Channel_t, bits_per_pixel) == 2, "layout");
static_assert(offsetof(Kodak_Channel_t, pixels_per_line) == 4, "layout");
static_assert(offsetof(Kodak_Channel_t, lines_per_image) == 8, "layout");
static_assert(offsetof(Kodak_Channel_t, min_data) == 12, "layout");
static_assert(offsetof(Kodak_Channel_t, min_quantity) == 16, "layout");

static_assert(offsetof(Kodak_Header_t, image_offset) == 4, "layout");
static_assert(offsetof(Kodak_Header_t, user_size) == 16, "layout");
static_assert(offsetof(Kodak_Header_t, file_size) == 20, "layout");
static_assert(offsetof(Kodak_Header_t, version) == 24, "layout");
static_assert(offsetof(Kodak_Header_t, create_date) == 132, "layout");
static_assert(offsetof(Kodak_Header_t, create_time) == 144, "layout");
static_assert(offsetof(Kodak_Header_t, orientation) == 192, "layout");
static_assert(offsetof(Kodak_Header_t, channels) == 193, "layout");
static_assert(offsetof(Kodak_Header_t, channel) == 196, "layout");
static_assert(offsetof(Kodak_Header_t, white_point) == 420, "layout");
static_assert(offsetof(Kodak_Header_t, label) == 452, "layout");
static_assert(offsetof(Kodak_Header_t, interleave) == 680, "layout");
static_assert(offsetof(Kodak_Header_t, packing) == 681, "layout");
static_assert(offsetof(Kodak_Header_t, eol_padding) == 684, "layout");
static_assert(offsetof(Kodak_Header_t, x_offset) == 712, "layout");
static_assert(offsetof(Kodak_Header_t, source_create_date) == 820, "layout");
static_assert(offsetof(Kodak_Header_t, source_create_time) == 832, "layout");
static_assert(offsetof(Kodak_Header_t, input_device) == 844, "layout");
static_assert(offsetof(Kodak_Header_t, input_model) == 908, "layout");
static_assert(offsetof(Kodak_Header_t, x_device_pitch) == 972, "layout");
static_assert(offsetof(Kodak_Header_t, gamma) == 980, "layout");
static_assert(offsetof(Kodak_Header_t, film_mfg_id) == 1024, "layout");
static_assert(offsetof(Kodak_Header_t, prefix) == 1028, "layout");
static_assert(offsetof(Kodak_Header_t, frame_position) == 1068, "layout");
static_assert(offsetof(Kodak_Header_t, frame_rate) == 1072, "layout");
static_assert(offsetof(Kodak_Header_t, reserved_film) == 1308, "layout");

// Fills `out` (expected empty) with the codes that swap a Kodak_Header_t.
// Floating-point fields appear as single bytes, so they are never swapped.
void cineon_swap_description(common::stack<int>& out);

// Swaps `header` between byte orders in place.
void cineon_swap_header(Kodak_Header_t& header);

// Overwrites `header` with the defaults of a new host-order Cineon header,
// dated with the local time now.
void cineon_default_header(Kodak_Header_t& header);
