#include "common/memmove.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/io.h"

namespace common {

namespace {
// Unbuffered, so the messages keep their place among the console's writes.
void say(const char* text) {
    // The console ignores a failed write; so do these messages.
    (void)write_all(1, text, std::strlen(text));
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
