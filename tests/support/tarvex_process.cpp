#include "support/tarvex_process.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <strings.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "support/model.h"

extern char** environ;

namespace testrun {

namespace fs = std::filesystem;

namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> p;
    for (auto& s : strings) p.push_back(s.data());
    return p.push_back(nullptr), p;
}

// Between fork and exec: async-signal-safe calls only.
[[noreturn]] void exec_child(const run_options& o, int out, int err, char** argv, char** envp) {
    struct rlimit limit = {rlim_t(o.file_size_limit), rlim_t(o.file_size_limit)};
    int null = ::open("/dev/null", O_RDONLY);
    if ((o.columns > 0 && (::setsid() < 0 || ::ioctl(out, TIOCSCTTY, 0) != 0)) || null < 0 || ::dup2(null, 0) < 0 ||
        ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0 || (!o.dir.empty() && ::chdir(o.dir.c_str()) != 0) ||
        (o.file_size_limit >= 0 && (::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || ::setrlimit(RLIMIT_FSIZE, &limit))))
        _exit(126);
    // Root ignores permission bits: a read-only folder needs an ordinary user.
    if (o.unprivileged && !::geteuid() && (::setgroups(0, nullptr) || ::setgid(65534) || ::setuid(65534))) _exit(125);
    ::execve(argv[0], argv, envp);
    _exit(127);
}

}  // namespace

outcome run(const std::string& program, const run_options& o) {
    outcome r;
    std::vector<std::string> args = {program}, env;
    args.insert(args.end(), o.args.begin(), o.args.end());
    for (char** e = environ; *e; ++e) env.push_back(*e);
    env.insert(env.end(), o.env.begin(), o.env.end());  // names the tests' own, absent from ours
    std::vector<char*> argv = pointers(args), envp = pointers(env);
    // Standard output is a pipe, or a terminal in raw mode: the bytes read are the bytes written.
    int out[2], err[2];
    struct winsize size = {40, static_cast<unsigned short>(o.columns), 0, 0};
    struct termios raw = {};
    cfmakeraw(&raw);
    if ((o.columns > 0 ? ::openpty(&out[0], &out[1], nullptr, &raw, &size) : ::pipe(out)) || ::pipe(err)) return r;
    pid_t pid = ::fork();
    if (pid == 0) ::close(out[0]), ::close(err[0]), exec_child(o, out[1], err[1], argv.data(), envp.data());
    ::close(out[1]);
    ::close(err[1]);
    if (o.kill_after >= 0) {
        // A signal the program handles is sent once it has started and said so; SIGKILL at any moment.
        struct pollfd started = {out[0], POLLIN, 0};
        if (o.kill_signal != SIGKILL) ::poll(&started, 1, 10000);
        std::this_thread::sleep_for(std::chrono::duration<double>(o.kill_after));
        ::kill(pid, o.kill_signal);
    }
    // Both are read until closed (a terminal then reports EIO).
    struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    char chunk[8192];
    while ((fds[0].fd >= 0 || fds[1].fd >= 0) && ::poll(fds, 2, -1) > 0)
        for (int i = 0; i < 2; ++i) {
            ssize_t n = fds[i].revents ? ::read(fds[i].fd, chunk, sizeof chunk) : 0;
            if (n > 0) (i ? r.err : r.out).append(chunk, size_t(n));
            else if (fds[i].revents) ::close(fds[i].fd), fds[i].fd = -1;
        }
    int status = 0;
    ::waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    static const std::regex error("\033\\[1;31mError: ([\\s\\S]*?)\033\\[0m");
    for (std::sregex_iterator it(r.out.begin(), r.out.end(), error), end; it != end; ++it) r.errors.push_back((*it)[1]);
    static const std::regex summary("\nFinished (\\d+) of (\\d+), (none|only (\\d+)) failed to convert\\.\n$");
    std::smatch m;
    if (std::regex_search(r.out, m, summary))
        r.finished = std::stoi(m[1]), r.total = std::stoi(m[2]), r.failed = m[4].matched ? std::stoi(m[4]) : 0;
    return r;
}

