// An LD_PRELOAD library for the fault tests. It numbers every open, read,
// write, seek, flush, close and rename that the process makes on a path below
// TARVEX_FAULT_DIR, logs each to TARVEX_FAULT_LOG, and makes call number
// TARVEX_FAULT_AT fail in the way TARVEX_FAULT_MODE names:
//   error  the call fails (ENOSPC for writes, EIO otherwise; close still closes)
//   short  a read or write moves only half of what was asked
//   eintr  the call fails with EINTR before doing anything
// It also logs the largest single allocation made after the first such path
// was opened, so a test can bound what a file makes tarvex allocate.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

enum class fault_mode { error, short_transfer, interrupt };

constexpr int max_fds = 1024;
constexpr size_t max_path = 512;

// Plain data with no constructor, so it is zero before any code runs: the
// allocation hooks can be called before static constructors.
struct state {
    bool ready;
    char dir[max_path];
    size_t dir_length;
    long fault_at;
    fault_mode mode;
    bool logging;
    int log_fd;
    long calls;
    bool tracking_allocations;
    bool saw_allocation;  // these hooks serve the process's allocations
    size_t largest_allocation;
    char fd_path[max_fds][max_path];
};

state g_state;

using open_fn = int (*)(const char*, int, ...);
using openat_fn = int (*)(int, const char*, int, ...);
using read_fn = ssize_t (*)(int, void*, size_t);
using write_fn = ssize_t (*)(int, const void*, size_t);
using pread_fn = ssize_t (*)(int, void*, size_t, off_t);
using pwrite_fn = ssize_t (*)(int, const void*, size_t, off_t);
using lseek_fn = off_t (*)(int, off_t, int);
using fd_fn = int (*)(int);
using rename_fn = int (*)(const char*, const char*);

