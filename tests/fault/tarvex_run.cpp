#include "fault/tarvex_run.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

extern char** environ;

namespace faulttest {

namespace {

const char kErrorStart[] = "\033[1;31mError: ";
const char kErrorEnd[] = "\033[0m";

// The environment of the child: ours, then the extra entries, then the
// preload list (the sanitizer runtime first when the build has one).
std::vector<std::string> child_environment(const run_options& options) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0) env.push_back(*e);
    for (const auto& e : options.env) env.push_back(e);
    if (options.preload_faults) {
        std::string preload = "LD_PRELOAD=";
        if (std::strlen(TARVEX_PRELOAD_FIRST) > 0) preload += std::string(TARVEX_PRELOAD_FIRST) + ":";
        preload += TARVEX_FAULT_LIBRARY;
        env.push_back(preload);
    }
    return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> p;
    for (auto& s : strings) p.push_back(s.data());
    p.push_back(nullptr);
    return p;
}

// In the child: only async-signal-safe calls from here on.
[[noreturn]] void start_child(const run_options& options, int out, int err, char** argv, char** envp) {
    int null = ::open("/dev/null", O_RDONLY);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) _exit(126);
    if (options.file_size_limit >= 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {rlim_t(options.file_size_limit), rlim_t(options.file_size_limit)};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    // Root ignores permission bits, so a read-only folder needs an ordinary user.
    if (options.unprivileged && ::geteuid() == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) _exit(125);
    }
    ::execve(argv[0], argv, envp);
    _exit(127);
}

// Reads both pipes until both are closed.
void collect(int out, int err, std::string& out_text, std::string& err_text) {
    struct pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* texts[2] = {&out_text, &err_text};
    int open_pipes = 2;
    char chunk[8192];
    while (open_pipes > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            ssize_t n = ::read(fds[i].fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                fds[i].fd = -1;
                --open_pipes;
                continue;
            }
            texts[i]->append(chunk, size_t(n));
        }
    }
}

}  // namespace

run_result run_tarvex(const run_options& options) {
    run_result result;
    std::vector<std::string> args = {TARVEX_BINARY};
    args.insert(args.end(), options.args.begin(), options.args.end());
    std::vector<std::string> env = child_environment(options);
    std::vector<char*> argv = pointers(args);
    std::vector<char*> envp = pointers(env);

    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return result;
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return result;
    }
    pid_t pid = ::fork();
    if (pid == 0) start_child(options, out[1], err[1], argv.data(), envp.data());
    ::close(out[1]);
    ::close(err[1]);
    if (pid > 0) collect(out[0], err[0], result.out, result.err);
    ::close(out[0]);
    ::close(err[0]);
    if (pid < 0) return result;
    int raw = 0;
    while (::waitpid(pid, &raw, 0) < 0)
        if (errno != EINTR) return result;
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.errors = error_lines(result.out);
    read_summary(result.out, result);
    return result;
}

std::vector<std::string> error_lines(const std::string& out) {
    std::vector<std::string> lines;
    size_t at = 0;
    while ((at = out.find(kErrorStart, at)) != std::string::npos) {
        at += sizeof kErrorStart - 1;
        size_t end = out.find(kErrorEnd, at);
        if (end == std::string::npos) break;
        lines.push_back(out.substr(at, end - at));
        at = end;
    }
    return lines;
}

bool read_summary(const std::string& out, run_result& result) {
    size_t at = out.rfind("Finished ");
    if (at == std::string::npos) return false;
    int done = 0, total = 0, failed = 0;
    const char* text = out.c_str() + at;
    if (std::sscanf(text, "Finished %d of %d", &done, &total) != 2) return false;
    size_t rest = out.find(", ", at);
    if (rest == std::string::npos) return false;
    if (out.compare(rest, 26, ", none failed to convert.\n") == 0) {
        failed = 0;
    } else if (std::sscanf(out.c_str() + rest, ", only %d failed to convert.", &failed) != 1) {
        return false;
    }
    result.finished = done;
    result.total = total;
    result.failed = failed;
    return true;
}

}  // namespace faulttest
