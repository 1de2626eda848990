#include "common/url.h"

#include <strings.h>

#include <cctype>
#include <cstring>

namespace common {

namespace {

// Bytes a file URL carries unescaped in its path.
bool url_safe(unsigned char c) {
    if (c == 0) return false;
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::strchr("-._~!$&'()*+,;=@/", c) != nullptr;
}

// The value of the hex digit `c`; -1 when it is none.
int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Where the path of `url` starts: after "file:" and a local authority when it
// has a scheme, at its start when it is a relative reference; null when the
// scheme is not "file" or the host is neither empty nor "localhost".
const char* path_part(const char* url) {
    const char* colon = std::strchr(url, ':');
    const char* slash = std::strchr(url, '/');
    bool has_scheme = colon && colon != url && (!slash || colon < slash) &&
                      std::isalpha(static_cast<unsigned char>(url[0]));
    if (!has_scheme) return url;
    if (colon - url != 4 || strncasecmp(url, "file", 4) != 0) return nullptr;
    const char* p = colon + 1;
    if (p[0] != '/' || p[1] != '/') return p;
    const char* host = p + 2;
    const char* path = std::strchr(host, '/');
    size_t host_len = path ? size_t(path - host) : std::strlen(host);
    if (host_len != 0 && !(host_len == 9 && strncasecmp(host, "localhost", 9) == 0)) return nullptr;
    return path ? path : "/";
}

}  // namespace

void path_to_url(const char* path, stream& out) {
    static const char digits[] = "0123456789ABCDEF";
    out.clear();
    if (path[0] == '/') out.assign("file://");
    for (const char* p = path; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (url_safe(c)) {
            out.append(char(c));
            continue;
        }
        out.append('%');
        out.append(digits[c >> 4]);
        out.append(digits[c & 15]);
    }
}

conversion url_to_path(const char* url, stream& out) {
    const char* p = path_part(url);
    if (!p) return conversion::refused;
    out.clear();
    for (; *p && *p != '?' && *p != '#'; ++p) {
        if (*p != '%') {
            out.append(*p);
            continue;
        }
        int high = hex_value(p[1]);
        int low = high < 0 ? -1 : hex_value(p[2]);
        if (low < 0 || (high == 0 && low == 0)) return conversion::refused;
        out.append(char(high * 16 + low));
        p += 2;
    }
    return out.size > 0 ? conversion::done : conversion::refused;
}

}  // namespace common
