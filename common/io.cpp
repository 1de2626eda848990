#include "common/io.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

namespace common {

io_result result_of(bool ok) { return ok ? io_result::ok : io_result::failed; }

namespace {

// Largest request handed to one read, write or copy call.
constexpr uint64_t kMaxRequest = uint64_t(1) << 30;

bool fits_offset(uint64_t offset, uint64_t size) {
    return offset <= uint64_t(LLONG_MAX) && size <= uint64_t(LLONG_MAX) - offset;
}

// A hidden name in `folder` that no other process or earlier call of this
// one has used: the process id, a counter and the clock.
std::string fresh_hidden_name(const std::string& folder) {
    static std::atomic<unsigned> counter{0};
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    char name[96];
    std::snprintf(name, sizeof name, ".tarvex-%ld-%u-%lx.tmp", long(getpid()), counter++,
                  static_cast<unsigned long>(now.tv_nsec) ^ static_cast<unsigned long>(now.tv_sec));
    return folder + name;
}

}  // namespace

descriptor& descriptor::operator=(descriptor&& other) noexcept {
    if (this != &other) {
        (void)close();
        fd_ = other.release();
    }
    return *this;
}

descriptor::~descriptor() { (void)close(); }

int descriptor::release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
}

io_result descriptor::close() {
    if (fd_ < 0) return io_result::ok;
    // The descriptor is gone after close even when it reports EINTR.
    int r = ::close(release());
    return result_of(r == 0 || errno == EINTR);
}

descriptor open_for_reading(const char* path) { return open_file(path, O_RDONLY | O_NONBLOCK); }

descriptor open_file(const char* path, int flags, mode_t mode) {
    if (!path) return descriptor();
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return descriptor(fd);
}

io_result read_some(int fd, void* data, size_t size, size_t& done) {
    char* p = static_cast<char*>(data);
    done = 0;
    while (done < size) {
        ssize_t n = ::read(fd, p + done, std::min<size_t>(size - done, kMaxRequest));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return io_result::failed;
        if (n == 0) break;
        done += size_t(n);
    }
    return io_result::ok;
}

// Moves all `size` bytes at `offset` through `call` (pread or pwrite),
// retrying interrupted and short transfers.
template <class Byte, class Call>
io_result move_at(Byte* p, uint64_t size, uint64_t offset, Call call) {
    if (!fits_offset(offset, size)) return io_result::failed;
    while (size > 0) {
        ssize_t n = call(p, size_t(std::min(size, kMaxRequest)), off_t(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return io_result::failed;
        p += n;
        size -= uint64_t(n);
        offset += uint64_t(n);
    }
    return io_result::ok;
}

io_result read_at(int fd, void* data, uint64_t size, uint64_t offset) {
    return move_at(static_cast<char*>(data), size, offset,
                   [fd](char* p, size_t n, off_t at) { return ::pread(fd, p, n, at); });
}

io_result write_all(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd, p, std::min<size_t>(size, kMaxRequest));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return io_result::failed;
        p += n;
        size -= size_t(n);
    }
    return io_result::ok;
}

io_result write_at(int fd, const void* data, uint64_t size, uint64_t offset) {
    return move_at(static_cast<const char*>(data), size, offset,
                   [fd](const char* p, size_t n, off_t at) { return ::pwrite(fd, p, n, at); });
}

io_result copy_range(int in, uint64_t in_offset, int out, uint64_t out_offset, uint64_t size) {
    if (!fits_offset(in_offset, size) || !fits_offset(out_offset, size)) return io_result::failed;
    bool kernel = true;
    char block[1 << 16];
    while (size > 0) {
        if (kernel) {
            loff_t from = loff_t(in_offset), to = loff_t(out_offset);
            ssize_t n = ::copy_file_range(in, &from, out, &to, size_t(std::min(size, kMaxRequest)), 0);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 &&
                (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP || errno == EBADF)) {
                kernel = false;  // not between these files: copy through user space
                continue;
            }
            if (n <= 0) return io_result::failed;
            in_offset += uint64_t(n);
            out_offset += uint64_t(n);
            size -= uint64_t(n);
            continue;
        }
        uint64_t n = std::min<uint64_t>(size, sizeof block);
        if (read_at(in, block, n, in_offset) != io_result::ok) return io_result::failed;
        if (write_at(out, block, n, out_offset) != io_result::ok) return io_result::failed;
        in_offset += n;
        out_offset += n;
        size -= n;
    }
    return io_result::ok;
}

io_result flush_data(int fd) { return result_of(::fdatasync(fd) == 0); }

