// The in-place progress line: percentage, bar and elapsed time.
#pragma once

#include <cstdint>

// Draws the progress line for `done` of `total` jobs.
void showProgress(int32_t done, int32_t total);