std::string source_file(const std::string& relative) {
    std::ifstream in(std::string(TARVEX_SOURCE_DIR) + "/" + relative, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string private_file(const std::string& pid) {
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    std::string name = host;
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) || c == '.' ? c : '_';
    return ".tarvex-" + name + "-" + pid + "-0-1a.tmp";
}

scratch_dir::scratch_dir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string name = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    // Without a folder of its own a test would write beside whatever path it was given: stop here.
    if (!::mkdtemp(name.data())) std::fprintf(stderr, "cannot make %s\n", name.c_str()), std::abort();
    path_ = fs::absolute(name).string();
}

scratch_dir::~scratch_dir() {
    if (!path_.empty()) empty(), ::rmdir(path_.c_str());
}

std::string scratch_dir::write(const std::string& name, const std::vector<uint8_t>& bytes) const {
    std::error_code ignored;
    fs::create_directories(fs::path(*this / name).parent_path(), ignored);
    return testdata::write_file(*this / name, bytes) ? *this / name : std::string();
}

std::string scratch_dir::touch(const std::string& name, const std::string& text) const {
    return write(name, std::vector<uint8_t>(text.begin(), text.end()));
}

std::vector<std::string> scratch_dir::names(const std::string& sub) const {
    std::vector<std::string> found;
    std::error_code ignored;
    for (fs::directory_iterator it(fs::path(path_) / sub, ignored), end; it != end; it.increment(ignored))
        found.push_back(it->path().filename().string());
    return std::sort(found.begin(), found.end()), found;
}

void scratch_dir::empty() const {
    std::error_code ignored;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (fs::recursive_directory_iterator it(path_, ignored), end; it != end; it.increment(ignored))
        fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const auto& name : names()) fs::remove_all(*this / name, ignored);
}

bool keeps(const std::string& folder, fs_trait trait, const std::string& what) {
    const std::string a = folder + "/.probe", b = folder + "/.probe2";
    struct stat st = {}, other = {};
    char value[2] = {};
    bool kept = testdata::write_file(a, {1}) && !::stat(a.c_str(), &st);
    switch (trait) {
    case fs_trait::modes:  // the group only where the tests run as root and may give one
        kept = kept && !::chmod(a.c_str(), 0440) && (::geteuid() || !::chown(a.c_str(), 0, 100)) &&
               !::stat(a.c_str(), &st) && (st.st_mode & 07777) == 0440 && (::geteuid() || st.st_gid == 100);
        break;
    case fs_trait::symlinks: kept = kept && !::symlink(a.c_str(), b.c_str()) && ::readlink(b.c_str(), value, 1) == 1; break;
    case fs_trait::hard_links: kept = kept && !::link(a.c_str(), b.c_str()); break;
    case fs_trait::fifos: kept = kept && !::mkfifo(b.c_str(), 0644) && !::lstat(b.c_str(), &st) && S_ISFIFO(st.st_mode); break;
    case fs_trait::xattrs:
        kept = kept && !::setxattr(a.c_str(), "user.probe", "x", 1, 0) && ::getxattr(a.c_str(), "user.probe", value, 2) == 1;
        break;
    case fs_trait::inode_numbers:  // the same number under a second name, if it can have one, and after a rename
        kept = kept && (::link(a.c_str(), b.c_str()) || (!::stat(b.c_str(), &other) && other.st_ino == st.st_ino && !::unlink(b.c_str())));
        kept = kept && !::rename(a.c_str(), b.c_str()) && !::stat(b.c_str(), &other) && other.st_ino == st.st_ino;
    }
    ::unlink(a.c_str()), ::unlink(b.c_str());
    static const char* const lacks[] = {"keeps no permission bits or groups", "has no symbolic links",
                                        "has no hard links", "has no FIFOs", "keeps no extended attributes",
                                        "shows a file under a new inode number after a rename or link"};
    if (!kept) std::printf("skipped here: %s: this file system %s\n", what.c_str(), lacks[int(trait)]);
    return kept;
}

