// Reversal of the byte order of every unit (16-, 32- or 64-bit word) of a buffer.
#pragma once

#include <cstdint>

// Reverses the byte order of each of the `bytes` / 4 whole 32-bit words at
// `buf`, in place; trailing bytes past the last whole word are left alone.
void reverse_words(void* buf, uint64_t bytes);
// Reverses the byte order of each whole unit of `unit` bytes (2, 4 or 8) at
// `buf`, in place; a tail shorter than a unit is left alone, and units of any
// other size (1: bytes) have no order to reverse.
void reverse_units(void* buf, uint64_t bytes, uint32_t unit);
