// Test files for the codecs, assembled byte by byte at absolute offsets in a
// chosen byte order, and a scratch directory that holds them.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

// True on a little-endian host.
constexpr bool host_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// A file's bytes, with integers placed in the file's own byte order.
struct byte_image {
    std::vector<uint8_t> bytes;  // the whole file
    bool big;                    // integers are stored most significant byte first

    // `size` zero bytes in the given order.
    byte_image(size_t size, bool big_endian) : bytes(size, 0), big(big_endian) {}

    // True when the file's order is not the host's.
    bool foreign() const { return big == host_little; }

    // Stores the low `width` bytes of `value` at `offset` in the file's order.
    void put(size_t offset, uint64_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i) {
            unsigned shift = 8 * (big ? width - 1 - i : i);
            bytes.at(offset + i) = uint8_t(value >> shift);
        }
    }
    // One-, two- and four-byte integers in the file's order.
    void u8(size_t offset, uint8_t v) { put(offset, v, 1); }
    void u16(size_t offset, uint16_t v) { put(offset, v, 2); }
    void u32(size_t offset, uint32_t v) { put(offset, v, 4); }
    // Stores a float's bytes in host order whatever the file's order: the
    // codecs never swap floating-point header fields.
    void f32(size_t offset, float v) { std::memcpy(&bytes.at(offset), &v, 4); }
    // The characters of `s`, without its NUL.
    void text(size_t offset, const char* s) { std::memcpy(&bytes.at(offset), s, std::strlen(s)); }
    // Fills [from, to) with a fixed pseudo-random pattern.
    void noise(size_t from, size_t to) {
        uint32_t x = 0x9E3779B9u;
        for (size_t i = from; i < to; ++i) {
            x = x * 1664525u + 1013904223u;
            bytes.at(i) = uint8_t(x >> 24);
        }
    }
};

// The bytes of `image` with each listed (offset, width) field reversed.
inline std::vector<uint8_t> with_fields_reversed(std::vector<uint8_t> image,
                                                 const std::vector<std::pair<size_t, unsigned>>& fields) {
    for (auto& f : fields)
        for (unsigned i = 0; i < f.second / 2; ++i) std::swap(image[f.first + i], image[f.first + f.second - 1 - i]);
    return image;
}

// A host-order 32-bit word from four bytes.
inline uint32_t host_word(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return w;
}

// A directory under TMPDIR removed, with its files, when the test ends.
struct scratch_dir {
    std::string path;  // the directory, without a trailing slash

    // Makes a fresh directory; `path` stays empty when that fails.
    scratch_dir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tarvex-cineon-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        if (mkdtemp(name.data())) path = name.data();
    }
    // Removes the directory and the files in it.
    ~scratch_dir() {
        if (path.empty()) return;
        if (DIR* d = opendir(path.c_str())) {
            while (dirent* e = readdir(d))
                if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                    unlink((path + "/" + e->d_name).c_str());
            closedir(d);
        }
        rmdir(path.c_str());
    }

    // Writes `bytes` to the file `name` and returns its path.
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) const {
        std::string file = path + "/" + name;
        int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            if (!bytes.empty() && ::write(fd, bytes.data(), bytes.size()) != ssize_t(bytes.size())) file.clear();
            close(fd);
        }
        return file;
    }
    // The whole content of the file `file`.
    static std::vector<uint8_t> read(const std::string& file) {
        std::vector<uint8_t> out;
        int fd = open(file.c_str(), O_RDONLY);
        if (fd < 0) return out;
        uint8_t buf[65536];
        ssize_t n;
        while ((n = ::read(fd, buf, sizeof buf)) > 0) out.insert(out.end(), buf, buf + n);
        close(fd);
        return out;
    }
};

// Offset of the image data in the DPX files the tests build.
constexpr uint32_t dpx_test_offset = 2048;

// A DPX file the reader accepts: one element of `width` x `height`
// pixels, the given descriptor, bit size and packing, data at 2048 and room
// for `data_bytes` bytes of image data.
inline byte_image dpx_file(bool big, uint32_t width, uint32_t height, uint8_t descriptor = 50,
                           uint8_t bits = 10, uint16_t packing = 1, size_t data_bytes = 0) {
    byte_image f(dpx_test_offset + data_bytes, big);
    f.text(0, big ? "SDPX" : "XPDS");
    f.u32(4, dpx_test_offset);
    f.u32(660, 0xFFFFFFFFu);
    f.u16(770, 1);
    f.u32(772, width);
    f.u32(776, height);
    f.u8(800, descriptor);
    f.u8(803, bits);
    f.u16(804, packing);
    f.u32(808, dpx_test_offset);
    return f;
}
