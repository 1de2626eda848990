#include "support/tarvex_process.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

extern char** environ;

namespace testrun {

namespace fs = std::filesystem;

namespace {

const char kErrorStart[] = "\033[1;31mError: ";
const char kErrorEnd[] = "\033[0m";

// The child's environment: ours less the names `extra` sets, then `extra`.
std::vector<std::string> child_environment(const std::vector<std::string>& extra) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const char* eq = std::strchr(*e, '=');
        size_t name = eq ? size_t(eq - *e) + 1 : std::strlen(*e);
        bool replaced = std::any_of(extra.begin(), extra.end(),
                                    [&](const std::string& x) { return x.compare(0, name, *e, name) == 0; });
        if (!replaced) env.push_back(*e);
    }
    env.insert(env.end(), extra.begin(), extra.end());
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
    if (options.columns > 0) {
        ::setsid();
        ::ioctl(out, TIOCSCTTY, 0);
    }
    int null = ::open("/dev/null", O_RDONLY);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) _exit(126);
    if (!options.dir.empty() && ::chdir(options.dir.c_str()) != 0) _exit(126);
    if (options.file_size_limit >= 0) {
        // Writes past the limit then fail with EFBIG instead of killing the process.
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

// Reads both descriptors until both are closed; a pty master reports EIO
// once the child's side is closed.
void collect(int out, int err, std::string& out_text, std::string& err_text) {
    struct pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* texts[2] = {&out_text, &err_text};
    int open_fds = 2;
    char chunk[8192];
    while (open_fds > 0) {
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
                --open_fds;
                continue;
            }
            texts[i]->append(chunk, size_t(n));
        }
    }
}

// Opens the descriptor standard output goes to: a pipe, or a pseudo-terminal
// `columns` wide with output processing and echo off.
bool open_output(int columns, int fds[2]) {
    if (columns <= 0) return ::pipe2(fds, O_CLOEXEC) == 0;
    struct winsize size = {};
    size.ws_row = 40;
    size.ws_col = static_cast<unsigned short>(columns);
    if (::openpty(&fds[0], &fds[1], nullptr, nullptr, &size) != 0) return false;
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    struct termios mode;
    if (::tcgetattr(fds[1], &mode) == 0) {
        mode.c_oflag &= ~tcflag_t(OPOST);
        mode.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(fds[1], TCSANOW, &mode);
    }
    return true;
}

// Gives every folder below `root` its owner's write permission back, so
// that removal cannot be stopped by a test's read-only folder.
void make_writable(const fs::path& root) {
    std::error_code ignored;
    fs::permissions(root, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (auto it = fs::recursive_directory_iterator(root, ignored); it != fs::recursive_directory_iterator();
         it.increment(ignored)) {
        if (it->is_directory(ignored)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
}

}  // namespace

outcome run(const std::string& program, const run_options& options) {
    outcome result;
    std::vector<std::string> args = {program};
    args.insert(args.end(), options.args.begin(), options.args.end());
    std::vector<std::string> env = child_environment(options.env);
    std::vector<char*> argv = pointers(args);
    std::vector<char*> envp = pointers(env);

    int out[2], err[2];
    if (!open_output(options.columns, out)) return result;
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return result;
    }
    pid_t pid = ::fork();
    if (pid == 0) {
        ::close(out[0]);
        start_child(options, out[1], err[1], argv.data(), envp.data());
    }
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

pid_t start(const std::string& program, const std::vector<std::string>& args) {
    std::vector<std::string> all = {program};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv = pointers(all);
    pid_t pid = ::fork();
    if (pid == 0) {
        int null = ::open("/dev/null", O_RDWR);
        if (null >= 0) {
            ::dup2(null, 1);
            ::dup2(null, 2);
        }
        ::execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

std::string golden_in(const std::string& source_dir, const std::string& name) {
    std::ifstream in(source_dir + "/tests/driver/golden/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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

bool read_summary(const std::string& out, outcome& result) {
    size_t at = out.rfind("Finished ");
    if (at == std::string::npos) return false;
    int done = 0, total = 0, failed = 0;
    if (std::sscanf(out.c_str() + at, "Finished %d of %d", &done, &total) != 2) return false;
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

scratch_dir::scratch_dir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!::mkdtemp(name.data())) return;
    std::error_code ignored;
    path_ = fs::absolute(name.data(), ignored).string();
}

scratch_dir::~scratch_dir() {
    if (path_.empty()) return;
    make_writable(path_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string scratch_dir::write(const std::string& name, const std::vector<uint8_t>& bytes) const {
    std::string file = *this / name;
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return out ? file : std::string();
}

std::string scratch_dir::touch(const std::string& name, const std::string& text) const {
    std::string file = *this / name;
    std::error_code ignored;
    fs::create_directories(fs::path(file).parent_path(), ignored);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
    return out ? file : std::string();
}

std::vector<std::string> scratch_dir::names(const std::string& sub) const {
    std::vector<std::string> found;
    std::error_code ignored;
    fs::path where = sub.empty() ? fs::path(path_) : fs::path(path_) / sub;
    for (auto it = fs::directory_iterator(where, ignored); it != fs::directory_iterator(); it.increment(ignored))
        found.push_back(it->path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}

void scratch_dir::empty() const {
    make_writable(path_);
    std::error_code ignored;
    for (const auto& name : names()) fs::remove_all(fs::path(path_) / name, ignored);
}

std::string stdout_of(const std::function<void()>& body) {
    std::fflush(stdout);
    FILE* capture = std::tmpfile();
    if (!capture) return "<no capture file>";
    int saved = ::dup(1);
    ::dup2(fileno(capture), 1);
    body();
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
    std::string out;
    std::rewind(capture);
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, capture)) > 0) out.append(buf, n);
    std::fclose(capture);
    return out;
}

bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

file_facts facts_of(const std::string& path) {
    file_facts f;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return f;
    f.exists = true;
    f.inode = st.st_ino;
    f.mtime_ns = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return f;
}

bool age(const std::string& path) {
    struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

}  // namespace testrun
