// A file-system path held as text in one of four forms, edited component by
// component, with the program's file-system operations on it.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "common/allocator.h"
#include "common/file_range.h"
#include "common/io.h"
#include "common/stack.h"

namespace common {

// What file::create_directory came to; the numbers are the codes it has always had.
// clang-format off
enum class [[nodiscard]] directory_result { made = 0, failed = 1, already_there = 2 };
// clang-format on

// A path object; it holds no descriptor between calls. Every operation on an
// empty path does nothing and returns ok (made), 0, false or its buffer.
class file {
public:
    // Path forms: how the text is written.
    enum : int {
        system_path = 0,  // file-system path in the platform's system encoding (UTF-8 here)
        posix_path = 1,   // file-system path in UTF-8: what every POSIX call is given
        utf8_path = 2,    // file-system path in UTF-8
        url = 3,          // file URL string, "file://" and the path percent-escaped
    };

    // Private buffer holder; adds nothing to the allocator.
    class _stream_impl : public allocator<char> {};

    // An empty path of form 1.
    file() {}
    // The UTF-8 path `utf8` of form 1.
    explicit file(const char* utf8) { assign(posix_path, utf8); }
    // Copies the other's form and text.
    file(const file& other);
    // Copies the other's form and text.
    file& operator=(const file& other);
    // Frees the buffer.
    virtual ~file();

    // Replaces the text; null empties it keeping the form, "" empties it taking `form`.
    void assign(int form, const char* text);
    // Appends raw text (no separator) after converting the path to `form`.
    void append(int form, const char* text);
    // Appends the other path's text in the other's form.
    void append(const file& other);
    // Appends `count` C strings, given after it, in order.
    void append_texts(int form, int count, ...);
    // Appends the decimal digits of `value`.
    void append_number(uint64_t value);
    // Appends the decimal digits of `value`, "-" first when negative.
    void append_number(int64_t value);
    // Appends "/" unless the path is empty, `request` is 0 or it already ends in "/".
    void add_separator(int request = 1);
    // Goes to the parent: drops trailing "/" and cuts after the last "/" left.
    void parent();
    // Goes to the parent, converts to `form` and appends `text`.
    void replace_last(int form, const char* text);
    // Converts the text to `form` (0 to 3) in place; the form is taken even
    // when the conversion fails (the path is then emptied).
    void convert_to(int form);

    // Copies the last component (trailing "/" ignored) into `buf`.
    char* name(char* buf, int len) const;
    // Copies the last component without its last "." and what follows.
    char* base_name(char* buf, int len) const;
    // Copies the text after the last "." of the last component; "" without one.
    char* extension(char* buf, int len) const;
    // Gives the name the extension `ext` (without its dot), replacing the old
    // one when `replace` is non-zero. True when the path changed.
    bool change_extension(const char* ext, int replace);
    // Copies the path converted to form `wanted`; unconvertible text is copied as it is.
    char* text_in_form(int wanted, char* buf, int len) const;

    // The path's status-change time in seconds; 0xFFFFFFFF when stat fails.
    uint32_t change_time();
    // True when the path opens as a directory (*is_dir = 1) or as a file (*is_dir = 0).
    bool exists(int* is_dir = nullptr);
    // Removes the file or empty directory: ok done (0), failed (1).
    io_result remove();
    // Sets the permission bits: ok done (0), failed (1).
    io_result change_mode(mode_t mode);
    // Makes `other` a symbolic link to this path: ok done (0), failed (1).
    io_result link_to(const file& other);
    // Renames this path to `other`: ok done (0), failed (1).
    io_result rename_to(const file& other);
    // Copies the file's bytes and mode to `other`: ok done (0), failed (1).
    io_result copy_to(const file& other);
    // Makes the directory and any missing parents: made (0), already_there (2), failed (1).
    directory_result create_directory(mode_t mode);
    // Removes the directory and everything under it: ok done (0), failed (1).
    io_result remove_tree();
    // Appends to `out` one calloc'ed record per run of consecutive frame
    // numbers of the sequence this path belongs to; 1 when any was reported.
    int frame_ranges(stack<kel_fileRange_t*>& out);

    // Writes size, text with its NUL, and form into `buf`; *out_size = size + 8.
    // Failed (1, after a message) when `buf` is null; else ok (0).
    io_result pack_data(void* buf, uint32_t* out_size) const;
    // Reads what pack_data wrote; *in_size = size + 8. Failed (1) when `buf`
    // is null (after a message) or the packed size is negative; else ok (0).
    io_result unpack_data(const void* buf, uint32_t* in_size);

    // The text; "" when empty.
    const char* c_str() const { return data ? data : ""; }
    // True when no path is held.
    bool empty() const { return data == nullptr; }

    _stream_impl impl;      // buffer holder; carries no data
    char* first = nullptr;  // start of the path buffer (equal to data)
    char* top = nullptr;    // the terminating NUL
    char* last = nullptr;   // last byte of the buffer
    int32_t form = 1;       // path form of the text
    char* data = nullptr;   // the owned buffer; null for an empty path
    int32_t size = 0;       // text length including the NUL; 0 when empty

private:
    // A copy of `other` in the form every system call is given.
    static file as_posix_path(const file& other);
    // Replaces the text with the `n` bytes at `text` and takes `new_form`.
    void assign_bytes(int new_form, const char* text, size_t n);
    // Frees the buffer and zeroes every member but the form.
    void release();
    // Start and end (exclusive) of the last component within the text.
    void name_bounds(int32_t* begin, int32_t* end) const;
    // Starts a query that copies part of the name into `buf`: empties `buf`
    // and gives the name's bounds; false when there is no room or no path.
    bool start_name_query(char* buf, int len, int32_t* begin, int32_t* end) const;
    // The last '.' in the text between `begin` and `end`, or null.
    const char* last_dot(int32_t begin, int32_t end) const;
};

}  // namespace common