namespace {

// Every file and folder (with a trailing "/") below `dir`.
std::map<std::string, file_state> files_in(const std::string& dir) {
    std::map<std::string, file_state> files;
    std::error_code ignored;
    for (fs::recursive_directory_iterator it(dir, ignored), end; it != end; it.increment(ignored)) {
        struct stat st;
        const std::string name = fs::relative(it->path(), dir, ignored);
        if (it->is_directory(ignored)) files[name + "/"];
        else if (::stat(it->path().c_str(), &st) == 0)
            files[name] = {testdata::read_file(it->path()), st.st_ino,
                           st.st_mtim.tv_sec * 1000000000L + st.st_mtim.tv_nsec};
    }
    return files;
}

// `p` relative to `d` when it lies in it.
std::string relative(const scratch_dir& d, const std::string& p) { return p.rfind(d / "", 0) ? p : p.substr(d.path().size() + 1); }

// A run: its settings, its jobs (operands, or the lines of the -l file), -c's folder (relative to `dir` when in
// it); then what the jobs must leave: the folder's files (inode 0: written anew; time -1: any bytes), a verdict
// letter a job, the error lines, the failures counted and whether the settings report is printed.
struct plan {
    model::run settings;
    std::vector<std::string> jobs, errors;
    std::string folder, letters;
    std::map<std::string, file_state> after;
    int failures = 0;
    bool report = false;
};

// -z, -h, a long option, an unknown option, a missing value, an -e other than host, big or little, or an -o that
// is not 2048 to 2^31-1 or -1 end the run: no jobs.
plan plan_of(const scratch_dir& dir, const std::vector<std::string>& args) {
    plan p;
    model::run& settings = p.settings;
    std::string list;
    bool runs = true;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const char option = a.size() == 2 && a[0] == '-' ? a[1] : a.rfind("--", 0) == 0 ? '-' : 0;
        if (!option) p.jobs.push_back(a);
        const bool takes = option && std::strchr("lwbtzcoe", option);
        const bool valued = takes && i + 1 < args.size();
        const std::string value = valued ? args[++i] : "";
        int32_t* number = option == 'w' ? &settings.high : option == 'b' ? &settings.low
                        : option == 't' ? &settings.transfer : nullptr;
        if (valued && number) *number = std::atoi(value.c_str());
        const bool digits = !value.empty() && value.size() <= 10 && value.find_first_not_of("0123456789") == std::string::npos;
        if (valued && option == 'o') settings.offset = value == "-1" ? -1 : digits && std::stoll(value) <= INT32_MAX ? int32_t(std::stoll(value)) : 0;
        if (valued && option == 'l') list = value;
        if (valued && option == 'e') settings.big = value == "big" || (value == "host" && !testdata::host_little);
        runs = runs && !(valued && option == 'e' && value != "big" && value != "little" && value != "host");
        settings.all = settings.all || option == 'a';
        if (valued && option == 'c') p.folder = value.empty() ? "" : value.back() == '/' ? value : value + "/";
        runs = runs && !(valued && option == 'z') && !(option && !std::strchr("lwbtzcofea", option)) &&
               !(takes && !valued) && !(option == 'c' && value.empty());
    }
    std::ifstream lines(dir / list);
    if (!list.empty()) p.jobs.clear();
    for (std::string line; !list.empty() && std::getline(lines, line);) p.jobs.push_back(line);
    if (!runs || (settings.offset < 2048 && settings.offset != -1)) p.jobs.clear();
    p.folder = relative(dir, p.folder);
    if (p.folder == "./") p.folder.clear();  // the current folder: in place
    return p;
}

