#include "fault/fault_library.h"

#include <cstring>
#include <fstream>
#include <sstream>

namespace faulttest {

std::string preload_entry() {
    std::string preload = "LD_PRELOAD=";
    if (std::strlen(TARVEX_PRELOAD_FIRST) > 0) preload += std::string(TARVEX_PRELOAD_FIRST) + ":";
    return preload + TARVEX_FAULT_LIBRARY;
}

call_log read_call_log(const std::string& path) {
    call_log log;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        file_call call;
        if (!(fields >> call.number >> call.op >> call.path >> call.a >> call.b >> call.path2)) continue;
        if (call.op == "largest-allocation") {
            log.largest_allocation = call.a;
            continue;
        }
        if (!call.op.empty() && call.op.back() == '!') {
            call.failed = true;
            call.op.pop_back();
        }
        log.calls.push_back(call);
    }
    return log;
}

bool is_transfer(const file_call& call) {
    return call.op == "read" || call.op == "pread" || call.op == "write" || call.op == "pwrite";
}

}  // namespace faulttest
