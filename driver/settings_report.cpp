#include "driver/settings_report.h"

#include <cstdint>
#include <string>

#include "driver/console.h"

namespace {

// A fixed-width header text up to its first zero byte, never past its field.
std::string field_text(const char* field, size_t width) {
    size_t n = 0;
    while (n < width && field[n] != '\0') ++n;
    return std::string(field, n);
}

bool host_is_little_endian() {
    const uint16_t probe = 1;
    return *reinterpret_cast<const uint8_t*>(&probe) == 1;
}

const char* packing_line(unsigned packing) {
    switch (packing) {
        case 0: return "Packing         : 32-bit words";
        case 1: return "Packing         : 32-bit words, method A";
        case 2: return "Packing         : 32-bit words, method B";
        default: return "Packing         : Unknown";
    }
}

const char* descriptor_line(unsigned descriptor) {
    switch (descriptor) {
        case 50: return "Descriptor      : RGB";
        case 51: return "Descriptor      : RGBA";
        case 52: return "Descriptor      : ABGR";
        default: return "Descriptor      : Unsupported";
    }
}

const char* bits_line(unsigned bits) {
    switch (bits) {
        case 8: return "Bits            : 8";
        case 10: return "Bits            : 10";
        case 12: return "Bits            : 12";
        case 16: return "Bits            : 16";
        case 32: return "Bits            : 32";
        case 64: return "Bits            : 64";
        default: return "Bits            : Unknown";
    }
}

}  // namespace

const char* transfer_line(unsigned code) {
    // The program's own table, kept on purpose: codes 4 and 5 carry other
    // names than the standard gives them and code 6 has no text of its own.
    switch (code) {
        case 0: return "Transfer        : User Defined";
        case 1: return "Transfer        : Printing Density";
        case 2: return "Transfer        : Linear";
        case 3: return "Transfer        : Logarithmic";
        case 4: return "Transfer        : SMPTE 274M";
        case 5: return "Transfer        : ITU-R 709-4";
        case 7: return "Transfer        : ITU-R 601-5 system B or G";
        case 8: return "Transfer        : ITU-R 601-5 system M";
        case 9: return "Transfer        : Composite Video(NTSC)";
        case 10: return "Transfer        : Composite Video(PAL)";
        case 11: return "Transfer        : Z Depth(linear)";
        case 12: return "Transfer        : Z Depth(homogeneous)";
        default: return "Transfer        : Unspecified";
    }
}

void print_settings_report(const smptedpx_reader& reader, const SMPTE268M_Header_t& header) {
    common::console& out = common::console_out;
    const auto& element = header.image_element[0];
    // The file is stored in the host's order unless the reader had to swap it.
    bool file_little = host_is_little_endian() != bool(reader.swap_bytes);

    out << '\n' << "\033[47m\033[30mCineon/DPX Settings\033[0m" << '\n';
    out << "Endian          : " << (file_little ? "Little" : "Big") << "\n";
    out << "Lowdata         : " << int32_t(int16_t(reader.ref_low)) << "\n";
    out << "Highdata        : " << int32_t(int16_t(reader.ref_high)) << "\n";
    out << transfer_line(element.transfer) << "\n";
    out << "Offset          : " << uint32_t(header.image_offset) << "\n";
    out << "Element Offset  : " << uint32_t(element.data_offset) << "\n";
    out << "Creator         : " << field_text(header.creator, sizeof header.creator).c_str() << "\n";
    out << "Date            : " << field_text(header.create_time, sizeof header.create_time).c_str() << "\n";
    out << packing_line(element.packing) << "\n";
    out << descriptor_line(element.descriptor) << "\n";
    out << bits_line(element.bit_size) << "\n";
}
