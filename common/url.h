// Percent coding of file URLs: the URL of a file-system path and the path of
// a file URL, as the path forms of common::file convert between them.
#pragma once

#include "common/stream.h"

namespace common {

// Whether a text could be converted.
// clang-format off
enum class [[nodiscard]] conversion { done, refused };
// clang-format on

// Writes into `out` a file URL for `path`: absolute paths get "file://",
// relative ones stay a relative reference; every byte outside the set a URL
// path carries unescaped is written as "%" and two upper-case hex digits.
void path_to_url(const char* path, stream& out);

// Writes into `out` the file-system path of a file URL or relative reference,
// cut at any query or fragment; refused for any other scheme, a remote host,
// a bad escape, an escaped NUL or an empty path.
conversion url_to_path(const char* url, stream& out);

}  // namespace common
