// Runs programs as a user would, output captured through a pipe or a
// pseudo-terminal, in scratch folders that clean up after themselves; and
// checks whole runs of tarvex against the model.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace testrun {

struct run_options {
    run_options(std::vector<std::string> a = {}, std::vector<std::string> e = {}, int c = 0)
        : args(std::move(a)), env(std::move(e)), columns(c) {}
    std::vector<std::string> args;  // after the program name
    std::vector<std::string> env;   // NAME=value entries added to ours
    int columns;                    // > 0: standard output is a pseudo-terminal this wide
    std::string dir;                // the working folder; empty keeps ours
    long file_size_limit = -1;      // RLIMIT_FSIZE, SIGXFSZ ignored (writes fail as on a full disk)
    bool unprivileged = false;      // started as root, run as user and group 65534
    double kill_after = -1;         // >= 0: send `kill_signal` after this many seconds (from the first output
                                    // unless it is SIGKILL)
    int kill_signal = 9;            // SIGKILL
};

struct outcome {
    int status = -1;  // exit status; -1 when it did not exit
    int signal = 0;   // the signal that ended it, if one did
    std::string out, err;
    std::vector<std::string> errors;             // the texts of the red error lines, in order
    int finished = -1, total = -1, failed = -1;  // the summary line's numbers; -1 without one
};

outcome run(const std::string& program, const run_options& options);
std::string source_file(const std::string& relative);  // of the source tree, byte for byte
std::string private_file(const std::string& pid);  // such a process's here (machine name: letters, digits, '.', others '_')

// A mkdtemp folder under TMPDIR (or /tmp), removed with what it holds, read-only folders too.
class scratch_dir {
public:
    explicit scratch_dir(const std::string& prefix = "tarvex-test");
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;
    ~scratch_dir();
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    // Writes a file, making its folders; returns its path, empty on failure.
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) const;
    std::string touch(const std::string& name, const std::string& text = "x") const;
    std::vector<std::string> names(const std::string& sub = "") const;  // sorted
    void empty() const;

private:
    std::string path_;
};

// What a file system may not keep (exFAT, NTFS, a share), found by trying it in a folder of it.
enum class fs_trait { modes, symlinks, hard_links, fifos, xattrs, inode_numbers };
// True when the file system of `folder` keeps `trait`; otherwise prints
// "skipped here: `what`: this file system ..." and returns false.
bool keeps(const std::string& folder, fs_trait trait, const std::string& what);

// A file's bytes, and what a rewrite changes: its inode and time (0 for a folder).
struct file_state {
    std::vector<uint8_t> data;
    uint64_t inode = 0;
    int64_t mtime_ns = 0;
};

// Runs tarvex in `dir` and checks the run against the model: the jobs the
// arguments make, the error lines, the report, the summary, and every file
// of the folder afterwards, which holds the model's bytes and keeps its inode
// and time unless a job wrote it. `verdicts` gets a letter a job: c converted,
// u untouched, r renamed, or its failure: L load, B bits, R read, T a Cineon
// name taken. A letter of `forced` replaces the model's verdict on its job
// with a failure the run's surroundings cause: L load, R read, O open, W image
// write (X counted twice), H header write, N the rename over the input, T the
// Cineon rename, s silent (nothing written or counted).
outcome run_checked(const scratch_dir& dir, run_options options, std::string* verdicts = nullptr,
                    const std::string& forced = "");

}  // namespace testrun
