// Numbered frame sequences: taking frame file names apart, making names safe
// for a file system, searching folders and finding a sequence's frame range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/file_range.h"
#include "common/frame_name.h"
#include "common/stack.h"

// One file found by kel_utils::find_files, allocated zero-filled with calloc.
struct kel_fileResult_t {
    char folder[1024];  // the scanned folder, ending in "/", zero-terminated
    char name[256];     // the entry's name within it, zero-terminated
};
static_assert(sizeof(kel_fileResult_t) == 1280, "a result record is 1280 bytes");

// What kel_utils::find_files looks for; copied into every recursion.
struct kel_fileQuery_t {
    const char* prefix = nullptr;     // name prefix, matched ignoring ASCII case; null matches all
    const uint32_t* types = nullptr;  // four-character file type codes; null for any type
    int32_t type_count = 0;           // number of codes at `types`; 0 for any type
};

// Static operations on numbered frame file names such as shot.0001.dpx
// (style 0), shot0001.dpx (style 1) and shot 0001.dpx (style 2).
class kel_utils {
public:
    // Longest name, in characters, that the name operations look into.
    static constexpr int16_t max_name_length = 32767;
    // Size in bytes of the base and extension buffers of split_frame_name.
    static constexpr size_t name_buffer_size = 256;
    // Size in bytes of the frame-number buffer: 15 digits and a zero.
    static constexpr size_t frame_buffer_size = common::max_frame_digits + 1;
    // Most code units kept by sanitize_name.
    static constexpr int32_t max_sanitized_units = 256;

    // What split_frame_name came to; the numbers are the codes it has always had.
    // clang-format off
    enum class [[nodiscard]] name_split { split = 0, not_a_frame_name = 3 };
    // clang-format on
    // What get_frame_range came to; the numbers are the codes it has always had.
    // clang-format off
    enum class [[nodiscard]] frame_scan { found = 0, none_found = 1, unreadable = 3 };
    // clang-format on

    // The class has no state; the destructor is its only virtual operation.
    virtual ~kel_utils() {}

    // True when the frame digits before the last "." follow a space (style 2).
    static bool is_space_numbered(const char* name);
    // True when the character before the frame digits is neither "." nor " " (style 1).
    static bool is_attached_numbered(const char* name);
    // 2, 1 or 0 for the three naming styles; 0 for a name without ".".
    static int naming_style(const char* name);
    // Index of the last `c` in `text`; 0 when text is null or lacks it.
    static int16_t last_index_of(const char* text, char c);
    // Cuts `text` at its last `c` and copies what followed into `tail`
    // (strncpy of `tail_size`, last byte forced to zero); returns `text`.
    static char* split_at_last(char* text, char* tail, size_t tail_size, char c);
    // The part of `name` before its last "."; all of it when there is none.
    static std::string strip_extension(const std::string& name);
    // Splits a frame name of naming style `style` into its base (256-byte
    // buffer), frame digits (16-byte buffer) and extension with its dot
    // (256-byte buffer), and sets the digit count: split (0), or
    // not_a_frame_name (3).
    static name_split split_frame_name(const char* name, int style, char* base, char* frame, char* extension,
                                       uint16_t* digit_count);
    // Writes `text` (UTF-8) into `out` as UTF-8 with its first 256 units kept
    // and every character unsafe in a file name replaced by "_"; returns `out`,
    // left empty when the whole result does not fit.
    static char* sanitize_name(char* out, size_t out_size, const char* text);
    // The same for a standard string.
    static std::string sanitize_name(const std::string& text);
    // Searches `folder` (ending in "/") and below for entries whose names start
    // with the query's prefix, appending a record for each to `results` and
    // stopping soon after the first hit; true when `results` is not empty.
    static bool find_files(common::stack<kel_fileResult_t*>& results, kel_fileQuery_t query, const char* folder);
    // Writes the range "first-last" of the frames of base/extension/style found
    // in `folder` into `out`, appending at most `limit` characters (so `out`
    // needs limit + 1 bytes): found (0), none_found (1) when no frame was
    // found, unreadable (3) when the folder cannot be read.
    static frame_scan get_frame_range(const char* folder, const char* base, const char* extension, int style, char* out,
                                      size_t limit);

    // Release function for lists of frame ranges: frees the record.
    static void release_range(kel_fileRange_t* range);
    // Release function for lists of find_files results: frees the record.
    static void release_result(kel_fileResult_t* result);
};
