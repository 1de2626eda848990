// The pieces of a numbered frame file name such as "shot.0001.dpx": where its
// extension starts, where the frame digits before it lie, the naming style
// told by the character before them, and how much of the number is read.
// Callers put their own rules for the prefix and the number on top.
#pragma once

#include <cstddef>

namespace common {

// Naming style of "shot.0001.dpx": a "." before the frame digits.
constexpr int dotted_frames = 0;
// Naming style of "shot0001.dpx": the digits follow any other character.
constexpr int attached_frames = 1;
// Naming style of "shot 0001.dpx": a space before the frame digits.
constexpr int spaced_frames = 2;

// Most characters of a frame number's text that are read; the rest is ignored.
constexpr size_t max_frame_digits = 15;

// Index value that stands for "not there".
constexpr size_t no_index = static_cast<size_t>(-1);

// Where the extension of a name and the frame digits before it lie.
struct frame_tokens {
    size_t extension;  // the last ".", where the extension starts; no_index when there is none
    size_t digits;     // first of the digits just before `extension` (equal to it without any); 0 without a "."
};

// True for the ten decimal digits.
inline bool is_decimal_digit(char c) { return c >= '0' && c <= '9'; }

// Index of the last "." among the first `length` characters of `name`; no_index without one.
size_t extension_start(const char* name, size_t length);
// Index of the first of the digits that end just before index `end` of `name`;
// `end` when the character before it is no digit, 0 when the digits reach the start.
size_t digits_start(const char* name, size_t end);
// The extension and frame digits of the first `length` characters of `name`.
frame_tokens tokenize_frame_name(const char* name, size_t length);
// The naming style told by the character just before the frame digits:
// spaced for " ", dotted for ".", attached for anything else.
int style_of_separator(char c);
// How many of a frame number's `length` characters are read: at most max_frame_digits.
size_t kept_digits(size_t length);
// True when the `length` characters at `text` are decimal digits and there is at least one.
bool is_frame_number(const char* text, size_t length);

}  // namespace common
