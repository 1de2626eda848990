// Runs the built tarvex binary in a child process with extra environment
// entries (the fault library among them), and takes its output apart.
#pragma once

#include <string>
#include <vector>

namespace faulttest {

// How one run of tarvex is started.
struct run_options {
    std::vector<std::string> args;        // the command-line arguments after the program name
    std::vector<std::string> env;         // NAME=value entries added to the environment
    bool preload_faults = false;          // load the fault library into the process
    bool unprivileged = false;            // when started as root, run as user and group 65534
    long file_size_limit = -1;            // RLIMIT_FSIZE in bytes, SIGXFSZ ignored; -1 for none
};

// What one run printed and how it ended.
struct run_result {
    int status = -1;                  // exit status; -1 when it did not exit normally
    std::string out;                  // standard output
    std::string err;                  // standard error
    std::vector<std::string> errors;  // the texts of the red error lines, in order
    int finished = -1;                // first number of the summary line; -1 when absent
    int total = -1;                   // second number of the summary line
    int failed = -1;                  // failures the summary line reports
};

// Runs tarvex with `options` and waits for it.
run_result run_tarvex(const run_options& options);

// The texts between "\033[1;31mError: " and "\033[0m" in `out`, in order.
std::vector<std::string> error_lines(const std::string& out);

// Reads the summary line of `out` into `result`; false when there is none.
bool read_summary(const std::string& out, run_result& result);

}  // namespace faulttest
