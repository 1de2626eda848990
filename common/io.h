// The one place where the program touches files: an owned descriptor, full
// reads and writes that survive interruptions and short counts, the private
// temporary file a conversion is written into, the atomic replace that puts
// it in place, the kernel copy and the metadata calls.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace common {

// What a file operation came to; the caller must look at it.
// clang-format off
enum class [[nodiscard]] io_result { ok, failed };
// clang-format on

// ok when `ok`, else failed: a system call's success as a result.
io_result result_of(bool ok);

// Owns one open file descriptor and closes it when it goes.
class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(descriptor&& other) noexcept : fd_(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept;
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor();

    // The descriptor, -1 when none is held.
    int get() const { return fd_; }
    // True when a descriptor is held.
    bool valid() const { return fd_ >= 0; }
    // Gives up ownership without closing.
    int release();
    // Closes the descriptor; failed when close reported an error (some file
    // systems report write errors only then).
    io_result close();

private:
    int fd_ = -1;
};

// Opens `path` for reading without blocking on a FIFO or a device and
// without keeping it across exec; an invalid descriptor on failure.
descriptor open_for_reading(const char* path);
// Opens `path` with `flags` (O_CLOEXEC is added) and `mode`; invalid on failure.
descriptor open_file(const char* path, int flags, mode_t mode = 0);

// Reads up to `size` bytes from the current position, retrying interrupted
// and short reads; `done` receives what was read (less only at end of file).
io_result read_some(int fd, void* data, size_t size, size_t& done);
// Reads exactly `size` bytes at `offset`; failed on an error or end of file.
io_result read_at(int fd, void* data, uint64_t size, uint64_t offset);
// Writes all `size` bytes at the current position.
io_result write_all(int fd, const void* data, size_t size);
// Writes all `size` bytes at `offset`.
io_result write_at(int fd, const void* data, uint64_t size, uint64_t offset);
// Copies `size` bytes from `in` at `in_offset` to `out` at `out_offset` in the
// kernel (copy_file_range), falling back to a read and write loop where the
// file systems cannot.
io_result copy_range(int in, uint64_t in_offset, int out, uint64_t out_offset, uint64_t size);
// Flushes the file's data to stable storage.
io_result flush_data(int fd);
// Flushes the folder `folder` (its entries: names created or renamed in it).
io_result flush_folder(const std::string& folder);

// The status of an open file or of a path (following links); failed when
// the call failed.
io_result status_of(int fd, struct stat& st);
io_result status_of(const char* path, struct stat& st);
// The file's size in bytes; failed when it cannot be told.
io_result size_of(int fd, uint64_t& bytes);
// True when the open file and the path are the same file.
bool same_file(int fd, const char* path);

// Removes the file `path`; failed when it could not be removed.
io_result remove_file(const char* path);
// Renames `from` to `to`, replacing `to`.
io_result rename_file(const char* from, const char* to);
// True when the folder of `path` holds an entry named exactly as its last
// component (where names are case-insensitive, a lookup of the path also
// finds an entry whose name differs in case).
bool named_exactly(const char* path);
// Renames `from` to `to` only when nothing is called `to` yet: atomically
// with renameat2's RENAME_NOREPLACE, else with a link and an unlink, else
// (no hard links, as on exFAT) over an exclusively created claim of the name.
// Where names are case-insensitive a rename that changes only the case works;
// failed when `to` is taken or the rename failed.
io_result rename_no_replace(const char* from, const char* to);
// Gives the open file `to` the owner, group, permission bits and extended
// attributes (access control lists included) of the open file `from`, as
// `cp -a` does: an owner that cannot be given, and modes and attributes the
// file system does not keep, are skipped; failed on any other error.
io_result copy_metadata(int from, int to);
// Removes the private files (below) in `folder` that processes of this
// machine which no longer run left there, once a run for each folder; never
// one of a live process or one made on another machine.
void sweep_private_files(const std::string& folder);
// The path with every symbolic link resolved; `path` itself when it cannot be.
std::string resolved_path(const std::string& path);

// The folder part of `path`: everything up to and including its last '/',
// or "" for a bare name (the current folder).
std::string folder_of(const std::string& path);

// A file only this process made, in a given folder, that becomes a real
// name only when it is complete. Where the file system has O_TMPFILE it has
// no name at all until then; elsewhere it is created exclusively under a
// fresh hidden name that carries this machine's name and the process id
// (.tarvex-HOST-PID-N-STAMP.tmp: a leading "." and no ".dpx" ending, so a
// later `*.dpx` never picks it up, and sweep_private_files can tell when its
// maker is gone). Anything not committed is removed when the object goes.
class private_file {
public:
    private_file() = default;
    private_file(const private_file&) = delete;
    private_file& operator=(const private_file&) = delete;
    ~private_file();

    // Makes the file in `folder` ("" for the current one) with `mode`.
    io_result create(const std::string& folder, mode_t mode);
    // The open descriptor, read-write.
    int get() const { return fd_.get(); }
    // Finishes writing: flushes the data to stable storage when `durable`,
    // gives a nameless file a name and closes it; failed when any of that
    // failed (the file is then still removed when the object goes). A file
    // that is not `durable` is linked straight at `target` when nothing has
    // that name yet, so it appears there whole in one step.
    io_result seal(const std::string& target, bool durable);
    // Puts the sealed file at `target`, replacing whatever is there; with
    // `durable` the folder is flushed after the rename too, so the new name
    // survives a power loss.
    io_result install(const std::string& target, bool durable);
    // Closes and removes the file now.
    void discard();

private:
    // Links the nameless file at `name`; failed when that name exists.
    io_result link_at(const std::string& name);
    // Gives the nameless file a hidden name in its folder.
    io_result give_name();

    descriptor fd_;
    std::string folder_;
    std::string name_;        // the hidden name while one exists on disk
    bool installed_ = false;  // sealed straight under its final name
};

}  // namespace common