io_result flush_folder(const std::string& folder) {
    descriptor dir = open_file(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (!dir.valid()) return io_result::failed;
    if (::fsync(dir.get()) != 0) return io_result::failed;
    return dir.close();
}

io_result status_of(int fd, struct stat& st) { return result_of(::fstat(fd, &st) == 0); }

io_result status_of(const char* path, struct stat& st) { return result_of(path && ::stat(path, &st) == 0); }

io_result size_of(int fd, uint64_t& bytes) {
    struct stat st;
    if (status_of(fd, st) != io_result::ok || st.st_size < 0) return io_result::failed;
    bytes = uint64_t(st.st_size);
    return io_result::ok;
}

bool same_file(int fd, const char* path) {
    struct stat a, b;
    return status_of(fd, a) == io_result::ok && status_of(path, b) == io_result::ok && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

io_result remove_file(const char* path) { return result_of(path && ::remove(path) == 0); }

io_result rename_file(const char* from, const char* to) { return result_of(from && to && ::rename(from, to) == 0); }

io_result rename_no_replace(const char* from, const char* to) {
    if (!from || !to) return io_result::failed;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return io_result::ok;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return io_result::failed;
    // link refuses an existing name just as the rename would.
    if (::link(from, to) != 0) return io_result::failed;
    if (::unlink(from) == 0) return io_result::ok;
    (void)::unlink(to);
    return io_result::failed;
}

io_result copy_metadata(int from, int to) {
    struct stat st;
    if (status_of(from, st) != io_result::ok) return io_result::failed;
    // The owner first: changing it clears set-user and set-group bits, which
    // the mode below then restores.
    // As cp -p: a user who may not give the file away keeps it.
    if (::fchown(to, st.st_uid, st.st_gid) != 0 && ::fchown(to, uid_t(-1), st.st_gid) != 0) errno = 0;
    if (::fchmod(to, st.st_mode & 07777) != 0) return io_result::failed;
    ssize_t length = ::flistxattr(from, nullptr, 0);
    if (length < 0) return errno == ENOTSUP ? io_result::ok : io_result::failed;
    std::vector<char> names(size_t(length) + 1, '\0');
    length = ::flistxattr(from, names.data(), names.size());
    if (length < 0) return io_result::failed;
    std::vector<char> value;
    for (const char* name = names.data(); name < names.data() + length; name += std::strlen(name) + 1) {
        ssize_t size = ::fgetxattr(from, name, nullptr, 0);
        if (size < 0) return io_result::failed;
        value.resize(size_t(size) + 1);
        size = ::fgetxattr(from, name, value.data(), value.size());
        if (size < 0) return io_result::failed;
        // Attributes this user or file system may not set are left behind, as by cp.
        if (::fsetxattr(to, name, value.data(), size_t(size), 0) != 0 && errno != EPERM && errno != ENOTSUP)
            return io_result::failed;
    }
    return io_result::ok;
}

std::string resolved_path(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    std::string result = resolved;
    std::free(resolved);
    return result;
}

std::string folder_of(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

private_file::~private_file() { discard(); }

io_result private_file::create(const std::string& folder, mode_t mode) {
    discard();
    folder_ = folder;
    const std::string where = folder.empty() ? "." : folder;
    fd_ = open_file(where.c_str(), O_TMPFILE | O_RDWR, mode);
    if (fd_.valid()) return io_result::ok;
    // No O_TMPFILE here: an exclusive create never opens what is there
    // already, a link included.
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = fresh_hidden_name(folder);
        fd_ = open_file(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        if (fd_.valid()) {
            name_ = name;
            return io_result::ok;
        }
        if (errno != EEXIST) break;
    }
    return io_result::failed;
}

io_result private_file::link_at(const std::string& name) {
    char self[64];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd_.get());
    return result_of(::linkat(AT_FDCWD, self, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0);
}

io_result private_file::give_name() {
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = fresh_hidden_name(folder_);
        if (link_at(name) == io_result::ok) {
            name_ = name;
            return io_result::ok;
        }
        if (errno != EEXIST) break;
    }
    return io_result::failed;
}

io_result private_file::seal(const std::string& target, bool durable) {
    if (!fd_.valid()) return io_result::failed;
    if (durable && flush_data(fd_.get()) != io_result::ok) return io_result::failed;
    if (name_.empty()) {
        installed_ = !durable && link_at(target) == io_result::ok;
        if (!installed_ && give_name() != io_result::ok) return io_result::failed;
    }
    if (fd_.close() == io_result::ok) return io_result::ok;
    if (installed_) (void)remove_file(target.c_str());
    installed_ = false;
    return io_result::failed;
}

io_result private_file::install(const std::string& target, bool durable) {
    if (installed_) return io_result::ok;
    if (fd_.valid() || name_.empty()) return io_result::failed;
    if (rename_file(name_.c_str(), target.c_str()) != io_result::ok) return io_result::failed;
    name_.clear();
    // The rename has happened; a folder that cannot be flushed does not
    // undo it, so its result changes nothing the caller can act on.
    if (durable) (void)flush_folder(folder_of(target));
    return io_result::ok;
}

void private_file::discard() {
    installed_ = false;
    (void)fd_.close();
    if (!name_.empty()) (void)remove_file(name_.c_str());
    name_.clear();
}

}  // namespace common
