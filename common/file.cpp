#include "common/file.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "common/exceptions.h"
#include "common/io.h"
#include "common/stream.h"
#include "common/url.h"

namespace common {

namespace {

// Unbuffered, so the messages keep their place among the console's writes.
void say(const char* text) {
    // The console ignores a failed write; so do these messages.
    (void)write_all(1, text, std::strlen(text));
}

// True when `text` points into the buffer from `begin` to `end`, so it moves when the buffer does.
bool inside(const char* text, const char* begin, const char* end) {
    if (!begin) return false;
    std::less_equal<const char*> le;
    return le(begin, text) && le(text, end);
}

// Converts `text` from one path form to another into `out`; refused when
// the text cannot be converted. Forms 0 to 2 all hold UTF-8 here.
conversion form_text(int from, int to, const char* text, stream& out) {
    if (from < 0 || from > 3 || to < 0 || to > 3) return conversion::refused;
    if ((from == file::url) == (to == file::url)) {
        out.assign(text);
        return conversion::done;
    }
    if (to == file::url) {
        path_to_url(text, out);
        return conversion::done;
    }
    return url_to_path(text, out);
}

// Copies `n` bytes of `text` into `buf` of `len` bytes, cut to fit, and terminates it.
void copy_out(char* buf, int len, const char* text, size_t n) {
    if (n > size_t(len - 1)) n = size_t(len - 1);
    std::memcpy(buf, text, n);
    buf[n] = 0;
}

}  // namespace

file::file(const file& other) {
    form = other.form;
    assign(other.form, other.data);
}

file& file::operator=(const file& other) {
    if (this == &other) return *this;
    form = other.form;
    assign(other.form, other.data);
    return *this;
}

file::~file() { release(); }

void file::release() {
    std::free(data);
    data = first = top = last = nullptr;
    size = 0;
}

void file::assign_bytes(int new_form, const char* text, size_t n) {
    if (n + 1 > size_t(INT32_MAX)) throw _throw_bad_allocation();
    char* block = static_cast<char*>(std::realloc(data, n + 1));
    if (!block) throw _throw_bad_allocation();
    std::memcpy(block, text, n);
    block[n] = 0;
    form = new_form;
    first = data = block;
    size = int32_t(n + 1);
    top = last = data + n;
}

void file::assign(int new_form, const char* text) {
    if (!text) {
        release();
        return;
    }
    if (!*text) {
        release();
        form = new_form;
        return;
    }
    if (inside(text, data, last)) {
        stream copy(text);
        assign_bytes(new_form, copy.c_str(), size_t(copy.length()));
        return;
    }
    assign_bytes(new_form, text, std::strlen(text));
}

void file::append(int new_form, const char* text) {
    if (!text || !*text) return;
    if (inside(text, data, last)) {
        stream copy(text);
        append(new_form, copy.c_str());
        return;
    }
    convert_to(new_form);
    if (!data) {
        assign(new_form, text);
        return;
    }
    int64_t n = int64_t(std::strlen(text));
    if (last - top < n + 1) {
        int64_t bytes = int64_t(size) + (n > size - 1 ? n : size - 1);
        if (bytes > INT32_MAX) throw _throw_bad_allocation();
        char* block = static_cast<char*>(std::realloc(data, size_t(bytes)));
        if (!block) throw _throw_bad_allocation();
        first = data = block;
        last = data + (bytes - 1);
    }
    std::memcpy(data + (size - 1), text, size_t(n) + 1);
    size = int32_t(size + n);
    top = data + (size - 1);
}

void file::append(const file& other) {
    if (other.size < 1) return;
    if (!data) {
        assign(other.form, other.data);
        return;
    }
    append(other.form, other.data);
}

void file::append_texts(int new_form, int count, ...) {
    va_list texts;
    va_start(texts, count);
    for (int i = 0; i < count; ++i) append(new_form, va_arg(texts, const char*));
    va_end(texts);
}

void file::append_number(uint64_t value) {
    char text[number_text_size];
    append(form, decimal_text(text, value, false));
}

void file::append_number(int64_t value) {
    char text[number_text_size];
    uint64_t magnitude = value < 0 ? 0u - uint64_t(value) : uint64_t(value);
    append(form, decimal_text(text, magnitude, value < 0));
}

void file::add_separator(int request) {
    if (!data || request == 0 || data[size - 2] == '/') return;
    append(form, "/");
}

void file::parent() {
    if (size <= 2) return;
    int32_t end = size - 1;
    while (end > 0 && data[end - 1] == '/') --end;
    const void* slash = memrchr(data, '/', size_t(end));
    if (!slash) {
        release();
        return;
    }
    int32_t keep = int32_t(static_cast<const char*>(slash) - data) + 1;
    data[keep] = 0;
    size = keep + 1;
    top = data + keep;
}

void file::replace_last(int new_form, const char* text) {
    parent();
    convert_to(new_form);
    append(new_form, text);
}

void file::convert_to(int new_form) {
    if (!data || new_form == form || new_form < system_path || new_form > url) return;
    stream converted;
    if (form_text(form, new_form, data, converted) != conversion::done) {
        release();
        form = new_form;
        return;
    }
    assign(new_form, converted.c_str());
    form = new_form;
}

void file::name_bounds(int32_t* begin, int32_t* end) const {
    int32_t e = size - 1;
    while (e > 0 && data[e - 1] == '/') --e;
    int32_t b = e;
    while (b > 0 && data[b - 1] != '/') --b;
    *begin = b;
    *end = e;
}

bool file::start_name_query(char* buf, int len, int32_t* begin, int32_t* end) const {
    if (!buf || len < 1) return false;
    buf[0] = 0;
    if (!data) return false;
    name_bounds(begin, end);
    return true;
}

const char* file::last_dot(int32_t begin, int32_t end) const {
    return static_cast<const char*>(memrchr(data + begin, '.', size_t(end - begin)));
}

char* file::name(char* buf, int len) const {
    int32_t b, e;
    if (start_name_query(buf, len, &b, &e)) copy_out(buf, len, data + b, size_t(e - b));
    return buf;
}

char* file::base_name(char* buf, int len) const {
    int32_t b, e;
    if (!start_name_query(buf, len, &b, &e)) return buf;
    if (const char* dot = last_dot(b, e)) e = int32_t(dot - data);
    copy_out(buf, len, data + b, size_t(e - b));
    return buf;
}

char* file::extension(char* buf, int len) const {
    int32_t b, e;
    if (!start_name_query(buf, len, &b, &e)) return buf;
    const char* dot = last_dot(b, e);
    if (!dot) return buf;
    int32_t d = int32_t(dot - data) + 1;
    copy_out(buf, len, data + d, size_t(e - d));
    return buf;
}

bool file::change_extension(const char* ext, int replace) {
    if (!data || !ext || data[size - 2] == '/') return false;
    int32_t b, e;
    name_bounds(&b, &e);
    const char* dot = last_dot(b, e);
    const char* current = dot ? dot + 1 : data + e;
    if (std::strcmp(current, ext) == 0) return false;
    if (dot && replace) {
        int32_t keep = int32_t(dot - data) + 1;
        data[keep] = 0;
        size = keep + 1;
        top = data + keep;
    } else {
        append(form, ".");
    }
    append(form, ext);
    return true;
}

char* file::text_in_form(int wanted, char* buf, int len) const {
    if (!buf || len < 1) return buf;
    buf[0] = 0;
    if (!data) return buf;
    stream converted;
    if (wanted == form || form_text(form, wanted, data, converted) != conversion::done) {
        copy_out(buf, len, data, size_t(size - 1));
        return buf;
    }
    copy_out(buf, len, converted.c_str(), size_t(converted.length()));
    return buf;
}

io_result file::pack_data(void* buf, uint32_t* out_size) const {
    if (!buf) {
        say("file::pack_data, ERROR no buffer to pack the data in.\n");
        return io_result::failed;
    }
    unsigned char* p = static_cast<unsigned char*>(buf);
    int32_t packed_form = form;
    std::memcpy(p, &size, 4);
    if (size > 0) std::memcpy(p + 4, data, size_t(size));
    std::memcpy(p + 4 + size, &packed_form, 4);
    if (out_size) *out_size = uint32_t(size) + 8;
    return io_result::ok;
}

io_result file::unpack_data(const void* buf, uint32_t* in_size) {
    if (!buf) {
        say(" file::unpack_data, ERROR no buffer to unpack.\n");
        return io_result::failed;
    }
    const unsigned char* p = static_cast<const unsigned char*>(buf);
    int32_t packed_size, packed_form;
    std::memcpy(&packed_size, p, 4);
    if (packed_size < 0 || packed_size > INT32_MAX - 8) return io_result::failed;
    std::memcpy(&packed_form, p + 4 + packed_size, 4);
    const char* text = reinterpret_cast<const char*>(p + 4);
    size_t n = packed_size > 0 ? strnlen(text, size_t(packed_size)) : 0;
    if (n == 0) {
        release();
        form = packed_form;
    } else {
        assign_bytes(packed_form, text, n);
    }
    if (in_size) *in_size = uint32_t(packed_size) + 8;
    return io_result::ok;
}

}  // namespace common