// Follows the jobs of `p` through the model, from the folder's files `after`; a letter of `forced` replaces the
// model's verdict on its job (see run_checked).
void expect(const scratch_dir& dir, plan& p, std::map<std::string, file_state> after, const std::string& forced) {
    // Where names ignore case (exFAT), a name given in another case finds the file under its own.
    const bool ignores_case = testdata::write_file(dir / ".case", {1}) && !::access((dir / ".CASE").c_str(), F_OK);
    ::unlink((dir / ".case").c_str());
    for (size_t i = 0; i < p.jobs.size(); ++i) {
        std::string name = relative(dir, p.jobs[i]);
        for (const auto& [held, file] : after)
            if (ignores_case && !after.count(name) && !strcasecmp(held.c_str(), name.c_str())) name = held;
        const size_t base = name.rfind('/') + 1;
        // Into -c's folder under its own name, or in place (-c naming the input's own folder too).
        const std::string out = p.folder.empty() || p.folder == name.substr(0, base) ? name : p.folder + name.substr(base);
        const char force = i < forced.size() && std::strchr("LORWXHNTs", forced[i]) ? forced[i] : 0;
        const model::run was = p.settings;
        model::job j = model::convert(after.count(name) ? after[name].data : testdata::bytes(), p.settings, out != name);
        const std::string cin = model::cineon_name(name);
        if (j.renamed && cin != name && after.count(cin)) j.error = model::cineon_taken, j.failures = 1, j.renamed = false;
        if (force) {
            const std::map<char, const char*> texts = {
                {'L', model::load_failed},  {'O', model::open_failed},   {'R', model::read_failed},
                {'W', model::write_failed}, {'X', model::write_failed}, {'H', model::header_failed},
                {'N', out == name ? model::replace_failed : model::write_failed}, {'T', model::cineon_taken}};
            p.settings = force == 'L' ? was : p.settings;  // a file that does not load fixes no setting
            j.report = j.report && force != 'L';
            j.error = texts.count(force) ? texts.at(force) : "";
            j.failures = force == 'X' ? 2 : !j.error.empty();
            j.written = j.renamed = false;
        }
        p.letters += force                ? force
                     : !j.error.empty()   ? (j.error == model::not_10bit ? 'B' : j.error == model::read_failed ? 'R'
                                             : j.error == model::cineon_taken ? 'T' : 'L')
                     : j.renamed          ? 'r'
                     : j.written          ? 'c'
                                          : 'u';
        p.report = p.report || j.report;
        p.failures += j.failures;
        if (!j.error.empty()) p.errors.push_back(j.error + " (" + p.jobs[i] + ")");
        if (j.renamed && cin != name) after[cin] = after[name], after.erase(name);
        if (j.written) after[out] = {j.output};
        // What dead runs of this machine left where the job writes goes (the tables plant them as pid 99999999).
        if (j.works && force != 'L') after.erase(out.substr(0, out.rfind('/') + 1) + private_file("99999999"));
    }
    p.after = std::move(after);
}

}  // namespace

outcome run_checked(const scratch_dir& dir, run_options options, std::string* verdicts, const std::string& forced) {
    const struct timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};  // so that any write shows
    for (const auto& [name, file] : files_in(dir.path())) ::utimensat(AT_FDCWD, (dir / name).c_str(), long_ago, 0);
    plan p = plan_of(dir, options.args);
    expect(dir, p, files_in(dir.path()), forced);
    if (verdicts) *verdicts = p.letters;
    options.dir = dir.path();
    outcome got = run(TARVEX_BINARY, options);
    EXPECT_EQ(0, got.status);
    if (!p.jobs.empty()) {  // runs without jobs end with a fixed text the callers compare
        EXPECT_EQ(p.errors, got.errors);
        EXPECT_EQ(p.report, got.out.find("Cineon/DPX Settings") != std::string::npos);
        const int n = int(p.jobs.size());
        EXPECT_EQ((std::vector<int>{n, n, p.failures}), (std::vector<int>{got.finished, got.total, got.failed}));
    }
    // Where inode numbers change with a file's name, its bytes and time alone tell a rewrite.
    static const bool inodes = keeps(dir.path(), fs_trait::inode_numbers, "the inode check of files left or renamed");
    const std::map<std::string, file_state> now = files_in(dir.path());
    for (const auto& [name, file] : now) EXPECT_TRUE(p.after.count(name)) << name << " should not be there";
    for (const auto& [name, file] : p.after) {
        auto it = now.find(name);
        EXPECT_TRUE(it != now.end() && (file.mtime_ns < 0 || it->second.data == file.data))
            << name << " is missing or not the model's";
        const bool same = it != now.end() && it->second.data == file.data && it->second.mtime_ns == file.mtime_ns &&
                          (!inodes || it->second.inode == file.inode);
        EXPECT_TRUE(!file.inode || it == now.end() || same) << name << " was rewritten";
    }
    return got;
}

}  // namespace testrun
