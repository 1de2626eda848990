// Reversal of the bytes of every 32-bit word of a buffer.
#pragma once

#include <cstdint>

// Reverses the byte order of each of the `bytes` / 4 whole 32-bit words at
// `buf`, in place; trailing bytes past the last whole word are left alone.
void reverse_words(void* buf, uint64_t bytes);
