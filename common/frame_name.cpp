#include "common/frame_name.h"

#include <cstring>

namespace common {

size_t extension_start(const char* name, size_t length) {
    const void* dot = memrchr(name, '.', length);
    return dot ? size_t(static_cast<const char*>(dot) - name) : no_index;
}

size_t digits_start(const char* name, size_t end) {
    while (end > 0 && is_decimal_digit(name[end - 1])) --end;
    return end;
}

frame_tokens tokenize_frame_name(const char* name, size_t length) {
    size_t dot = extension_start(name, length);
    if (dot == no_index) return {no_index, 0};
    return {dot, digits_start(name, dot)};
}

int style_of_separator(char c) {
    if (c == ' ') return spaced_frames;
    if (c == '.') return dotted_frames;
    return attached_frames;
}

size_t kept_digits(size_t length) { return length > max_frame_digits ? max_frame_digits : length; }

bool is_frame_number(const char* text, size_t length) {
    if (length == 0) return false;
    for (size_t i = 0; i < length; ++i)
        if (!is_decimal_digit(text[i])) return false;
    return true;
}

}  // namespace common
