#include "common/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "common/exceptions.h"
#include "common/io.h"
#include "common/stream.h"
#include "common/url.h"

namespace common {

namespace {

// Longest frame-number text kept from a name.
constexpr size_t max_number_digits = 15;

// Unbuffered, so the messages keep their place among the console's writes.
void say(const char* text) {
    // The console ignores a failed write; so do these messages.
    (void)write_all(1, text, std::strlen(text));
}

bool inside(const char* text, const char* begin, const char* end) {
    if (!begin) return false;
    std::less_equal<const char*> le;
    return le(begin, text) && le(text, end);
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Converts `text` from one path form to another into `out`; false when the
// text cannot be converted. Forms 0 to 2 all hold UTF-8 here.
bool form_text(int from, int to, const char* text, stream& out) {
    if (from < 0 || from > 3 || to < 0 || to > 3) return false;
    if ((from == file::url) == (to == file::url)) {
        out.assign(text);
        return true;
    }
    if (to == file::url) {
        path_to_url(text, out);
        return true;
    }
    return url_to_path(text, out);
}

void copy_out(char* buf, int len, const char* text, size_t n) {
    if (n > size_t(len - 1)) n = size_t(len - 1);
    std::memcpy(buf, text, n);
    buf[n] = 0;
}

// Where the frame number of a sequence file name lies.
struct frame_split {
    size_t base_len;      // the name before the number and its separator
    size_t number_begin;  // first digit
    size_t number_len;    // digits kept, at most 15
    size_t ext_begin;     // the last ".", start of the extension
};

// Naming style of a frame file name: 2 for "name 0001.ext", 1 for
// "name0001.ext", 0 for "name.0001.ext" and for a name without ".".
int naming_style(const char* name) {
    const char* dot = std::strrchr(name, '.');
    if (!dot) return 0;
    const char* p = dot;
    while (p > name && is_digit(p[-1])) --p;
    if (p == name) return 0;
    if (p[-1] == ' ') return 2;
    return p[-1] == '.' ? 0 : 1;
}

bool split_frame_name(const char* name, int style, frame_split* out) {
    const char* dot = std::strrchr(name, '.');
    if (!dot) return false;
    size_t stem = size_t(dot - name);
    out->ext_begin = stem;
    if (style == 1) {
        size_t i = stem;
        while (i > 0 && is_digit(name[i - 1])) --i;
        out->base_len = i;
        out->number_begin = i;
    } else if (style == 2) {
        const void* blank = memrchr(name, ' ', stem);
        if (!blank) return false;
        out->base_len = size_t(static_cast<const char*>(blank) - name);
        out->number_begin = out->base_len + 1;
    } else {
        const void* first_dot = std::memchr(name, '.', stem);
        if (!first_dot) return false;
        out->base_len = size_t(static_cast<const char*>(first_dot) - name);
        out->number_begin = out->base_len + 1;
    }
    if (style != 0 && out->base_len < 1) return false;
    out->number_len = stem - out->number_begin;
    if (out->number_len > max_number_digits) out->number_len = max_number_digits;
    if (out->number_len == 0) return false;
    for (size_t i = 0; i < out->number_len; ++i)
        if (!is_digit(name[out->number_begin + i])) return false;
    return true;
}

// The frame number of a split name, clamped to the signed 32-bit range.
int64_t frame_number(const char* name, const frame_split& split) {
    int64_t value = 0;
    for (size_t i = 0; i < split.number_len; ++i) value = value * 10 + (name[split.number_begin + i] - '0');
    return value > INT32_MAX ? INT32_MAX : value;
}

void release_name(char* name) { std::free(name); }

void report_range(stack<kel_fileRange_t*>& out, int64_t first, int64_t last) {
    auto* range = static_cast<kel_fileRange_t*>(std::calloc(1, sizeof(kel_fileRange_t)));
    if (!range) throw _throw_bad_allocation();
    range->first = int32_t(first);
    range->last = int32_t(last);
    out.append(range);
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
    if (!form_text(form, new_form, data, converted)) {
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
    if (wanted == form || !form_text(form, wanted, data, converted)) {
        copy_out(buf, len, data, size_t(size - 1));
        return buf;
    }
    copy_out(buf, len, converted.c_str(), size_t(converted.length()));
    return buf;
}

uint32_t file::change_time() {
    convert_to(posix_path);
    struct stat st;
    if (!data || ::stat(data, &st) != 0) return 0xFFFFFFFFu;
    return uint32_t(st.st_ctime);
}

bool file::exists(int* is_dir) {
    if (!data) return false;
    int saved = form;
    convert_to(posix_path);
    bool found = false;
    if (DIR* dir = ::opendir(c_str())) {
        ::closedir(dir);
        if (is_dir) *is_dir = 1;
        found = true;
    } else if (open_for_reading(c_str()).valid()) {
        if (is_dir) *is_dir = 0;
        found = true;
    }
    convert_to(saved);
    return found;
}

// A copy of `other` in the form every system call is given.
file file::as_posix_path(const file& other) {
    file target(other);
    target.convert_to(posix_path);
    return target;
}

int file::remove() {
    if (!data) return 0;
    convert_to(posix_path);
    return remove_file(c_str()) == io_result::ok ? 0 : 1;
}

int file::change_mode(mode_t mode) {
    if (!data) return 0;
    convert_to(posix_path);
    return ::chmod(c_str(), mode) == 0 ? 0 : 1;
}

int file::link_to(const file& other) {
    if (!data) return 0;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    return ::symlink(c_str(), target.c_str()) == 0 ? 0 : 1;
}

int file::rename_to(const file& other) {
    if (!data) return 0;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    return rename_file(c_str(), target.c_str()) == io_result::ok ? 0 : 1;
}

int file::copy_to(const file& other) {
    if (!data) return 0;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    descriptor in = open_file(c_str(), O_RDONLY);
    if (!in.valid()) return 1;
    struct stat from, to;
    // A directory has no bytes to copy, and copying a file onto itself would
    // truncate it before it is read.
    if (status_of(in.get(), from) != io_result::ok || S_ISDIR(from.st_mode) ||
        (status_of(target.c_str(), to) == io_result::ok && to.st_dev == from.st_dev && to.st_ino == from.st_ino))
        return 1;
    mode_t mode = from.st_mode & 07777;
    descriptor out = open_file(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (!out.valid()) return 1;
    // The creation mode passes through the umask; the copy gets the source's bits.
    int result = ::fchmod(out.get(), mode) == 0 ? 0 : 1;
    if (from.st_size > 0 && copy_range(in.get(), 0, out.get(), 0, uint64_t(from.st_size)) != io_result::ok) result = 1;
    if (out.close() != io_result::ok) result = 1;
    return result;
}

int file::create_directory(mode_t mode) {
    if (!data) return 0;
    convert_to(posix_path);
    if (DIR* dir = ::opendir(c_str())) {
        ::closedir(dir);
        return 2;
    }
    while (::mkdir(c_str(), mode) != 0) {
        file above(*this);
        above.parent();
        if (above.empty()) return 1;
        // The root of the mounted-volumes folder is never created into.
        int32_t b, e;
        above.name_bounds(&b, &e);
        if (e - b == 7 && std::memcmp(above.data + b, "Volumes", 7) == 0) return 1;
        if (above.create_directory(mode) != 0) return 1;
    }
    return 0;
}

int file::remove_tree() {
    if (!data) return 0;
    convert_to(posix_path);
    DIR* dir = ::opendir(c_str());
    if (!dir) return errno == ENOENT ? 0 : 1;
    while (struct dirent* entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        file child(*this);
        child.add_separator();
        child.append(posix_path, entry->d_name);
        struct stat st;
        int failed;
        if (::lstat(child.c_str(), &st) != 0) failed = errno == ENOENT ? 0 : 1;
        else if (S_ISDIR(st.st_mode)) failed = child.remove_tree();
        else failed = ::remove(child.c_str()) == 0 ? 0 : 1;
        if (failed) {
            ::closedir(dir);
            return 1;
        }
        ::rewinddir(dir);
    }
    ::closedir(dir);
    return ::rmdir(c_str()) == 0 ? 0 : 1;
}

int file::frame_ranges(stack<kel_fileRange_t*>& out) {
    if (!data) return 0;
    file path(*this);
    path.convert_to(posix_path);
    if (path.empty()) return 0;
    file folder(path);
    folder.parent();
    if (folder.empty()) return 0;

    int32_t b, e;
    path.name_bounds(&b, &e);
    stream own_name;
    own_name.assign(path.data + b);
    own_name.truncate(e - b + 1);
    const char* own = own_name.c_str();
    int style = naming_style(own);
    frame_split own_split;
    if (!split_frame_name(own, style, &own_split)) return 0;

    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return 0;
    stack<char*> names(release_name);
    while (struct dirent* entry = ::readdir(dir)) {
        const char* candidate = entry->d_name;
        frame_split split;
        if (!split_frame_name(candidate, style, &split)) continue;
        if (split.base_len != own_split.base_len || std::memcmp(candidate, own, split.base_len) != 0) continue;
        if (std::strcmp(candidate + split.ext_begin, own + own_split.ext_begin) != 0) continue;
        char* kept = strdup(candidate);
        if (!kept) {
            ::closedir(dir);
            throw _throw_bad_allocation();
        }
        names.append(kept);
    }
    ::closedir(dir);
    if (names.size() < 2) return 0;

    // Deliberately ordered by name, not number: frame numbers of unequal
    // width do not come out in numeric order, as in every earlier release.
    names.sort(compare_cstrings);
    int64_t start = 0, previous = 0;
    for (int32_t i = 0; i < names.size(); ++i) {
        frame_split split;
        split_frame_name(names[i], style, &split);
        int64_t number = frame_number(names[i], split);
        if (i == 0) {
            start = previous = number;
            continue;
        }
        if (number > previous + 1) {
            report_range(out, start, previous);
            start = number;
        }
        previous = number;
    }
    report_range(out, start, previous);
    return 1;
}

int file::pack_data(void* buf, uint32_t* out_size) const {
    if (!buf) {
        say("file::pack_data, ERROR no buffer to pack the data in.\n");
        return 1;
    }
    unsigned char* p = static_cast<unsigned char*>(buf);
    int32_t packed_form = form;
    std::memcpy(p, &size, 4);
    if (size > 0) std::memcpy(p + 4, data, size_t(size));
    std::memcpy(p + 4 + size, &packed_form, 4);
    if (out_size) *out_size = uint32_t(size) + 8;
    return 0;
}

int file::unpack_data(const void* buf, uint32_t* in_size) {
    if (!buf) {
        say(" file::unpack_data, ERROR no buffer to unpack.\n");
        return 1;
    }
    const unsigned char* p = static_cast<const unsigned char*>(buf);
    int32_t packed_size, packed_form;
    std::memcpy(&packed_size, p, 4);
    if (packed_size < 0 || packed_size > INT32_MAX - 8) return 1;
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
    return 0;
}

}  // namespace common
