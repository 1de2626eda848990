// One run of consecutive frame numbers of a numbered image sequence.
#pragma once

#include <cstdint>

// A frame range, allocated zero-filled with calloc by whoever reports it.
struct kel_fileRange_t {
    int32_t first;  // lowest frame number of the run
    int32_t last;   // highest frame number of the run
};
