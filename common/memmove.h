// memmove that refuses null pointers and empty moves with a console message.
#pragma once

#include <cstdint>

namespace common {

// Moves `count` bytes (overlap allowed) and returns `dest`. A null pointer or
// a zero count moves nothing and prints why on standard output.
void* checked_memmove(void* dest, const void* src, uint32_t count);

}  // namespace common
