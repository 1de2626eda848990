#include "cineon/cineon_header.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "cineon/bs_struct.h"

namespace {

const int cineon_codes[] = {
    -4, -4, -4, -4, -4, -4,
    -101, -1, 8, -101, -1, 100, -101, -1, 12, -101, -1, 12, -101, -1, 36,
    -1, -1, -1, -1,
    -102, 28, 8,
        -1, -1, -1, -1, -4, -4,
        -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -103,
    -101, -1, 8, -101, -1, 8, -101, -1, 8, -101, -1, 8,
    -101, -1, 228,
    -1, -1, -1, -1, -4, -4, -101, -1, 20, -4, -4,
    -101, -1, 100, -101, -1, 12, -101, -1, 12, -101, -1, 64, -101, -1, 32, -101, -1, 32,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -101, -1, 40,
    -1, -1, -1, -1, -4, -4, -101, -1, 32, -4,
    -1, -1, -1, -1, -101, -1, 32, -101, -1, 200, -101, -1, 740,
};

// The numeric values of the integers 0x447FC000 and 0xFFFFFFFF as floats,
// not those bit patterns; new headers carry exactly these on purpose.
constexpr float channel_min_data = 1149222912.0f;
constexpr float unset_float = 4294967296.0f;

// Formats the local time now by `format` into a `size`-byte text field,
// truncating and always ending with a NUL in the last byte.
void local_time_field(char* field, size_t size, const char* format) {
    char text[64] = {};
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (localtime_r(&now, &parts)) std::strftime(text, sizeof text, format, &parts);
    const size_t n = std::min(std::strlen(text), size - 1);
    std::memcpy(field, text, n);
    std::memset(field + n, 0, size - n);
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
