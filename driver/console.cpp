#include "driver/console.h"

#include <sys/ioctl.h>
#include <sys/time.h>
#include <ttyent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "common/exceptions.h"
#include "common/io.h"

namespace common {

namespace {

// Most bytes one read of waiting input takes into a buffer it allocates.
constexpr int max_waiting = 1 << 20;

bool window_size(int fd, struct winsize* ws) {
    std::memset(ws, 0, sizeof *ws);
    return ::ioctl(fd, TIOCGWINSZ, ws) == 0;
}

}  // namespace

// One static initialiser builds the three consoles, in this order.
console console_out(1);
console console_err(2);
console console_in(0);

console::console(int descriptor) : fd(descriptor) {
    if (struct ttyent* entry = ::getttyent()) tty_status = entry->ty_status;
    ::endttyent();
}

console::~console() {}

console& console::put(const char* text, size_t n) {
    // A closed or full output never stops the run: write errors are ignored.
    (void)write_all(fd, text, n);
    return *this;
}

console& console::operator<<(const char* text) {
    if (!text) return *this;
    return put(text, std::strlen(text));
}

console& console::operator<<(char c) { return put(&c, 1); }

console& console::operator<<(const file& path) {
    if (path.size < 1) return *this;
    return put(path.data, size_t(path.size - 1));
}

console& console::operator<<(const stream& text) { return put(text.c_str(), size_t(text.length())); }

console& console::operator<<(const unicode& text) {
    if (text.length() < 1) return *this;
    size_t bytes = size_t(text.length()) * 4;
    char* utf8 = static_cast<char*>(std::malloc(bytes));
    if (!utf8) throw _throw_bad_allocation();
    text.copy_to(utf8, bytes, unicode::utf8);
    put(utf8, std::strlen(utf8));
    std::free(utf8);
    return *this;
}

console& console::write_signed(int64_t value) {
    char digits[number_text_size];
    uint64_t magnitude = value < 0 ? 0u - uint64_t(value) : uint64_t(value);
    return *this << decimal_text(digits, magnitude, value < 0);
}

console& console::write_unsigned(uint64_t value) {
    char digits[number_text_size];
    return *this << decimal_text(digits, value, false);
}

console& console::operator<<(double value) {
    char digits[number_text_size];
    return *this << real_text(digits, value);
}

int console::rows() {
    struct winsize ws;
    return window_size(fd, &ws) ? ws.ws_row : 0;
}

int console::width() {
    struct winsize ws;
    return window_size(fd, &ws) ? ws.ws_col : 0;
}

int console::width_pixels() {
    struct winsize ws;
    return window_size(fd, &ws) ? ws.ws_xpixel : 0;
}

int console::height_pixels() {
    struct winsize ws;
    return window_size(fd, &ws) ? ws.ws_ypixel : 0;
}

char* console::read_waiting(int* count) {
    *count = 0;
    int waiting = 0;
    if (fd != 0 || ::ioctl(fd, FIONREAD, &waiting) != 0 || waiting < 1) return nullptr;
    if (waiting > max_waiting) waiting = max_waiting;
    char* text = static_cast<char*>(std::malloc(size_t(waiting) + 1));
    if (!text) throw _throw_bad_allocation();
    size_t got = 0;
    if (read_some(fd, text, size_t(waiting), got) != io_result::ok || got < 1) {
        std::free(text);
        return nullptr;
    }
    text[got] = 0;
    *count = int(got);
    return text;
}

int console::read(char* buf, int len) {
    if (!buf || len < 1) return 0;
    buf[0] = 0;
    int waiting = 0;
    if (fd != 0 || ::ioctl(fd, FIONREAD, &waiting) != 0 || waiting < 1) return 0;
    if (waiting > len - 1) waiting = len - 1;
    if (waiting < 1) return 0;
    size_t got = 0;
    if (read_some(fd, buf, size_t(waiting), got) != io_result::ok || got < 1) return 0;
    buf[got] = 0;
    return int(got);
}

int console::read(file& path) {
    int count;
    char* text = read_waiting(&count);
    path.assign(file::posix_path, text ? text : "");
    std::free(text);
    return count;
}

int console::read(stream& text) {
    int count;
    char* waiting = read_waiting(&count);
    text.assign(waiting);
    std::free(waiting);
    return count;
}

int console::read(unicode& text) {
    int count;
    char* waiting = read_waiting(&count);
    text.assign_utf8(waiting);
    std::free(waiting);
    return count;
}

uint64_t microseconds_now() {
    struct timeval now;
    ::gettimeofday(&now, nullptr);
    return uint64_t(now.tv_sec) * 1000000u + uint64_t(now.tv_usec);
}

uint32_t ticks_now() {
    struct timeval now;
    ::gettimeofday(&now, nullptr);
    return uint32_t(now.tv_sec % 100000) * 60u + uint32_t(now.tv_usec / 16666);
}

}  // namespace common

void printError(int count, ...) {
    common::console_out << "\033[1;31mError: ";
    va_list texts;
    va_start(texts, count);
    for (int i = 0; i < count; ++i) common::console_out << va_arg(texts, const char*);
    va_end(texts);
    common::console_out << "\033[0m\n";
}
