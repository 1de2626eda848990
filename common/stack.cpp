#include "common/stack.h"

#include <cctype>
#include <cstring>

namespace common {

int compare_cstrings(char* const* a, char* const* b) {
    const char* x = *a;
    const char* y = *b;
    size_t lx = std::strlen(x), ly = std::strlen(y);
    size_t n = lx < ly ? lx : ly;
    for (size_t i = 0; i < n; ++i) {
        int cx = std::tolower(static_cast<unsigned char>(x[i]));
        int cy = std::tolower(static_cast<unsigned char>(y[i]));
        if (cx != cy) return cx > cy ? 1 : 0;
    }
    return lx > ly ? 1 : 0;
}

}  // namespace common