template <class F>
F next(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

// Reads the environment once; the log is opened through the next open in
// line, so it is never counted.
state& setup() {
    state& s = g_state;
    if (s.ready) return s;
    s.ready = true;
    if (const char* dir = std::getenv("TARVEX_FAULT_DIR")) {
        std::snprintf(s.dir, sizeof s.dir, "%s", dir);
        s.dir_length = std::strlen(s.dir);
    }
    if (const char* at = std::getenv("TARVEX_FAULT_AT")) s.fault_at = std::atol(at);
    if (const char* mode = std::getenv("TARVEX_FAULT_MODE")) {
        if (std::strcmp(mode, "short") == 0) s.mode = fault_mode::short_transfer;
        if (std::strcmp(mode, "eintr") == 0) s.mode = fault_mode::interrupt;
    }
    if (const char* log = std::getenv("TARVEX_FAULT_LOG")) {
        s.log_fd = next<open_fn>("open")(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        s.logging = s.log_fd >= 0;
    }
    return s;
}

bool watched_path(const char* path) {
    state& s = setup();
    return path && s.dir_length > 0 && std::strncmp(path, s.dir, s.dir_length) == 0;
}

const char* watched_fd(int fd) {
    state& s = setup();
    if (fd < 0 || fd >= max_fds || s.fd_path[fd][0] == '\0') return nullptr;
    return s.fd_path[fd];
}

// Writes one log line: call number (0 for notes), operation ("!" appended
// when the call was made to fail), path, two numbers and an optional path.
void log_line(long number, const char* op, bool failed, const char* path, long long a, long long b,
              const char* path2 = "-") {
    state& s = g_state;
    if (!s.logging) return;
    char line[2 * max_path + 128];
    int n = std::snprintf(line, sizeof line, "%ld %s%s %s %lld %lld %s\n", number, op, failed ? "!" : "",
                          path, a, b, path2);
    if (n <= 0) return;
    size_t length = size_t(n) < sizeof line ? size_t(n) : sizeof line - 1;
    next<write_fn>("write")(s.log_fd, line, length);
}

// Numbers a watched call; true when it is the one to fail.
bool numbered_call_fails(long* number) {
    *number = ++g_state.calls;
    return g_state.fault_at > 0 && *number == g_state.fault_at;
}

int failure(int error) {
    errno = error;
    return -1;
}

int open_any(const char* path, int flags, mode_t mode, int dirfd, bool at) {
    if (!watched_path(path)) {
        return at ? next<openat_fn>("openat")(dirfd, path, flags, mode)
                  : next<open_fn>("open")(path, flags, mode);
    }
    g_state.tracking_allocations = true;
    long number = 0;
    if (numbered_call_fails(&number)) {
        log_line(number, "open", true, path, flags, -1);
        return failure(g_state.mode == fault_mode::interrupt ? EINTR : EACCES);
    }
    int fd = at ? next<openat_fn>("openat")(dirfd, path, flags, mode) : next<open_fn>("open")(path, flags, mode);
    log_line(number, "open", false, path, flags, fd);
    if (fd >= 0 && fd < max_fds) std::snprintf(g_state.fd_path[fd], max_path, "%s", path);
    return fd;
}

mode_t mode_argument(int flags, va_list args) {
    return (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
}

// One read or write on a watched descriptor; `offset` < 0 means the current
// position. `call(count)` performs the real transfer of `count` bytes.
template <class Call>
ssize_t transfer(const char* op, int fd, size_t count, off_t offset, bool writing, Call call) {
    const char* path = watched_fd(fd);
    if (!path) return call(count);
    long long at = offset >= 0 ? offset : next<lseek_fn>("lseek")(fd, 0, SEEK_CUR);
    long number = 0;
    if (numbered_call_fails(&number)) {
        log_line(number, op, true, path, at, (long long)count);
        switch (g_state.mode) {
            case fault_mode::error: return failure(writing ? ENOSPC : EIO);
            case fault_mode::interrupt: return failure(EINTR);
            case fault_mode::short_transfer:
                if (count > 1) return call(count / 2);
                break;
        }
    } else {
        log_line(number, op, false, path, at, (long long)count);
    }
    return call(count);
}

// A watched call that takes only a descriptor: fdatasync, fsync or close.
int descriptor_call(const char* op, int fd, bool closes) {
    fd_fn real = next<fd_fn>(op);
    const char* path = watched_fd(fd);
    if (!path) return real(fd);
    long number = 0;
    bool fails = numbered_call_fails(&number);
    log_line(number, op, fails, path, fd, 0);
    if (closes) g_state.fd_path[fd][0] = '\0';
    if (!fails) return real(fd);
    // A failing close still releases the descriptor, as the kernel does.
    if (closes) real(fd);
    return failure(EIO);
}

void note_allocation(size_t size) {
    g_state.saw_allocation = true;
    if (!g_state.tracking_allocations) return;
    if (size > g_state.largest_allocation) g_state.largest_allocation = size;
}

__attribute__((destructor)) void report_allocations() {
    if (!g_state.saw_allocation) return;
    log_line(0, "largest-allocation", false, "-", (long long)g_state.largest_allocation, 0);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_any(path, flags, mode, AT_FDCWD, false);
}

int open64(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_any(path, flags, mode, AT_FDCWD, false);
}

int openat(int dirfd, const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_any(path, flags, mode, dirfd, true);
}

int openat64(int dirfd, const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_any(path, flags, mode, dirfd, true);
}

ssize_t read(int fd, void* buf, size_t count) {
    return transfer("read", fd, count, -1, false,
                    [&](size_t n) { return next<read_fn>("read")(fd, buf, n); });
}

ssize_t pread(int fd, void* buf, size_t count, off_t offset) {
    return transfer("pread", fd, count, offset, false,
                    [&](size_t n) { return next<pread_fn>("pread")(fd, buf, n, offset); });
}

ssize_t pread64(int fd, void* buf, size_t count, off_t offset) { return pread(fd, buf, count, offset); }

ssize_t write(int fd, const void* buf, size_t count) {
    return transfer("write", fd, count, -1, true,
                    [&](size_t n) { return next<write_fn>("write")(fd, buf, n); });
}

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset) {
    return transfer("pwrite", fd, count, offset, true,
                    [&](size_t n) { return next<pwrite_fn>("pwrite")(fd, buf, n, offset); });
}

ssize_t pwrite64(int fd, const void* buf, size_t count, off_t offset) { return pwrite(fd, buf, count, offset); }

off_t lseek(int fd, off_t offset, int whence) {
    lseek_fn real = next<lseek_fn>("lseek");
    const char* path = watched_fd(fd);
    if (!path) return real(fd, offset, whence);
    long number = 0;
    bool fails = numbered_call_fails(&number);
    log_line(number, "lseek", fails, path, (long long)offset, whence);
    if (fails) return failure(EIO);
    return real(fd, offset, whence);
}

off_t lseek64(int fd, off_t offset, int whence) { return lseek(fd, offset, whence); }

int fdatasync(int fd) { return descriptor_call("fdatasync", fd, false); }

int fsync(int fd) { return descriptor_call("fsync", fd, false); }

int close(int fd) { return descriptor_call("close", fd, true); }

int rename(const char* from, const char* to) {
    rename_fn real = next<rename_fn>("rename");
    if (!watched_path(from) && !watched_path(to)) return real(from, to);
    long number = 0;
    bool fails = numbered_call_fails(&number);
    log_line(number, "rename", fails, from, 0, 0, to);
    if (fails) return failure(EIO);
    return real(from, to);
}

// Removal is logged but never made to fail: it only runs on the way out of
// a failure that was itself injected.
int remove(const char* path) {
    using remove_fn = int (*)(const char*);
    remove_fn real = next<remove_fn>("remove");
    if (watched_path(path)) log_line(0, "remove", false, path, 0, 0);
    return real(path);
}

void* malloc(size_t size) {
    note_allocation(size);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    size_t total = 0;
    note_allocation(__builtin_mul_overflow(count, size, &total) ? size_t(-1) : total);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    note_allocation(size);
    return __libc_realloc(block, size);
}

void* memalign(size_t alignment, size_t size) {
    note_allocation(size);
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    note_allocation(size);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, size_t alignment, size_t size) {
    note_allocation(size);
    void* block = __libc_memalign(alignment, size);
    if (!block) return ENOMEM;
    *out = block;
    return 0;
}

}  // extern "C"
