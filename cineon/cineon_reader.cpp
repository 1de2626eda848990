#include "cineon/cineon_reader.h"

#include <cstring>

codec_result kodakcineon_reader::read_header_bytes(void* buf, uint32_t size) {
    codec_result result = cineonreader::read_header_bytes(buf, size);
    if (result != codec_result::ok) return result;
    uint32_t magic;
    std::memcpy(&magic, buf, sizeof magic);
    if (magic == cineon_magic) return codec_result::ok;
    if (magic != cineon_magic_swapped) return codec_result::bad_magic;
    swap_bytes = 1;
    cineon_swap_header(*static_cast<Kodak_Header_t*>(buf));
    return codec_result::ok;
}

codec_result kodakcineon_reader::read_header() {
    header_loaded = 0;
    Kodak_Header_t h;
    codec_result result = read_header_bytes(&h, sizeof h);
    if (result != codec_result::ok) return result;

    // The channel count is a signed byte: 255 is -1 channels, refused below.
    const int count = h.channels < 0x80 ? h.channels : h.channels - 0x100;
    if (count != 1 && count != 3 && count != 4) return codec_result::unsupported;
    bool layout_ok = h.packing == 5 || (h.packing == 3 && count == 1) || (h.packing == 0 && count == 4);
    if (!layout_ok) return codec_result::unsupported;
    if (h.interleave != 0) return codec_result::unsupported;

    const Kodak_Channel_t& first = h.channel[0];
    for (int k = 0; k < count; ++k) {
        Kodak_Channel_t& c = h.channel[k];
        if (c.bits_per_pixel != 10) {
            // A fourth (matte) channel of another depth is read as 10-bit.
            if (k != 3) return codec_result::unsupported;
            c.bits_per_pixel = 10;
        }
        if (c.pixels_per_line != first.pixels_per_line || c.lines_per_image != first.lines_per_image) {
            c.pixels_per_line = first.pixels_per_line;
            c.lines_per_image = first.lines_per_image;
        }
    }

    bit_depth = first.bits_per_pixel;
    data_offset = h.image_offset;
    width = first.pixels_per_line;
    height = first.lines_per_image;
    is_log = 1;
    packed = 1;
    ref_low = 95;
    ref_high = 685;
    header_loaded = 1;
    return codec_result::ok;
}

codec_result kodakcineon_reader::read_image(void* buf, uint64_t size) {
    if (!buf || size == 0) return codec_result::bad_argument;
    uint64_t required = 0;
    if (image_bytes(required) != codec_result::ok || size < required) return codec_result::bad_argument;
    if (expand_to_10bit && (!packed || bit_depth != 10)) return codec_result::unsupported;
    if (fd < 0) return codec_result::not_open;
    codec_result result = read_exact(buf, data_offset, size);
    if (result != codec_result::ok) return result;
    if (swap_bytes && size >= 4) reverse_words(buf, size);
    return codec_result::ok;
}
