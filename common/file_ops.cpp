// The file-system operations of common::file: each works on the path in the
// form every system call is given, through the I/O layer where it has the call.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/exceptions.h"
#include "common/file.h"
#include "common/frame_name.h"
#include "common/io.h"
#include "common/stream.h"

namespace common {

namespace {

// Where the frame number of a sequence file name lies.
struct frame_split {
    size_t base_len;      // the name before the number and its separator
    size_t number_begin;  // first digit
    size_t number_len;    // digits kept, at most max_frame_digits
    size_t ext_begin;     // the last ".", start of the extension
};

// A sequence's frames are found by these rules, which its callers have always
// seen: the style is told by the character before the digits that end at the
// last "." (dotted when the digits reach the start of the name or there is no
// "."); a dotted number follows the FIRST "." of the name, a spaced one the
// last space before the extension, an attached one is the digits before it;
// a base of a single character is enough; only the first 15 characters of the
// number are read, and they must all be digits.
int naming_style(const char* name) {
    frame_tokens tokens = tokenize_frame_name(name, std::strlen(name));
    if (tokens.extension == no_index || tokens.digits == 0) return dotted_frames;
    return style_of_separator(name[tokens.digits - 1]);
}

// Where the frame number of `name` lies by the rules of `style`; false when
// the name is no frame name of that style.
bool split_frame_name(const char* name, int style, frame_split* out) {
    frame_tokens tokens = tokenize_frame_name(name, std::strlen(name));
    if (tokens.extension == no_index) return false;
    size_t stem = tokens.extension;
    out->ext_begin = stem;
    if (style == attached_frames) {
        out->base_len = tokens.digits;
        out->number_begin = tokens.digits;
    } else {
        const void* separator = style == spaced_frames ? memrchr(name, ' ', stem) : std::memchr(name, '.', stem);
        if (!separator) return false;
        out->base_len = size_t(static_cast<const char*>(separator) - name);
        out->number_begin = out->base_len + 1;
    }
    if (style != dotted_frames && out->base_len < 1) return false;
    out->number_len = kept_digits(stem - out->number_begin);
    return is_frame_number(name + out->number_begin, out->number_len);
}

// True when `candidate`, split as `split`, has the base and extension of `own`.
bool same_sequence(const char* candidate, const frame_split& split, const char* own, const frame_split& own_split) {
    if (split.base_len != own_split.base_len || std::memcmp(candidate, own, split.base_len) != 0) return false;
    return std::strcmp(candidate + split.ext_begin, own + own_split.ext_begin) == 0;
}

// The frame number of a split name, clamped to the signed 32-bit range.
int64_t frame_number(const char* name, const frame_split& split) {
    int64_t value = 0;
    for (size_t i = 0; i < split.number_len; ++i) value = value * 10 + (name[split.number_begin + i] - '0');
    return value > INT32_MAX ? INT32_MAX : value;
}

void release_name(char* name) { std::free(name); }

// Appends to `names` a copy of every name in `folder` of the same sequence as
// `own` (split as `own_split` by `style`); false when the folder cannot be read.
bool collect_frame_names(const char* folder, const char* own, int style, const frame_split& own_split,
                         stack<char*>& names) {
    DIR* dir = ::opendir(folder);
    if (!dir) return false;
    while (struct dirent* entry = ::readdir(dir)) {
        const char* candidate = entry->d_name;
        frame_split split;
        if (!split_frame_name(candidate, style, &split) || !same_sequence(candidate, split, own, own_split)) continue;
        char* kept = strdup(candidate);
        if (!kept) {
            ::closedir(dir);
            throw _throw_bad_allocation();
        }
        names.append(kept);
    }
    ::closedir(dir);
    return true;
}

void report_range(stack<kel_fileRange_t*>& out, int64_t first, int64_t last) {
    auto* range = static_cast<kel_fileRange_t*>(std::calloc(1, sizeof(kel_fileRange_t)));
    if (!range) throw _throw_bad_allocation();
    range->first = int32_t(first);
    range->last = int32_t(last);
    out.append(range);
}

// Reports the runs of consecutive numbers of the sorted frame names: a run
// ends where the next number is more than one above the previous.
void report_runs(const stack<char*>& names, int style, stack<kel_fileRange_t*>& out) {
    int64_t start = 0, previous = 0;
    for (int32_t i = 0; i < names.size(); ++i) {
        frame_split split;
        split_frame_name(names[i], style, &split);  // every name was kept because it splits
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
}

// Removes one entry met in a tree: a folder with everything under it, anything
// else alone; an entry that is gone already counts as removed.
io_result remove_entry(file& entry) {
    struct stat st;
    if (::lstat(entry.c_str(), &st) != 0) return errno == ENOENT ? io_result::ok : io_result::failed;
    if (S_ISDIR(st.st_mode)) return entry.remove_tree();
    return remove_file(entry.c_str());
}

}  // namespace

uint32_t file::change_time() {
    convert_to(posix_path);
    struct stat st;
    if (status_of(data, st) != io_result::ok) return 0xFFFFFFFFu;
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

file file::as_posix_path(const file& other) {
    file target(other);
    target.convert_to(posix_path);
    return target;
}

io_result file::remove() {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    return remove_file(c_str());
}

io_result file::change_mode(mode_t mode) {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    return result_of(::chmod(c_str(), mode) == 0);
}

io_result file::link_to(const file& other) {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    return result_of(::symlink(c_str(), target.c_str()) == 0);
}

io_result file::rename_to(const file& other) {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    return rename_file(c_str(), target.c_str());
}

io_result file::copy_to(const file& other) {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    const file target = as_posix_path(other);
    descriptor in = open_file(c_str(), O_RDONLY);
    if (!in.valid()) return io_result::failed;
    struct stat from, to;
    // A directory has no bytes to copy, and copying a file onto itself would
    // truncate it before it is read.
    if (status_of(in.get(), from) != io_result::ok || S_ISDIR(from.st_mode) ||
        (status_of(target.c_str(), to) == io_result::ok && to.st_dev == from.st_dev && to.st_ino == from.st_ino))
        return io_result::failed;
    mode_t mode = from.st_mode & 07777;
    descriptor out = open_file(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (!out.valid()) return io_result::failed;
    // The creation mode passes through the umask; the copy gets the source's bits.
    io_result result = result_of(::fchmod(out.get(), mode) == 0);
    if (from.st_size > 0 && copy_range(in.get(), 0, out.get(), 0, uint64_t(from.st_size)) != io_result::ok)
        result = io_result::failed;
    if (out.close() != io_result::ok) result = io_result::failed;
    return result;
}

directory_result file::create_directory(mode_t mode) {
    if (!data) return directory_result::made;
    convert_to(posix_path);
    if (DIR* dir = ::opendir(c_str())) {
        ::closedir(dir);
        return directory_result::already_there;
    }
    while (::mkdir(c_str(), mode) != 0) {
        file above(*this);
        above.parent();
        if (above.empty()) return directory_result::failed;
        // The root of the mounted-volumes folder is never created into.
        int32_t b, e;
        above.name_bounds(&b, &e);
        if (e - b == 7 && std::memcmp(above.data + b, "Volumes", 7) == 0) return directory_result::failed;
        if (above.create_directory(mode) != directory_result::made) return directory_result::failed;
    }
    return directory_result::made;
}

io_result file::remove_tree() {
    if (!data) return io_result::ok;
    convert_to(posix_path);
    DIR* dir = ::opendir(c_str());
    if (!dir) return errno == ENOENT ? io_result::ok : io_result::failed;
    while (struct dirent* entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        file child(*this);
        child.add_separator();
        child.append(posix_path, entry->d_name);
        if (remove_entry(child) != io_result::ok) {
            ::closedir(dir);
            return io_result::failed;
        }
        ::rewinddir(dir);
    }
    ::closedir(dir);
    return result_of(::rmdir(c_str()) == 0);
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

    stack<char*> names(release_name);
    if (!collect_frame_names(folder.c_str(), own, style, own_split, names) || names.size() < 2) return 0;
    // Deliberately ordered by name, not number: frame numbers of unequal
    // width do not come out in numeric order, as in every earlier release.
    names.sort(compare_cstrings);
    report_runs(names, style, out);
    return 1;
}

}  // namespace common
