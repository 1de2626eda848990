// UTF-16 text in host byte order, converted to and from byte encodings
// through iconv, and the library's one exception class with a message.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/allocator.h"

namespace common {

class stream;
class file;

// A string of 16-bit code units; never terminated, `length()` bounds it.
class unicode {
public:
    // Encoding ids understood by convert, copy_to and encoding_name.
    enum : int {
        system8 = 0,  // the host's 8-bit Western set, "ISO-8859-1"
        utf8 = 1,     // "UTF-8"
        utf16le = 2,  // "UTF-16LE"
        utf16be = 3,  // "UTF-16BE"
        latin1 = 4,   // "ISO-8859-1", written without a terminator
        ascii = 5,    // "ASCII"
        utf32le = 6,  // "UTF-32LE"
        utf32be = 7,  // "UTF-32BE"
    };

    // The encoding whose byte sequence is exactly the host-order unit array.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    static constexpr int internal = utf16be;
#else
    static constexpr int internal = utf16le;
#endif

    // Private buffer holder: the unit block and its bookkeeping.
    class _unicode_impl : public allocator<unsigned short> {
    public:
        unsigned short* begin = nullptr;         // first unit (same block as data)
        unsigned short* last = nullptr;          // one past the last unit of the text
        unsigned short* capacity_end = nullptr;  // last slot of the block
        unsigned short* data = nullptr;          // the owned block; null when empty
        int32_t length = 0;                      // units in use
    };

    // An empty string.
    unicode();
    // The text read as UTF-8, as assign_utf8.
    explicit unicode(const char* utf8_text);
    // Copies the other's units into a block of exactly their number.
    unicode(const unicode& other);
    // Copies the other's units into a block of exactly their number.
    unicode& operator=(const unicode& other);
    // Frees the block.
    virtual ~unicode();

    // Copies `count` units into a block of exactly that size; a null pointer
    // or a count below 1 clears. `encoding` is accepted and ignored.
    void assign(const unsigned short* units, int32_t count, int encoding);
    // Replaces the contents with `text` read as UTF-8; invalid text gives an empty string.
    void assign_utf8(const char* text);
    // Replaces the contents with `text` read as the 8-bit system set.
    void assign_system8(const char* text);

    // Number of code units.
    int32_t length() const { return impl.length; }
    // First code unit; null when empty.
    const unsigned short* data() const { return impl.data; }
    // Number of unit slots in the block; 0 when empty.
    int32_t capacity() const;
    // Frees the block and zeroes the record.
    void clear();

    // 0 when equal; -1 when this string is empty or the lengths differ,
    // otherwise memcmp of the other's units against these.
    int compare(const unicode& other) const;
    // Below 1 clears; below the length truncates and keeps the block; else nothing.
    void set_length(int32_t n);
    // Inserts the other's units before unit `position`, clamped to 0 .. length - 1.
    void insert(const unicode& other, int32_t position);
    // Inserts one unit before unit `position`, clamped to 0 .. length - 1.
    void insert(unsigned short unit, int32_t position);

    // Appends the other's units.
    unicode& append(const unicode& other);
    // Appends one code unit.
    unicode& append(unsigned short unit);

    // Appends the other's units.
    unicode& operator<<(const unicode& other) { return append(other); }
    // Appends `text` read as UTF-8.
    unicode& operator<<(const char* text);
    // Appends the stream's bytes read as UTF-8.
    unicode& operator<<(const stream& text);
    // Appends the file's path text read as UTF-8.
    unicode& operator<<(const file& path);
    // Appends optional "-" and decimal digits.
    unicode& operator<<(signed char value) { return append_signed(value); }
    // Appends optional "-" and decimal digits.
    unicode& operator<<(short value) { return append_signed(value); }
    // Appends optional "-" and decimal digits.
    unicode& operator<<(int value) { return append_signed(value); }
    // Appends decimal digits.
    unicode& operator<<(unsigned char value) { return append_unsigned(value); }
    // Appends decimal digits.
    unicode& operator<<(unsigned short value) { return append_unsigned(value); }
    // Appends decimal digits.
    unicode& operator<<(unsigned int value) { return append_unsigned(value); }
    // Appends the sign of `value` and the digits of its low 32 bits only.
    unicode& operator<<(long value) { return append_signed64(value); }
    // Appends the sign of `value` and the digits of its low 32 bits only.
    unicode& operator<<(long long value) { return append_signed64(value); }
    // Appends "0" and the digits of the low 32 bits; zero gives "0".
    unicode& operator<<(unsigned long value) { return append_unsigned64(value); }
    // Appends "0" and the digits of the low 32 bits; zero gives "0".
    unicode& operator<<(unsigned long long value) { return append_unsigned64(value); }
    // Appends the integer part, "." and nine fraction digits.
    unicode& operator<<(double value);

    // Converts the input bytes into at most *out_size bytes; on return the two
    // sizes hold the bytes written and consumed. Returns iconv's result or -1.
    // For targets 0 and 1 a zero byte follows the output, so `out` must have
    // one byte beyond *out_size.
    static int64_t convert(int target, char* out, size_t* out_size, int source, const char* in, size_t* in_size);
    // Writes the string into `buf` in `encoding`; UTF-8 and the system set are
    // always terminated. Returns `buf`.
    char* copy_to(char* buf, size_t size, int encoding) const;
    // Writes the iconv name of `encoding` into `buf`; an unknown id leaves it untouched.
    static char* encoding_name(char* buf, size_t size, int encoding);

    _unicode_impl impl;  // the unit block and its bookkeeping

private:
    // Appends a signed 32-bit number as text.
    unicode& append_signed(int32_t value);
    // Appends an unsigned 32-bit number as text.
    unicode& append_unsigned(uint32_t value);
    // Appends a signed 64-bit number with its low-word magnitude.
    unicode& append_signed64(int64_t value);
    // Appends an unsigned 64-bit number with its leading "0".
    unicode& append_unsigned64(uint64_t value);
    // Shared body of assign_utf8 and assign_system8.
    void assign_from(const char* text, int source, bool utf8_rules);
    // Points the record at `block` holding `length` of `capacity` units.
    void adopt(unsigned short* block, int32_t capacity, int32_t length);
    // Grows the block, when needed, so that `extra_units` more units fit.
    void make_room(int64_t extra_units);
};

// The exception thrown by unicode::convert; it owns its message.
class exception {
public:
    // Stores `text` as the message.
    explicit exception(const char* text);
    // Releases the message.
    virtual ~exception();

    unicode message;  // what went wrong
};

}  // namespace common
