#include "sequence/kel_utils.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/exceptions.h"
#include "common/file.h"
#include "common/unicode.h"

namespace {

// Most UTF-8 bytes that max_sanitized_units code units can take: three for a
// unit of the basic plane, four for a surrogate pair of two units.
constexpr size_t max_sanitized_bytes = size_t(kel_utils::max_sanitized_units) * 3;

// Length of `text`, or -1 when it is null or longer than max_name_length, so
// that every index into it fits the 16-bit arithmetic below.
int16_t bounded_length(const char* text) {
    if (!text) return -1;
    size_t n = strnlen(text, size_t(kel_utils::max_name_length) + 1);
    if (n > size_t(kel_utils::max_name_length)) return -1;
    return int16_t(n);
}

// Index of the last `c` among the first `n` characters of `text`; -1 when absent.
int16_t last_of(const char* text, int16_t n, char c) {
    for (int16_t i = int16_t(n - 1); i >= 0; --i)
        if (text[i] == c) return i;
    return -1;
}

// The names are read by these rules on top of the shared frame-name pieces,
// which callers of kel_utils have always seen: the walk back over the digits
// that end at a position stops at the character before them, or at index 0,
// which is then taken as that character without being tested (so "0001.x" is
// attached, and a digit at index 0 is never part of the number); a dotted
// number follows the LAST "." of the name without its extension; an attached
// or spaced number needs a base of at least one character before the stop
// character, and an attached one rejects a stop character of "." or " ";
// indexes are signed 16-bit (names up to 32767 characters).
// walk_stop gives the index where the walk back from `end` stopped.
int16_t walk_stop(const char* text, int16_t end) {
    size_t first_digit = common::digits_start(text, size_t(end));
    return first_digit > 0 ? int16_t(first_digit - 1) : int16_t(0);
}

// Naming style of `name` from the digits before its last "."; -1 when it has
// no "." or is null or too long.
int style_of(const char* name) {
    int16_t len = bounded_length(name);
    if (len < 0) return -1;
    size_t dot = common::extension_start(name, size_t(len));
    if (dot == common::no_index) return -1;
    return common::style_of_separator(name[walk_stop(name, int16_t(dot))]);
}

// Copies at most size - 1 bytes of `text` into `out` and terminates it.
void copy_text(char* out, size_t size, const char* text) {
    size_t n = strnlen(text, size - 1);
    std::memcpy(out, text, n);
    out[n] = 0;
}

// Puts the frame text starting at `digits` into the 16-byte `frame` buffer,
// cut to 15 characters (the rest of the buffer zero-filled), and its length
// into `count`.
void set_frame(char* frame, const char* digits, uint16_t* count) {
    std::strncpy(frame, digits, kel_utils::frame_buffer_size);
    frame[common::max_frame_digits] = 0;
    *count = uint16_t(std::strlen(frame));
}

// The leading decimal number of `digits` as a frame number; -1 when there is
// none or it does not fit 32 signed bits (the text holds at most 15 digits).
int32_t parse_frame(const char* digits) {
    int64_t value = 0;
    int n = 0;
    for (; common::is_decimal_digit(digits[n]); ++n) value = value * 10 + (digits[n] - '0');
    if (n == 0 || value > INT32_MAX) return -1;
    return int32_t(value);
}

// One of the 26 characters that sanitize_name replaces.
bool is_unsafe(unsigned short unit) {
    static const char unsafe[] = "/:\\\";*?<>|@+=~!#$%&^()[]{}";
    return unit != 0 && unit < 0x80 && std::strchr(unsafe, int(unit)) != nullptr;
}

// True when the name starts with `prefix`, compared through tolower.
bool has_prefix(const char* name, const char* prefix) {
    if (!prefix) return true;
    for (size_t i = 0; prefix[i]; ++i)
        if (std::tolower(static_cast<unsigned char>(name[i])) != std::tolower(static_cast<unsigned char>(prefix[i])))
            return false;
    return true;
}

// Owns an open directory stream and closes it on every exit.
struct open_dir {
    DIR* dir;
    ~open_dir() {
        if (dir) ::closedir(dir);
    }
};

// True when the entry is a directory itself; a symbolic link is not followed.
bool is_directory(DIR* dir, const struct dirent* entry) {
#ifdef _DIRENT_HAVE_D_TYPE
    if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
#endif
    struct stat st;
    return ::fstatat(::dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// The buffer of sanitize_name for standard strings. Deliberately never freed,
// as in every earlier release of the library; it is allocated here alone so
// that a leak checker can be told about exactly this allocation by name.
[[gnu::noinline]] char* unreleased_name_buffer(size_t size) {
    char* buffer = static_cast<char*>(std::malloc(size));
    if (!buffer) throw common::_throw_bad_allocation();
    return buffer;
}

// The one range record a frame-range scan fills, appended to `ranges`, which
// owns it from then on.
kel_fileRange_t* add_range(common::stack<kel_fileRange_t*>& ranges) {
    auto* range = static_cast<kel_fileRange_t*>(std::calloc(1, sizeof(kel_fileRange_t)));
    if (!range) throw common::_throw_bad_allocation();
    try {
        ranges.append(range);
    } catch (...) {
        std::free(range);
        throw;
    }
    return range;
}

// The sequence a frame-range scan looks for.
struct sequence_query {
    const char* base;         // the name before the frame digits
    const char* extension;    // the name's ending, its dot included
    size_t extension_length;  // characters of `extension`
    int style;                // naming style
};

// True when the folder entry `entry` (its first 255 bytes) belongs to the
// sequence; *frame then receives its frame number, -1 when that does not parse.
bool frame_of_entry(const char* entry, const sequence_query& wanted, int32_t* frame) {
    char name[kel_utils::name_buffer_size];
    copy_text(name, sizeof name, entry);
    size_t length = std::strlen(name);
    if (length < wanted.extension_length) return false;
    int16_t stem_end = int16_t(length - wanted.extension_length);
    if (std::strncmp(name + stem_end, wanted.extension, wanted.extension_length) != 0) return false;
    if (kel_utils::naming_style(name) != wanted.style) return false;

    int16_t stop = walk_stop(name, stem_end);
    int16_t cut = wanted.style == common::attached_frames ? int16_t(stop + 1) : stop;
    if (cut > stem_end) cut = stem_end;
    char rest[kel_utils::name_buffer_size];
    std::memcpy(rest, name, size_t(cut));
    rest[cut] = 0;
    if (std::strcmp(rest, wanted.base) != 0) return false;

    char digits[kel_utils::frame_buffer_size] = {0};
    int16_t begin = int16_t(stop + 1);
    if (begin < stem_end) std::memcpy(digits, name + begin, common::kept_digits(size_t(stem_end - begin)));
    *frame = parse_frame(digits);
    return true;
}

// Widens `range` to take in the frame numbers of the sequence's entries in
// `dir`, the first one setting both ends. Returns the number of the last
// matching entry read, -1 when there was none or its digits did not parse.
int32_t scan_frames(DIR* dir, const sequence_query& wanted, kel_fileRange_t* range) {
    int32_t frame = -1;
    bool first_match = true;
    while (const struct dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.' || is_directory(dir, entry)) continue;
        if (!frame_of_entry(entry->d_name, wanted, &frame) || frame < 0) continue;
        if (first_match) {
            range->first = range->last = frame;
            first_match = false;
        } else {
            if (frame < range->first) range->first = frame;
            if (frame > range->last) range->last = frame;
        }
    }
    return frame;
}

// Writes the ranges into `out` as "first-last" joined by ",", appending at
// most `limit` characters for each piece.
void write_ranges(const common::stack<kel_fileRange_t*>& ranges, char* out, size_t limit) {
    out[0] = 0;
    for (int32_t i = 0; i < ranges.size(); ++i) {
        char text[kel_utils::name_buffer_size];
        std::snprintf(text, sizeof text, "%d-%d", ranges[i]->first, ranges[i]->last);
        if (i > 0) std::strncat(out, ",", limit);
        std::strncat(out, text, limit);
    }
}

}  // namespace

bool kel_utils::is_space_numbered(const char* name) { return style_of(name) == 2; }

bool kel_utils::is_attached_numbered(const char* name) { return style_of(name) == 1; }

int kel_utils::naming_style(const char* name) {
    int style = style_of(name);
    return style < 0 ? 0 : style;
}

int16_t kel_utils::last_index_of(const char* text, char c) {
    int16_t len = bounded_length(text);
    if (len < 0) return 0;
    int16_t at = last_of(text, len, c);
    return at < 0 ? int16_t(0) : at;
}

char* kel_utils::split_at_last(char* text, char* tail, size_t tail_size, char c) {
    int16_t len = bounded_length(text);
    if (len < 0) return text;
    int16_t at = last_of(text, len, c);
    if (at < 0) return text;
    if (tail && tail_size > 0) {
        std::strncpy(tail, text + at + 1, tail_size);
        tail[tail_size - 1] = 0;
    }
    text[at] = 0;
    return text;
}

std::string kel_utils::strip_extension(const std::string& name) {
    size_t dot = name.rfind('.');
    if (dot == std::string::npos) return name;
    return name.substr(0, dot);
}

kel_utils::name_split kel_utils::split_frame_name(const char* name, int style, char* base, char* frame, char* extension,
                                                  uint16_t* digit_count) {
    if (!base || !frame || !extension || !digit_count) return name_split::not_a_frame_name;
    base[0] = frame[0] = extension[0] = 0;
    *digit_count = 0;
    int16_t len = bounded_length(name);
    if (len < 0) return name_split::not_a_frame_name;
    common::frame_tokens tokens = common::tokenize_frame_name(name, size_t(len));
    if (tokens.extension == common::no_index) return name_split::not_a_frame_name;
    int16_t dot = int16_t(tokens.extension);
    if (size_t(dot) >= name_buffer_size || size_t(len - dot) >= name_buffer_size) return name_split::not_a_frame_name;
    std::memcpy(extension, name + dot, size_t(len - dot) + 1);
    std::memcpy(base, name, size_t(dot));
    base[dot] = 0;

    if (style == common::attached_frames || style == common::spaced_frames) {
        int16_t stop = walk_stop(base, dot);
        if (stop < 1) return name_split::not_a_frame_name;
        if (style == common::attached_frames && (base[stop] == '.' || base[stop] == ' '))
            return name_split::not_a_frame_name;
        if (style == common::spaced_frames && base[stop] != ' ') return name_split::not_a_frame_name;
        set_frame(frame, base + stop + 1, digit_count);
        // An attached base keeps the character before the digits; a spaced
        // one drops the space.
        base[style == common::attached_frames ? stop + 1 : stop] = 0;
    } else if (style == common::dotted_frames) {
        size_t separator = common::extension_start(base, size_t(dot));
        if (separator == common::no_index) return name_split::not_a_frame_name;
        set_frame(frame, base + separator + 1, digit_count);
        base[separator] = 0;
    }
    return common::is_frame_number(frame, *digit_count) ? name_split::split : name_split::not_a_frame_name;
}

char* kel_utils::sanitize_name(char* out, size_t out_size, const char* text) {
    if (!out || out_size == 0) return out;
    common::unicode name(text);
    out[0] = 0;
    name.set_length(max_sanitized_units);

    unsigned short units[max_sanitized_units];
    int32_t count = name.length();
    const unsigned short* source = name.data();
    for (int32_t i = 0; i < count; ++i) units[i] = is_unsafe(source[i]) ? '_' : source[i];
    if (count == 0) return out;
    // A one-byte buffer only has room for the terminator already written.
    if (out_size < 2) return out;
    name.assign(units, count, common::unicode::internal);
    return name.copy_to(out, out_size, common::unicode::utf8);
}

std::string kel_utils::sanitize_name(const std::string& text) {
    // The result never needs more bytes than the input, nor more than 256
    // units can take, so the buffer stays small whatever the input.
    size_t size = (text.size() < max_sanitized_bytes ? text.size() : max_sanitized_bytes) + 1;
    char* buffer = unreleased_name_buffer(size);
    return std::string(sanitize_name(buffer, size, text.c_str()));
}

bool kel_utils::find_files(common::stack<kel_fileResult_t*>& results, kel_fileQuery_t query, const char* folder) {
    // A longer folder could not be stored whole in a result record.
    if (!folder || strnlen(folder, sizeof(kel_fileResult_t::folder)) >= sizeof(kel_fileResult_t::folder))
        return results.size() > 0;
    open_dir dir{::opendir(folder)};
    if (!dir.dir) return results.size() > 0;

    while (const struct dirent* entry = ::readdir(dir.dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.') continue;
        if (is_directory(dir.dir, entry)) {
            char inner[sizeof(kel_fileResult_t::folder)];
            int n = std::snprintf(inner, sizeof inner, "%s%s/", folder, name);
            // A path that does not fit is not searched: cut short it would name another folder.
            bool fits = n > 0 && size_t(n) < sizeof inner;
            if (fits && find_files(results, query, inner)) break;
        }
        if (!has_prefix(name, query.prefix)) continue;
        // This host keeps no four-character type codes, so no entry can be of
        // a type named in a non-empty list.
        if (query.types && query.type_count > 0) continue;

        auto* record = static_cast<kel_fileResult_t*>(std::calloc(1, sizeof(kel_fileResult_t)));
        if (!record) throw common::_throw_bad_allocation();
        copy_text(record->folder, sizeof record->folder, folder);
        copy_text(record->name, sizeof record->name, name);
        try {
            results.append(record);
        } catch (...) {
            std::free(record);
            throw;
        }
    }
    return results.size() > 0;
}

kel_utils::frame_scan kel_utils::get_frame_range(const char* folder, const char* base, const char* extension, int style,
                                                 char* out, size_t limit) {
    common::stack<kel_fileRange_t*> ranges(release_range);
    kel_fileRange_t* range = add_range(ranges);
    common::file path(folder);
    if (out) out[0] = 0;
    open_dir dir{::opendir(path.c_str())};
    if (!dir.dir) return frame_scan::unreadable;

    const char* wanted_extension = extension ? extension : "";
    const sequence_query wanted{base ? base : "", wanted_extension, std::strlen(wanted_extension), style};
    // Deliberately the last name read decides, as callers of this scan have
    // always seen: a matching name whose digits do not parse, read last, makes
    // the whole scan report that nothing was found.
    if (scan_frames(dir.dir, wanted, range) < 0) return frame_scan::none_found;
    if (out) write_ranges(ranges, out, limit);
    return frame_scan::found;
}

void kel_utils::release_range(kel_fileRange_t* range) { std::free(range); }

void kel_utils::release_result(kel_fileResult_t* result) { std::free(result); }
