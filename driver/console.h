// Unbuffered text channel over a file descriptor, the three process-wide
// consoles, the red error line and two timing helpers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/file.h"
#include "common/stream.h"
#include "common/unicode.h"

namespace common {

// Writes text and numbers to a descriptor, each piece with one write(2).
class console {
public:
    // A console on descriptor `descriptor`.
    explicit console(int descriptor);
    // Leaves the descriptor open: the console does not own it.
    virtual ~console();

    // Writes the text up to its NUL; null writes nothing.
    console& operator<<(const char* text);
    // Writes one byte.
    console& operator<<(char c);
    // Writes the path's text; an empty path writes nothing.
    console& operator<<(const file& path);
    // Writes the stream's text.
    console& operator<<(const stream& text);
    // Writes the wide text as UTF-8.
    console& operator<<(const unicode& text);
    // Writes a signed number in decimal.
    console& operator<<(int8_t value) { return write_signed(value); }
    // Writes an unsigned number in decimal.
    console& operator<<(uint8_t value) { return write_unsigned(value); }
    // Writes a signed number in decimal.
    console& operator<<(int16_t value) { return write_signed(value); }
    // Writes an unsigned number in decimal.
    console& operator<<(uint16_t value) { return write_unsigned(value); }
    // Writes a signed number in decimal.
    console& operator<<(int32_t value) { return write_signed(value); }
    // Writes an unsigned number in decimal.
    console& operator<<(uint32_t value) { return write_unsigned(value); }
    // Writes a signed number in decimal.
    console& operator<<(long value) { return write_signed(value); }
    // Writes a signed number in decimal.
    console& operator<<(long long value) { return write_signed(value); }
    // Writes an unsigned number in decimal.
    console& operator<<(unsigned long value) { return write_unsigned(value); }
    // Writes an unsigned number in decimal.
    console& operator<<(unsigned long long value) { return write_unsigned(value); }
    // Writes the integer part, "." and nine fraction digits, as a stream does.
    console& operator<<(double value);

    // Terminal rows of the descriptor; 0 when it is not a terminal.
    int rows();
    // Terminal columns of the descriptor; 0 when it is not a terminal.
    int width();
    // Terminal width in pixels; 0 when unknown.
    int width_pixels();
    // Terminal height in pixels; 0 when unknown.
    int height_pixels();

    // Reads the bytes waiting on descriptor 0 into `buf` (at most len - 1 and
    // a NUL); other descriptors give "". Returns the bytes read.
    int read(char* buf, int len);
    // Reads the waiting bytes into `path` as a UTF-8 path; nothing waiting empties it.
    int read(file& path);
    // Reads the waiting bytes into `text`; nothing waiting empties it.
    int read(stream& text);
    // Reads the waiting bytes into `text` as UTF-8; nothing waiting empties it.
    int read(unicode& text);

    int fd;                  // descriptor written to and read from
    int32_t tty_status = 0;  // status flags of the first terminal database entry, 0 without one

private:
    // Writes `n` bytes with one write(2), finishing a partial one.
    console& put(const char* text, size_t n);
    // Writes "-" and the digits of a signed number in one piece.
    console& write_signed(int64_t value);
    // Writes the digits of an unsigned number in one piece.
    console& write_unsigned(uint64_t value);
    // Reads the waiting bytes of descriptor 0 into a new malloc'ed text.
    char* read_waiting(int* count);
};

extern console console_out;  // standard output, where the driver writes everything
extern console console_err;  // standard error
extern console console_in;   // standard input, for reading waiting bytes

// Time of day in microseconds.
uint64_t microseconds_now();
// Sixtieths of a second: seconds modulo 100000 times 60 plus microseconds / 16666.
uint32_t ticks_now();

}  // namespace common

// Writes "\033[1;31mError: ", the `count` C strings that follow, "\033[0m"
// and a newline to standard output.
void printError(int count, ...);
