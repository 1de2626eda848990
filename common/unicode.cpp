#include "common/unicode.h"

#include <iconv.h>

#include <cstdlib>
#include <cstring>

#include "common/exceptions.h"
#include "common/file.h"
#include "common/stream.h"

namespace common {

namespace {

const char* const encoding_names[] = {
    "ISO-8859-1", "UTF-8", "UTF-16LE", "UTF-16BE", "ISO-8859-1", "ASCII", "UTF-32LE", "UTF-32BE",
};

const char* name_of(int encoding) {
    if (encoding < 0 || encoding > 7) return nullptr;
    return encoding_names[encoding];
}

bool terminated(int encoding) { return encoding == unicode::system8 || encoding == unicode::utf8; }

// Largest unit count a string may hold: its byte size stays within 32 bits.
constexpr int64_t max_units = 0x3fffffff;

unsigned short* resize_block(unsigned short* block, int64_t units) {
    if (units < 0 || units > max_units) throw _throw_bad_allocation();
    void* grown = std::realloc(block, size_t(units) * sizeof(unsigned short));
    if (!grown) throw _throw_bad_allocation();
    return static_cast<unsigned short*>(grown);
}

}  // namespace

unicode::unicode() {}

unicode::unicode(const char* utf8_text) { assign_utf8(utf8_text); }

unicode::unicode(const unicode& other) { assign(other.impl.data, other.impl.length, internal); }

unicode& unicode::operator=(const unicode& other) {
    if (this != &other) assign(other.impl.data, other.impl.length, internal);
    return *this;
}

unicode::~unicode() { clear(); }

void unicode::adopt(unsigned short* block, int32_t capacity, int32_t length) {
    impl.data = impl.begin = block;
    impl.length = length;
    impl.last = block + length;
    impl.capacity_end = block + (capacity - 1);
}

int32_t unicode::capacity() const { return impl.data ? int32_t(impl.capacity_end - impl.begin) + 1 : 0; }

void unicode::clear() {
    std::free(impl.data);
    impl.data = impl.begin = impl.last = impl.capacity_end = nullptr;
    impl.length = 0;
}

void unicode::assign(const unsigned short* units, int32_t count, int) {
    if (!units || count < 1) {
        clear();
        return;
    }
    unsigned short* block = resize_block(nullptr, count);
    std::memcpy(block, units, size_t(count) * sizeof(unsigned short));
    clear();
    adopt(block, count, count);
}

void unicode::assign_from(const char* text, int source, bool utf8_rules) {
    if (!text || !*text) {
        clear();
        return;
    }
    size_t n = std::strlen(text);
    // Every input byte gives at most two units (four bytes) of UTF-16.
    if (n > size_t(max_units) / 2) throw _throw_bad_allocation();
    size_t out_size = n * 4;
    size_t in_size = n;
    char* scratch = static_cast<char*>(std::malloc(out_size));
    if (!scratch) throw _throw_bad_allocation();
    convert(internal, scratch, &out_size, source, text, &in_size);
    if (out_size == 0) {
        clear();
        // Deliberately left allocated on the UTF-8 path, as every earlier
        // release of the library did; nothing else holds or frees it.
        if (utf8_rules) return;
        std::free(scratch);
        return;
    }
    int32_t units = int32_t((out_size + 1) / 2);
    unsigned short* block = resize_block(impl.data, units);
    std::memcpy(block, scratch, size_t(units) * sizeof(unsigned short));
    std::free(scratch);
    adopt(block, units, units);
}

void unicode::assign_utf8(const char* text) { assign_from(text, utf8, true); }

void unicode::assign_system8(const char* text) { assign_from(text, system8, false); }

int unicode::compare(const unicode& other) const {
    if (!impl.data || impl.length != other.impl.length) return -1;
    return std::memcmp(other.impl.data, impl.data, size_t(impl.length) * sizeof(unsigned short));
}

void unicode::set_length(int32_t n) {
    if (n < 1) {
        clear();
        return;
    }
    if (n > impl.length - 1) return;
    impl.length = n;
    impl.last = impl.begin + n;
}

void unicode::make_room(int64_t extra_units) {
    int64_t length = impl.length;
    int64_t spare = int64_t(capacity()) - length;
    if (spare >= 2 * extra_units) return;
    int64_t wanted = length + (2 * extra_units > length ? 2 * extra_units : length);
    unsigned short* block = resize_block(impl.data, wanted);
    adopt(block, int32_t(wanted), impl.length);
}

unicode& unicode::append(const unicode& other) {
    int32_t n = other.impl.length;
    if (n < 1 || !other.impl.data) return *this;
    if (&other == this) {
        // `other` is this string, which the append changes: it needs a copy.
        unicode copy(other);  // NOLINT(performance-unnecessary-copy-initialization)
        return append(copy);
    }
    make_room(n);
    std::memcpy(impl.data + impl.length, other.impl.data, size_t(n) * sizeof(unsigned short));
    impl.length += n;
    impl.last = impl.begin + impl.length;
    return *this;
}

unicode& unicode::append(unsigned short unit) {
    if (capacity() - impl.length < 1) {
        int64_t length = impl.length;
        int64_t wanted = length + (length > 1 ? length : 1);
        adopt(resize_block(impl.data, wanted), int32_t(wanted), impl.length);
    }
    impl.data[impl.length++] = unit;
    impl.last = impl.begin + impl.length;
    return *this;
}

void unicode::insert(const unicode& other, int32_t position) {
    if (!impl.data) {
        append(other);
        return;
    }
    int32_t n = other.impl.length;
    if (n < 1 || !other.impl.data) return;
    if (&other == this) {
        // `other` is this string, which the insert changes: it needs a copy.
        unicode copy(other);  // NOLINT(performance-unnecessary-copy-initialization)
        insert(copy, position);
        return;
    }
    if (position > impl.length - 1) position = impl.length - 1;
    if (position < 0) position = 0;
    make_room(n);
    unsigned short* at = impl.data + position;
    std::memmove(at + n, at, size_t(impl.length - position) * sizeof(unsigned short));
    std::memcpy(at, other.impl.data, size_t(n) * sizeof(unsigned short));
    impl.length += n;
    impl.last = impl.begin + impl.length;
}

void unicode::insert(unsigned short unit, int32_t position) {
    unicode one;
    one.append(unit);
    insert(one, position);
}

unicode& unicode::operator<<(const char* text) {
    unicode piece;
    piece.assign_utf8(text);
    return append(piece);
}

unicode& unicode::operator<<(const stream& text) { return *this << text.c_str(); }

unicode& unicode::operator<<(const file& path) {
    // Every path form is held as UTF-8 text here (a plain file URL is ASCII).
    return *this << path.c_str();
}

unicode& unicode::append_signed(int32_t value) {
    char text[number_text_size];
    uint32_t magnitude = value < 0 ? 0u - uint32_t(value) : uint32_t(value);
    return *this << decimal_text(text, magnitude, value < 0);
}

unicode& unicode::append_unsigned(uint32_t value) {
    char text[number_text_size];
    return *this << decimal_text(text, value, false);
}

unicode& unicode::append_signed64(int64_t value) {
    char text[number_text_size];
    // Deliberately only the low word gives the magnitude (the sign comes from
    // the high word); text built by this form keeps that layout.
    uint32_t low = uint32_t(uint64_t(value));
    bool negative = value < 0;
    uint32_t magnitude = negative ? 0u - low : low;
    return *this << decimal_text(text, magnitude, negative);
}

unicode& unicode::append_unsigned64(uint64_t value) {
    char text[number_text_size + 1];
    if (value == 0) return *this << "0";
    // Deliberately a leading "0" and only the low word: text built by this
    // form keeps that layout.
    text[0] = '0';
    decimal_text(text + 1, uint32_t(value), false);
    return *this << text;
}

unicode& unicode::operator<<(double value) {
    char text[number_text_size];
    return *this << real_text(text, value);
}

int64_t unicode::convert(int target, char* out, size_t* out_size, int source, const char* in, size_t* in_size) {
    if (!out || !in || !out_size || !in_size) throw exception("unicode::convert() missing arguments!");
    if (*out_size == 0 || *in_size == 0) throw exception("unicode::convert() out of range!");
    const char* to = name_of(target);
    const char* from = name_of(source);
    if (!to || !from) return -1;
    iconv_t cd = iconv_open(to, from);
    if (cd == iconv_t(-1)) return -1;  // NOLINT(performance-no-int-to-ptr): iconv_open's failure value

    char* in_pos = const_cast<char*>(in);
    size_t in_left = *in_size;
    char* out_pos = out;
    size_t out_left = *out_size;
    size_t result = iconv(cd, &in_pos, &in_left, &out_pos, &out_left);
    size_t written = *out_size - out_left;
    if (result == size_t(-1)) {
        *out_size = 0;
        *in_size = 0;
        out[0] = 0;
        iconv_close(cd);
        return -1;
    }
    *in_size -= in_left;
    *out_size = written;
    if (terminated(target)) out[written] = 0;
    iconv_close(cd);
    return int64_t(result);
}

char* unicode::copy_to(char* buf, size_t size, int encoding) const {
    if (!impl.data) {
        if (buf && size > 0) buf[0] = 0;
        return buf;
    }
    size_t out_size = size;
    if (terminated(encoding) && buf && size > 0) {
        buf[size - 1] = 0;
        out_size = size - 1;
    }
    size_t in_size = size_t(impl.length) * sizeof(unsigned short);
    convert(encoding, buf, &out_size, internal, reinterpret_cast<const char*>(impl.data), &in_size);
    return buf;
}

char* unicode::encoding_name(char* buf, size_t size, int encoding) {
    const char* name = name_of(encoding);
    if (!name || !buf || size == 0) return buf;
    size_t n = std::strlen(name);
    if (n > size - 1) n = size - 1;
    std::memcpy(buf, name, n);
    buf[n] = 0;
    return buf;
}

exception::exception(const char* text) { message.assign_system8(text); }

exception::~exception() {}

}  // namespace common
