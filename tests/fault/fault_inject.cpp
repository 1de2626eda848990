// An LD_PRELOAD library for the fault tests. It numbers every open, read,
// write, flush, close, rename, link and metadata call the process makes on a
// path below TARVEX_FAULT_DIR, logs each to TARVEX_FAULT_LOG as "number op[!]
// path a b" ("!": made to fail; a: open flags or file offset, b: byte count),
// and makes call number TARVEX_FAULT_AT fail as TARVEX_FAULT_MODE says:
//   error      the call fails (ENOSPC for writes, EIO otherwise; close still closes)
//   short      a read or write moves only half of what was asked
//   interrupt  the call fails with EINTR before doing anything
// TARVEX_FAULT_ABSENT lists what the file system of those paths lacks, as exFAT or a share does: "rename2" (no
// RENAME_NOREPLACE: EINVAL), "link" (no hard links: EPERM), "tmpfile" (no O_TMPFILE: EOPNOTSUPP), "xattr" (a listing
// of attributes answers EIO); such calls fail without being numbered.
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Plain data, zero before any constructor runs: file calls come that early.
struct {
    bool ready;
    char dir[512], absent[64], mode, fd_path[1024][512];
    long fault_at, calls;
    int log_fd;
} g;

// The C library's definition of `name`, which this library's one hides.
template <class F>
F* real(const char* name) {
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) real<decltype(name)>(#name)

bool watched(const char* path) {
    if (!g.ready) {
        g.ready = true;
        const char *dir = std::getenv("TARVEX_FAULT_DIR"), *at = std::getenv("TARVEX_FAULT_AT"),
                   *mode = std::getenv("TARVEX_FAULT_MODE"), *log = std::getenv("TARVEX_FAULT_LOG"),
                   *absent = std::getenv("TARVEX_FAULT_ABSENT");
        std::snprintf(g.dir, sizeof g.dir, "%s", dir ? dir : "");
        std::snprintf(g.absent, sizeof g.absent, "%s", absent ? absent : "");
        g.fault_at = at ? std::atol(at) : 0;
        g.mode = mode ? mode[0] : 'e';
        g.log_fd = log ? REAL(openat)(AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644) : -1;
    }
    return path && g.dir[0] && !std::strncmp(path, g.dir, std::strlen(g.dir));
}

const char* watched_fd(int fd) {
    return watched(nullptr), fd >= 0 && fd < 1024 && g.fd_path[fd][0] ? g.fd_path[fd] : nullptr;
}

void log(long number, const char* op, bool failed, const char* path, long long a, long long b) {
    char line[1200];
    int n = std::snprintf(line, sizeof line, "%ld %s%s %s %lld %lld\n", number, op, failed ? "!" : "", path, a, b);
    if (g.log_fd >= 0 && n > 0 && size_t(n) < sizeof line) REAL(write)(g.log_fd, line, size_t(n));
}

// Numbers and logs a watched call; true when it is the one to fail.
bool fails(const char* op, const char* path, long long a, long long b) {
    const bool failing = ++g.calls == g.fault_at;
    log(g.calls, op, failing, path, a, b);
    return failing;
}

int failure(int error) { return errno = error, -1; }
bool absent(const char* what) { return std::strstr(g.absent, what); }

// A read or write of `count` bytes at `at` (< 0: the current position); `call(n)` moves n bytes.
template <class Call>
ssize_t transfer(const char* op, int fd, size_t count, off_t at, bool writing, Call call) {
    const char* path = watched_fd(fd);
    if (!path || !fails(op, path, at >= 0 ? at : REAL(lseek)(fd, 0, SEEK_CUR), static_cast<long long>(count))) return call(count);
    if (g.mode == 's') return call(count > 1 ? count / 2 : count);
    return failure(g.mode == 'i' ? EINTR : writing ? ENOSPC : EIO);
}

// fdatasync, fsync or close; a failing close still releases the descriptor, as the kernel does.
int descriptor_call(const char* op, int fd) {
    const char* path = watched_fd(fd);
    const bool closes = !std::strcmp(op, "close"), failing = path && fails(op, path, fd, 0);
    if (path && closes) g.fd_path[fd][0] = '\0';
    const int result = !failing || closes ? real<int(int)>(op)(fd) : 0;
    return failing ? failure(EIO) : result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
    va_end(args);
    if (watched(path) && (flags & O_TMPFILE) == O_TMPFILE && absent("tmpfile")) return failure(EOPNOTSUPP);
    if (watched(path) && fails("open", path, flags, 0)) return failure(EACCES);
    const int fd = REAL(open)(path, flags, mode);
    if (watched(path) && fd >= 0 && fd < 1024) std::snprintf(g.fd_path[fd], sizeof g.fd_path[fd], "%s", path);
    return fd;
}
ssize_t pread(int fd, void* buf, size_t n, off_t at) {
    return transfer("pread", fd, n, at, false, [&](size_t k) { return REAL(pread)(fd, buf, k, at); });
}
ssize_t pwrite(int fd, const void* buf, size_t n, off_t at) {
    return transfer("pwrite", fd, n, at, true, [&](size_t k) { return REAL(pwrite)(fd, buf, k, at); });
}
int fdatasync(int fd) { return descriptor_call("fdatasync", fd); }
int fsync(int fd) { return descriptor_call("fsync", fd); }
int close(int fd) { return descriptor_call("close", fd); }
int rename(const char* from, const char* to) {
    return (watched(from) || watched(to)) && fails("rename", from, 0, 0) ? failure(EIO) : REAL(rename)(from, to);
}
int renameat2(int from_dir, const char* from, int to_dir, const char* to, unsigned flags) {
    const bool ours = watched(from) || watched(to);
    if (ours && absent("rename2")) return failure(EINVAL);
    return ours && fails("rename2", from, 0, 0) ? failure(EIO) : REAL(renameat2)(from_dir, from, to_dir, to, flags);
}
// The link that gives a finished nameless file its name, logged under that name.
int linkat(int from_dir, const char* from, int to_dir, const char* to, int flags) {
    return watched(to) && fails("link", to, 0, 0) ? failure(EIO) : REAL(linkat)(from_dir, from, to_dir, to, flags);
}
int link(const char* from, const char* to) {
    if (watched(to) && absent("link")) return failure(EPERM);
    return watched(to) && fails("link", to, 0, 0) ? failure(EIO) : REAL(link)(from, to);
}
// The metadata a replaced frame takes from its original.
ssize_t flistxattr(int fd, char* list, size_t size) {
    const char* path = watched_fd(fd);
    if (path && (absent("xattr") || fails("listxattr", path, 0, 0))) return failure(EIO);
    return REAL(flistxattr)(fd, list, size);
}
int fchmod(int fd, mode_t mode) {
    const char* path = watched_fd(fd);
    return path && fails("chmod", path, mode, 0) ? failure(EIO) : REAL(fchmod)(fd, mode);
}
// A kernel copy is a write to its output.
ssize_t copy_file_range(int in, loff_t* in_at, int out, loff_t* out_at, size_t n, unsigned flags) {
    return transfer("copy", out, n, out_at ? *out_at : -1, true,
                    [&](size_t k) { return REAL(copy_file_range)(in, in_at, out, out_at, k, flags); });
}

}  // extern "C"
