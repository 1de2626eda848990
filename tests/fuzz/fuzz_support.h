// What the fuzz targets share: the fuzzer's bytes as a file, a check that
// aborts with a message, and a watch on the largest allocation made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzing {

// Aborts with `what` on standard error when `condition` is false, so the
// fuzzer keeps the input as a crash.
void check(bool condition, const char* what);

// The fuzzer's bytes as a file in memory, reachable by a path.
class memory_file {
public:
    // Creates the empty memory file.
    memory_file();
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;
    // Closes it.
    ~memory_file();
    // Replaces the contents with `size` bytes at `data`.
    void assign(const uint8_t* data, size_t size);
    // A path that opens the file.
    const char* path() const { return path_.c_str(); }

private:
    int fd_ = -1;
    std::string path_;
};

// A scratch folder, on a memory file system when there is one, removed at exit.
const std::string& scratch_folder();

// Writes `size` bytes at `data` to `path`, replacing it.
void write_bytes(const std::string& path, const uint8_t* data, size_t size);
// The bytes of `path`; false when it cannot be read.
bool read_bytes(const std::string& path, std::string& out);

// Records the largest single allocation made while it exists. Only builds
// with AddressSanitizer can see allocations; elsewhere it records nothing.
class allocation_watch {
public:
    // Starts recording.
    allocation_watch();
    allocation_watch(const allocation_watch&) = delete;
    allocation_watch& operator=(const allocation_watch&) = delete;
    // Stops recording.
    ~allocation_watch();
    // The largest allocation seen so far, in bytes.
    size_t largest() const;
    // Aborts when an allocation was larger than both `file_size` and a small
    // allowance for what every run allocates whatever the file says.
    void check_bounded_by(size_t file_size) const;
};

}  // namespace fuzzing
