#include "common/io.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <strings.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <vector>

namespace common {

io_result result_of(bool ok) { return ok ? io_result::ok : io_result::failed; }

namespace {

// Largest request handed to one read, write or copy call.
constexpr uint64_t kMaxRequest = uint64_t(1) << 30;

bool fits_offset(uint64_t offset, uint64_t size) {
    return offset <= uint64_t(LLONG_MAX) && size <= uint64_t(LLONG_MAX) - offset;
}

// This machine's name as it stands in private files' names: letters, digits
// and '.' kept, anything else (a '-' included, which separates the fields)
// made '_', so a name from another machine can never read as one of ours.
const std::string& host_tag() {
    static const std::string tag = [] {
        char host[256] = {};
        if (::gethostname(host, sizeof host - 1) != 0 || !host[0]) std::strcpy(host, "localhost");
        std::string t = host;
        for (char& c : t)
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.') c = '_';
        return t;
    }();
    return tag;
}

// A hidden name in `folder` that no other process or earlier call of this
// one has used: this machine's name, the process id, a counter and the
// clock, as in .tarvex-render1-4242-0-1f2e3d.tmp.
std::string fresh_hidden_name(const std::string& folder) {
    static std::atomic<unsigned> counter{0};
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    char name[384];
    std::snprintf(name, sizeof name, ".tarvex-%s-%ld-%u-%lx.tmp", host_tag().c_str(), long(getpid()), counter++,
                  static_cast<unsigned long>(now.tv_nsec) ^ static_cast<unsigned long>(now.tv_sec));
    return folder + name;
}

// Steps over the digits (hexadecimal ones with `hex`) at `p`; false when there are none.
bool skip_digits(const char*& p, bool hex) {
    const char* start = p;
    while (hex ? std::isxdigit(static_cast<unsigned char>(*p)) : std::isdigit(static_cast<unsigned char>(*p))) ++p;
    return p != start;
}

// The process id in `name` when it is a private file's name that this
// machine gave (exactly pid-counter-stamp.tmp after the prefix: a name with
// more fields came from a machine whose name begins like this one's); 0 when
// it is not.
long private_file_owner(const char* name) {
    const std::string prefix = ".tarvex-" + host_tag() + "-";
    if (std::strncmp(name, prefix.c_str(), prefix.size()) != 0) return 0;
    const char* p = name + prefix.size();
    const long pid = std::strtol(p, nullptr, 10);
    const bool ours = skip_digits(p, false) && *p++ == '-' && skip_digits(p, false) && *p++ == '-' &&
                      skip_digits(p, true) && std::strcmp(p, ".tmp") == 0;
    return ours && pid > 0 && pid <= INT_MAX ? pid : 0;
}

// True when no process `pid` runs on this machine.
bool process_gone(long pid) { return ::kill(pid_t(pid), 0) != 0 && errno == ESRCH; }

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

bool named_exactly(const char* path) {
    const std::string text = path, folder = folder_of(text), name = text.substr(folder.size());
    DIR* dir = ::opendir(folder.empty() ? "." : folder.c_str());
    if (!dir) return false;
    bool found = false;
    while (const dirent* entry = ::readdir(dir)) found = found || name == entry->d_name;
    ::closedir(dir);
    return found;
}

namespace {

// True when the call that just failed answered that the file system has no
// such operation.
bool unsupported(int error) { return error == ENOTSUP || error == EOPNOTSUPP || error == ENOSYS; }

// `to` was reported taken. Where names are case-insensitive that can be
// `from` itself under another case (scan.CIN to scan.cin): then the rename
// only changes the case. Inode numbers cannot tell (a FUSE file system may
// give a file a new one at each lookup), so the name counts as taken unless
// the two differ only in case and the folder holds no entry of exactly that
// name; after the rename it must hold one (some file systems take a
// case-only rename as a rename onto itself and do nothing).
io_result rename_case_only(const char* from, const char* to) {
    if (strcasecmp(from, to) != 0 || std::strcmp(from, to) == 0 || named_exactly(to)) return io_result::failed;
    return result_of(::rename(from, to) == 0 && named_exactly(to));
}

}  // namespace

io_result rename_no_replace(const char* from, const char* to) {
    if (!from || !to) return io_result::failed;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return io_result::ok;
    if (errno == EEXIST) return rename_case_only(from, to);
    if (errno != EINVAL && !unsupported(errno)) return io_result::failed;
    // No RENAME_NOREPLACE here (FUSE, NFS): a hard link refuses an existing
    // name just as the rename would.
    if (::link(from, to) == 0) {
        if (::unlink(from) == 0) return io_result::ok;
        (void)::unlink(to);
        return io_result::failed;
    }
    if (errno == EEXIST) return rename_case_only(from, to);
    if (errno != EPERM && !unsupported(errno)) return io_result::failed;
    // No hard links either (exFAT): the name is claimed with an exclusive
    // create, which never opens what is there, and the rename goes over the
    // claim. A kill between the two leaves the claim, an empty file.
    descriptor claim = open_file(to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!claim.valid()) return errno == EEXIST ? rename_case_only(from, to) : io_result::failed;
    if (claim.close() == io_result::ok && ::rename(from, to) == 0) return io_result::ok;
    (void)::unlink(to);
    return io_result::failed;
}

namespace {

// Copies the extended attributes (access control lists included) of `from`
// to `to`. A file system that keeps none has none to copy, and attributes the
// new file's file system cannot hold are left behind, as by cp -a. A listing
// that fails with EIO is taken for a share that cannot list attributes at all
// only when the new file beside answers the same; otherwise it is a read
// error and the copy fails.
io_result copy_attributes(int from, int to) {
    ssize_t length = ::flistxattr(from, nullptr, 0);
    if (length < 0) {
        const bool none = unsupported(errno) || (errno == EIO && ::flistxattr(to, nullptr, 0) < 0 && errno == EIO);
        return result_of(none);
    }
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
        if (::fsetxattr(to, name, value.data(), size_t(size), 0) != 0 && errno != EPERM && !unsupported(errno))
            return io_result::failed;
    }
    return io_result::ok;
}

}  // namespace

io_result copy_metadata(int from, int to) {
    struct stat st;
    if (status_of(from, st) != io_result::ok) return io_result::failed;
    // The owner first: changing it clears set-user and set-group bits, which
    // the mode below then restores.
    // As cp -p: a user who may not give the file away keeps it.
    if (::fchown(to, st.st_uid, st.st_gid) != 0 && ::fchown(to, uid_t(-1), st.st_gid) != 0) errno = 0;
    // The file's own creator may always set its mode, so EPERM comes from a
    // file system that keeps no permission bits (exFAT, NTFS), as any other
    // refusal to have the operation at all.
    if (::fchmod(to, st.st_mode & 07777) != 0 && errno != EPERM && !unsupported(errno)) return io_result::failed;
    return copy_attributes(from, to);
}

void sweep_private_files(const std::string& folder) {
    // Once a run for each folder: a sequence's thousand frames share one.
    static std::set<std::string> swept;
    const std::string where = folder.empty() ? "." : folder;
    if (!swept.insert(resolved_path(where)).second) return;
    DIR* dir = ::opendir(where.c_str());
    if (!dir) return;
    while (const dirent* entry = ::readdir(dir)) {
        const long pid = private_file_owner(entry->d_name);
        if (pid && process_gone(pid)) (void)::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    ::closedir(dir);
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
