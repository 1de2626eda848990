// Runs a built program as a user would, with its output captured through
// pipes or a pseudo-terminal, in scratch folders that clean up after
// themselves, and takes tarvex's output apart.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace testrun {

// How one run is started.
struct run_options {
    std::vector<std::string> args;  // the command-line arguments after the program name
    std::string dir;                // the working folder; empty keeps the caller's
    std::vector<std::string> env;   // NAME=value entries replacing or adding to the environment
    int columns = 0;                // > 0: standard output is a pseudo-terminal this wide
    long file_size_limit = -1;      // RLIMIT_FSIZE in bytes with SIGXFSZ ignored; -1 for none
    bool unprivileged = false;      // when started as root, run as user and group 65534
};

// What one run printed and how it ended.
struct outcome {
    int status = -1;                  // exit status; -1 when it did not exit normally
    std::string out;                  // standard output
    std::string err;                  // standard error
    std::vector<std::string> errors;  // the texts of the red error lines, in order
    int finished = -1;                // first number of the summary line; -1 when absent
    int total = -1;                   // second number of the summary line
    int failed = -1;                  // failures the summary line reports
};

// Runs `program` with `options` and waits for it.
outcome run(const std::string& program, const run_options& options);

// Starts `program` with `args`, its output discarded, and returns its pid
// without waiting; -1 when it could not be started.
pid_t start(const std::string& program, const std::vector<std::string>& args);

#ifdef TARVEX_BINARY
// Runs the built tarvex with `options`.
inline outcome run_tarvex(const run_options& options) { return run(TARVEX_BINARY, options); }
// Runs the built tarvex in `dir` with `args`, standard output through a pipe.
inline outcome run_piped(const std::string& dir, std::vector<std::string> args, long file_size_limit = -1) {
    run_options o;
    o.args = std::move(args);
    o.dir = dir;
    o.file_size_limit = file_size_limit;
    return run_tarvex(o);
}
// Runs the built tarvex in `dir` with `args` on a pseudo-terminal `columns`
// wide whose output processing is off, so the bytes read are the bytes written.
inline outcome run_on_terminal(const std::string& dir, std::vector<std::string> args, int columns) {
    run_options o;
    o.args = std::move(args);
    o.dir = dir;
    o.columns = columns;
    return run_tarvex(o);
}
#endif

#ifdef TARVEX_SOURCE_DIR
// The text of tests/driver/golden/`name`, byte for byte.
std::string golden_in(const std::string& source_dir, const std::string& name);
// The text of tests/driver/golden/`name` in this source tree.
inline std::string golden(const std::string& name) { return golden_in(TARVEX_SOURCE_DIR, name); }
#endif

// The texts between "\033[1;31mError: " and "\033[0m" in `out`, in order.
std::vector<std::string> error_lines(const std::string& out);

// Reads the summary line of `out` into `result`; false when there is none.
bool read_summary(const std::string& out, outcome& result);

// A mkdtemp folder under TMPDIR (or /tmp) that is removed when it goes.
class scratch_dir {
public:
    // Makes the folder; its name starts with `prefix`.
    explicit scratch_dir(const std::string& prefix = "tarvex-test");
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;
    // Removes the folder and its contents, read-only folders included.
    ~scratch_dir();

    // The folder's absolute path; empty when it could not be made.
    const std::string& path() const { return path_; }
    // The path of `name` inside the folder.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    // Writes `bytes` to the file `name` in the folder and returns its path;
    // empty when the file could not be written.
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) const;
    // Writes `text` to the file `name` in the folder, making its missing
    // sub-folders, and returns its path; empty when it could not be written.
    std::string touch(const std::string& name, const std::string& text = "x") const;
    // The names in the folder (or in its sub-folder `sub`), sorted, without "." and "..".
    std::vector<std::string> names(const std::string& sub = "") const;
    // Removes everything inside the folder, keeping the folder.
    void empty() const;

private:
    std::string path_;
};

// Everything written to descriptor 1 while `body` runs.
std::string stdout_of(const std::function<void()>& body);

// True when `path` exists (as anything).
bool exists(const std::string& path);

// What a rewrite of a file would change: its inode and modification time.
struct file_facts {
    bool exists = false;   // the path could be stat'ed
    ino_t inode = 0;       // inode number
    int64_t mtime_ns = 0;  // modification time in nanoseconds
};

// The facts of `path` now.
file_facts facts_of(const std::string& path);

// Sets the modification time of `path` years back, so that any later write,
// even within the same second, shows.
bool age(const std::string& path);

}  // namespace testrun
