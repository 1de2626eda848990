#include "common/memmove.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace common {

namespace {
// Unbuffered, so the messages keep their place among the console's writes.
void say(const char* text) {
    size_t n = std::strlen(text);
    while (n > 0) {
        ssize_t w = ::write(1, text, n);
        if (w <= 0) return;
        text += w;
        n -= size_t(w);
    }
}
}  // namespace

void* checked_memmove(void* dest, const void* src, uint32_t count) {
    if (!dest) say("memmove with no destination\n");
    if (!src) say("memmove with no source\n");
    if (dest && src && count != 0) return std::memmove(dest, src, count);
    if (count == 0) {
        char line[48];
        std::snprintf(line, sizeof line, "memmove with %d Bytes\n", int(count));
        say(line);
    }
    return dest;
}

}  // namespace common
