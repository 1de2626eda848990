#include "cineon/cineon_writer.h"

codec_result kodakcineon_writer::write_header() {
    if (fd < 0) return codec_result::not_open;
    Kodak_Header_t h;
    cineon_default_header(h);

    h.image_offset = data_offset;
    uint64_t image = 0;
    if (image_bytes(image) != codec_result::ok || image > 0xFFFFFFFFu || uint64_t(data_offset) + image > 0xFFFFFFFFu)
        return codec_result::unsupported;
    h.file_size = uint32_t(data_offset + image);

    for (int k = 0; k < h.channels; ++k) {
        h.channel[k].pixels_per_line = width;
        h.channel[k].lines_per_image = height;
        h.channel[k].bits_per_pixel = uint8_t(bit_depth & 0xFF);
    }
    // Never swapped, unlike the DPX writer: Cineon files are always written
    // in the host's order and the readers of them rely on it.
    return write_exact(&h, 0, sizeof h);
}
