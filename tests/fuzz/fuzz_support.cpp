#include "fuzz/fuzz_support.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define TARVEX_ALLOCATION_HOOKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARVEX_ALLOCATION_HOOKS 1
#endif
#endif

#ifdef TARVEX_ALLOCATION_HOOKS
// From the sanitizer runtime (GCC installs no header for it).
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*on_malloc)(const volatile void*, size_t),
                                                         void (*on_free)(const volatile void*));
#endif

namespace fuzzing {

namespace {

// Paths, text conversion and the console allocate up to this much whatever
// the file says; allocations sized from a header must stay within the file.
constexpr size_t kAllocationAllowance = 64 * 1024;

bool g_watching = false;
size_t g_largest = 0;

#ifdef TARVEX_ALLOCATION_HOOKS
void on_allocation(const volatile void*, size_t size) {
    if (g_watching && size > g_largest) g_largest = size;
}

void on_free(const volatile void*) {}

[[maybe_unused]] const bool g_hooks_installed = __sanitizer_install_malloc_and_free_hooks(on_allocation, on_free) != 0;
#endif

void write_all(int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        check(n > 0, "could not write the fuzz input file");
        data += n;
        size -= size_t(n);
    }
}

}  // namespace

void check(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

memory_file::memory_file() {
    fd_ = ::memfd_create("tarvex-fuzz", MFD_CLOEXEC);
    check(fd_ >= 0, "memfd_create failed");
    path_ = "/proc/self/fd/" + std::to_string(fd_);
}

memory_file::~memory_file() {
    if (fd_ >= 0) ::close(fd_);
}

void memory_file::assign(const uint8_t* data, size_t size) {
    check(::ftruncate(fd_, 0) == 0 && ::lseek(fd_, 0, SEEK_SET) == 0, "could not reset the memory file");
    write_all(fd_, data, size);
}

namespace {

// The scratch folder, removed with its contents when the process exits.
struct scratch {
    std::string path;
    scratch() {
        struct stat st;
        std::string base = "/tmp";
        if (const char* tmp = std::getenv("TMPDIR"); tmp && *tmp) base = tmp;
        if (::stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) && ::access("/dev/shm", W_OK) == 0) base = "/dev/shm";
        std::string pattern = base + "/tarvex-fuzz-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        check(::mkdtemp(name.data()) != nullptr, "mkdtemp failed");
        path = name.data();
    }
    ~scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

}  // namespace

const std::string& scratch_folder() {
    static const scratch folder;
    return folder.path;
}

void write_bytes(const std::string& path, const uint8_t* data, size_t size) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(fd >= 0, "could not create the fuzz input file");
    write_all(fd, data, size);
    ::close(fd);
}

bool read_bytes(const std::string& path, std::string& out) {
    out.clear();
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char chunk[65536];
    ssize_t n;
    while ((n = ::read(fd, chunk, sizeof chunk)) > 0) out.append(chunk, size_t(n));
    ::close(fd);
    return n == 0;
}

allocation_watch::allocation_watch() {
    g_largest = 0;
    g_watching = true;
}

allocation_watch::~allocation_watch() { g_watching = false; }

size_t allocation_watch::largest() const { return g_largest; }

void allocation_watch::check_bounded_by(size_t file_size) const {
    size_t bound = file_size > kAllocationAllowance ? file_size : kAllocationAllowance;
    if (g_largest <= bound) return;
    std::fprintf(stderr, "allocation of %zu bytes for a file of %zu bytes\n", g_largest, file_size);
    check(false, "an allocation was larger than the file");
}

}  // namespace fuzzing
