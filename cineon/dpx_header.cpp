#include "cineon/dpx_header.h"

#include "cineon/bs_struct.h"

namespace {

// The last two entries cover 80 + 76 bytes where only 116 remain; single
// bytes are never touched and the walk clamps at the record's end, so the
// overrun is harmless. The list is kept as it is on purpose.
const int dpx_codes[] = {
    -4, -4, -101, -1, 8, -4, -4, -4, -4, -4,
    -101, -1, 100, -101, -1, 24, -101, -1, 100, -101, -1, 200, -101, -1, 200,
    -4, -101, -1, 104,
    -2, -2, -4, -4,
    -102, 72, 8,
        -4, -4, -1, -1, -1, -1, -4, -1, -1, -1, -1, -1, -1, -1, -1, -2, -2, -4, -4, -4,
        -101, -1, 32,
    -103,
    -101, -1, 52,
    -4, -4, -101, -1, 8, -4, -4,
    -101, -1, 100, -101, -1, 24, -101, -1, 32, -101, -1, 32,
    -101, -2, 4, -101, -4, 2, -101, -1, 28,
    -101, -1, 2, -101, -1, 2, -101, -1, 2, -101, -1, 6, -101, -1, 4, -101, -1, 32,
    -4, -4, -4, -101, -1, 8, -101, -1, 32, -101, -1, 100, -101, -1, 56,
    -4, -4, -1, -1, -1, -1, -101, -1, 80, -101, -1, 76,
};

}  // namespace

void dpx_swap_description(common::stack<int>& out) {
    for (int code : dpx_codes) out.append(code);
}

void dpx_swap_header(SMPTE268M_Header_t& header) {
    common::stack<int> description;
    dpx_swap_description(description);
    common::bs_struct<SMPTE268M_Header_t*> swap(&header, &description);
}
