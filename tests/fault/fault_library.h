// The fault library as the tests see it: the environment entry that loads
// it into tarvex, and the log it writes, one line per watched file call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace faulttest {

// One watched call, as logged.
struct file_call {
    long number = 0;       // position among the watched calls, from 1; 0 for notes
    std::string op;        // open, read, pread, write, pwrite, lseek, fdatasync, fsync, close, rename, remove
    bool failed = false;   // the fault library made this call fail
    std::string path;      // the path opened, or the path behind the descriptor
    long long a = 0;       // open: flags; transfers: file offset; lseek: offset; others: descriptor
    long long b = 0;       // open: descriptor; transfers: byte count; lseek: whence
    std::string path2;     // rename: the new name
};

// A parsed log.
struct call_log {
    std::vector<file_call> calls;     // the numbered calls and removals, in order
    long long largest_allocation = -1;  // largest single allocation; -1 when not recorded
};

// The LD_PRELOAD entry that loads the fault library, after the sanitizer
// runtime when the build has one.
std::string preload_entry();

// Reads the log at `path`; an absent file gives an empty log.
call_log read_call_log(const std::string& path);

// True when `call` reads or writes file data (read, pread, write, pwrite).
bool is_transfer(const file_call& call);

}  // namespace faulttest
