// Growable 8-bit text buffer on the C heap, and the decimal formatting of
// numbers that the library's text classes share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/allocator.h"

namespace common {

class file;
class unicode;

// Bytes needed by decimal_text and real_text: 66 characters, a sign and a NUL.
constexpr size_t number_text_size = 68;

// Writes "-" when `negative`, then the decimal digits of `magnitude`
// ("0" for zero), terminated, into `out` (number_text_size bytes). Returns `out`.
char* decimal_text(char* out, uint64_t magnitude, bool negative);

// Writes the integer part of `value` (its magnitude as an unsigned 32-bit
// number, saturated), "-" first when negative, then "." and exactly nine
// fraction digits computed in single precision. Returns `out`.
char* real_text(char* out, double value);

// A NUL-terminated text buffer that grows as text is appended or inserted.
class stream {
public:
    // Private buffer holder; adds nothing to the allocator.
    class _stream_impl : public allocator<char> {};

    // An empty stream with no buffer.
    stream() {}
    // A stream holding a copy of `text`.
    explicit stream(const char* text) { assign(text); }
    // A stream holding a copy of the other's text.
    stream(const stream& other) { assign(other.data); }
    // Replaces the text with a copy of the other's.
    stream& operator=(const stream& other);
    // Frees the buffer and zeroes every member.
    virtual ~stream();

    // Replaces the text; null or empty empties the stream, otherwise the
    // buffer holds exactly the text and its NUL.
    void assign(const char* text);
    // Appends `text`; null or empty does nothing.
    void append(const char* text);
    // Inserts `text` before byte `position`, clamped to the text; past the end appends.
    void insert(const char* text, int32_t position);
    // Appends one character.
    void append(char c);
    // Appends the decimal digits of an unsigned number.
    void append(uint32_t value);
    // Appends the decimal digits of a signed number, "-" first when negative.
    void append(int32_t value);
    // Appends the number as real_text writes it.
    void append(double value);
    // Appends the other stream's text.
    void append(const stream& other);
    // Appends a path's text.
    void append(const file& path);
    // Appends a wide text converted to UTF-8.
    void append(const unicode& text);

    // Removes `from` .. `to` inclusive when `to` lies in the text (only `to`
    // when to < from); when `to` lies past it, keeps the first from - 1 bytes.
    void erase(int32_t from, int32_t to);
    // Cuts the text to `new_size` bytes counting the NUL; 1 or less empties.
    void truncate(int32_t new_size);
    // Turns every character to upper case.
    void to_upper();
    // Turns every character to lower case.
    void to_lower();

    // The text; "" when empty.
    const char* c_str() const { return data ? data : ""; }
    // Number of characters, without the NUL.
    int32_t length() const { return size > 0 ? size - 1 : 0; }
    // Bytes in the buffer; 0 when empty.
    int32_t capacity() const { return data ? int32_t(last - first) + 1 : 0; }
    // Frees the buffer and zeroes every member.
    void clear();

    _stream_impl impl;      // buffer holder; carries no data
    char* first = nullptr;  // start of the buffer (equal to data)
    char* top = nullptr;    // the terminating NUL
    char* last = nullptr;   // last byte of the buffer
    char* data = nullptr;   // the owned buffer; null when empty
    int32_t size = 0;       // text length including the NUL; 0 when empty

private:
    // Reallocates the buffer to `bytes` and keeps the text.
    void resize(int64_t bytes);
    // Points every member at the text of `new_size` bytes.
    void set_size(int32_t new_size);
};

}  // namespace common
