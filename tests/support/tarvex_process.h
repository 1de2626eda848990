// Runs the built tarvex binary as a user would: in a scratch folder, with its
// standard output captured through a pipe or a pseudo-terminal.
#pragma once

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#ifndef TARVEX_BINARY
#error "TARVEX_BINARY must name the built tarvex executable"
#endif
#ifndef TARVEX_SOURCE_DIR
#error "TARVEX_SOURCE_DIR must name the source tree"
#endif

namespace testrun {

// What one run of the binary left behind.
struct outcome {
    int status = -1;   // exit status, or -1 when it did not exit normally
    std::string out;   // everything written to standard output
};

// A mkdtemp folder that is removed with its contents when it goes.
class scratch_dir {
public:
    // Makes a fresh folder under TMPDIR (or /tmp).
    scratch_dir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tarvex-test-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        if (mkdtemp(name.data())) path_ = name.data();
    }
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;
    // Removes the folder and everything in it.
    ~scratch_dir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    // The folder's path; empty when it could not be made.
    const std::string& path() const { return path_; }
    // The path of `name` inside the folder.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

namespace detail {

// Reads `fd` until end of file or error (a pty master reports EIO once the
// child's side is closed).
inline std::string drain(int fd) {
    std::string text;
    char chunk[4096];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(chunk, size_t(n));
    }
    return text;
}

// The exit status of child `pid`, or -1 when it did not exit normally.
inline int wait_for(pid_t pid) {
    int raw = 0;
    while (::waitpid(pid, &raw, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// The argument vector for exec, built before fork so the child only calls
// async-signal-safe functions.
inline std::vector<char*> argv_of(std::vector<std::string>& args) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(TARVEX_BINARY));
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    return argv;
}

// In the child: stdin and stderr from/to /dev/null, stdout to `out`, cwd `dir`.
[[noreturn]] inline void exec_child(const std::string& dir, int out, std::vector<char*>& argv,
                                    long file_size_limit) {
    int null = ::open("/dev/null", O_RDWR);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(null, 2) < 0 || ::dup2(out, 1) < 0) _exit(126);
    if (::chdir(dir.c_str()) != 0) _exit(126);
    if (file_size_limit >= 0) {
        // Writes past the limit then fail with EFBIG instead of killing the process.
        ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {rlim_t(file_size_limit), rlim_t(file_size_limit)};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    ::execv(argv[0], argv.data());
    _exit(127);
}

}  // namespace detail

// Runs tarvex in `dir` with `args`, standard output through a pipe (not a
// terminal); `file_size_limit` >= 0 caps the size of files it may write.
inline outcome run_piped(const std::string& dir, std::vector<std::string> args,
                         long file_size_limit = -1) {
    outcome result;
    std::vector<char*> argv = detail::argv_of(args);
    int fds[2];
    if (::pipe(fds) != 0) return result;
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        detail::exec_child(dir, fds[1], argv, file_size_limit);
    }
    ::close(fds[1]);
    if (pid > 0) result.out = detail::drain(fds[0]);
    ::close(fds[0]);
    if (pid > 0) result.status = detail::wait_for(pid);
    return result;
}

// Runs tarvex in `dir` with `args`, standard output on a pseudo-terminal
// `columns` wide whose output processing is off, so the bytes read are the
// bytes written.
inline outcome run_on_terminal(const std::string& dir, std::vector<std::string> args, int columns) {
    outcome result;
    std::vector<char*> argv = detail::argv_of(args);
    int master = -1, slave = -1;
    struct winsize size = {};
    size.ws_row = 40;
    size.ws_col = static_cast<unsigned short>(columns);
    if (::openpty(&master, &slave, nullptr, nullptr, &size) != 0) return result;
    struct termios mode;
    if (::tcgetattr(slave, &mode) == 0) {
        mode.c_oflag &= ~tcflag_t(OPOST);
        mode.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(slave, TCSANOW, &mode);
    }
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(master);
        ::setsid();
        ::ioctl(slave, TIOCSCTTY, 0);
        detail::exec_child(dir, slave, argv, -1);
    }
    ::close(slave);
    if (pid > 0) result.out = detail::drain(master);
    ::close(master);
    if (pid > 0) result.status = detail::wait_for(pid);
    return result;
}

// What a rewrite of a file would change: its inode and modification time.
struct file_facts {
    bool exists = false;   // the path could be stat'ed
    ino_t inode = 0;       // inode number
    int64_t mtime_ns = 0;  // modification time in nanoseconds
};

// The facts of `path` now.
inline file_facts facts_of(const std::string& path) {
    file_facts f;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return f;
    f.exists = true;
    f.inode = st.st_ino;
    f.mtime_ns = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return f;
}

// Sets the modification time of `path` years back, so that any later write,
// even within the same second, shows.
inline bool age(const std::string& path) {
    struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

// The text of tests/driver/golden/`name`, byte for byte.
inline std::string golden(const std::string& name) {
    std::ifstream in(std::string(TARVEX_SOURCE_DIR) + "/tests/driver/golden/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `out` with the elapsed time of every progress line replaced by "hh:mm:ss";
// the times found are appended to `times`.
inline std::string without_times(const std::string& out, std::vector<std::string>* times) {
    static const std::regex clock("(\\| {14}|\\[[0-9]+D[0-9]{1,3}% *)([0-9]{2}:[0-9]{2}:[0-9]{2})");
    std::string result;
    auto last = out.cbegin();
    for (std::sregex_iterator it(out.begin(), out.end(), clock), end; it != end; ++it) {
        result.append(last, (*it)[2].first);
        result += "hh:mm:ss";
        if (times) times->push_back((*it)[2].str());
        last = (*it)[2].second;
    }
    result.append(last, out.cend());
    return result;
}

}  // namespace testrun
