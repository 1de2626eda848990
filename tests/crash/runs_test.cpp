// Several tarvex runs at once over shared folders, runs ended by signals, and
// frames that are links, FIFOs or carry metadata: every frame ends as its
// original or as the model's whole conversion of it, nothing else is left.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "support/model.h"
#include "support/tarvex_process.h"

namespace {

using testdata::bytes;
using testrun::scratch_dir;

// `count` big-endian frames `folder`/shot.NNNN.dpx of `lines` lines; their names.
std::vector<std::string> frames(const scratch_dir& dir, const std::string& folder, int count, int lines = 40) {
    ::mkdir((dir / folder).c_str(), 0755);
    testrun::run(TARVEX_MKFRAMES, {{"-W", "256", "-H", std::to_string(lines), "-n", std::to_string(count), "-e",
                                    "big", dir / (folder + "/shot.%04d.dpx")}});
    std::vector<std::string> names;
    for (const std::string& name : dir.names(folder)) names.push_back(dir / (folder + "/" + name));
    return names;
}

bytes converted(const std::string& path) {
    model::run settings;
    return model::convert(testdata::read_file(path), settings).output;
}

// Starts tarvex on `args`, its output discarded; wait_all waits for the runs started together.
pid_t start(std::vector<std::string> args) {
    args.insert(args.begin(), TARVEX_BINARY);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) ::dup2(::open("/dev/null", O_WRONLY), 1), ::execv(argv[0], argv.data()), ::_exit(127);
    return pid;
}
void wait_all(const std::vector<pid_t>& pids) {
    for (pid_t pid : pids) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
}
std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
    return a.insert(a.end(), b.begin(), b.end()), a;
}

TEST(Runs, SeveralAtOnceOverOneFolderEachFrameWhole) {
    scratch_dir dir;
    const auto a = frames(dir, "a", 40, 400), b = frames(dir, "b", 40, 480);  // the same names, other bytes
    std::vector<bytes> want_a, want_b;
    for (size_t i = 0; i < a.size(); ++i) want_a.push_back(converted(a[i])), want_b.push_back(converted(b[i]));
    const std::vector<std::string> half1(a.begin(), a.begin() + 20), half2(a.begin() + 20, a.end());
    std::string list;
    for (size_t i = 10; i < 30; ++i) list += a[i] + "\n";
    dir.touch("overlap.txt", list);
    ::mkdir((dir / "out").c_str(), 0755);
    // Halves, all of it, an overlapping list, and two -c runs into one folder
    // from two folders whose files share names, all at once.
    wait_all({start(half1), start(half2), start(a), start({"-l", dir / "overlap.txt"}),
              start(std::vector<std::string>{"-c", dir / "out"} + a), start(std::vector<std::string>{"-c", dir / "out"} + b)});
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(want_a[i], testdata::read_file(a[i])) << a[i];
        const bytes got = testdata::read_file(dir / ("out/" + a[i].substr(a[i].rfind('/') + 1)));
        EXPECT_TRUE(got == want_a[i] || got == want_b[i]) << "out/ " << i;
    }
    // One run killed at a random moment while another goes on, then a run to completion.
    for (size_t i = 0; i < b.size(); ++i) testdata::write_file(a[i], testdata::read_file(b[i]));
    testrun::run_options killed{a};
    std::mt19937 random(std::random_device{}());
    killed.kill_after = std::uniform_real_distribution<double>(0, 0.05)(random);
    pid_t other = start(half2);
    testrun::run_tarvex(killed);
    wait_all({other});
    EXPECT_EQ(0, testrun::run_tarvex({a}).failed);
    for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(want_b[i], testdata::read_file(a[i])) << a[i];
    for (const std::string& name : dir.names("a")) EXPECT_EQ(name.rfind("shot.", 0), 0u) << name;
}

// SIGINT, SIGTERM and SIGHUP: the running frame's output goes, no further frame
// starts, the summary of the finished ones is the last line, and the process
// ends by that signal. A closed standard output (SIGPIPE) stops nothing.
TEST(Runs, SignalsEndARunCleanlyAndAClosedOutputStopsNothing) {
    for (int signo : {SIGINT, SIGTERM, SIGHUP}) {
        scratch_dir dir;
        const auto names = frames(dir, "f", 40, 4096);  // 4 MiB frames: a run of a good part of a second
        std::vector<bytes> want;
        for (const std::string& name : names) want.push_back(converted(name));
        testrun::run_options o{names};
        o.kill_after = 0.05, o.kill_signal = signo;
        const testrun::outcome r = testrun::run_tarvex(o);
        EXPECT_EQ(signo, r.signal);
        int done = 0;
        for (size_t i = 0; i < names.size(); ++i) done += testdata::read_file(names[i]) == want[i];
        EXPECT_EQ(done, r.finished) << r.out;
        EXPECT_EQ(40u, dir.names("f").size());
    }
    scratch_dir dir;
    const auto names = frames(dir, "f", 5);
    std::vector<bytes> want;
    for (const std::string& name : names) want.push_back(converted(name));
    std::string command = std::string(TARVEX_BINARY) + " " + dir / "f/*.dpx" + " | head -c 1 >/dev/null";
    EXPECT_EQ(0, testrun::run("/bin/sh", {{"-c", command}}).status);
    for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(want[i], testdata::read_file(names[i])) << names[i];
}

// Links, FIFOs, metadata: a frame given as a link is converted at its target
// and the link stays; another hard link keeps the old bytes; mode, group and
// extended attributes survive; a FIFO or a dangling link fails at once; a
// planted ~tmp.dpx link points nowhere it could be written through.
TEST(Runs, LinksFifosAndMetadata) {
    scratch_dir dir;
    const auto names = frames(dir, "f", 3);
    const bytes want = converted(names[0]), original1 = testdata::read_file(names[1]), want1 = converted(names[1]);
    dir.touch("outside", "keep");
    ::symlink((dir / "outside").c_str(), (dir / "f/~tmp.dpx").c_str());
    ::symlink(names[0].c_str(), (dir / "link.dpx").c_str());
    ::link(names[1].c_str(), (dir / "hard.dpx").c_str());
    ::chmod(names[1].c_str(), 0440), ::chown(names[1].c_str(), 0, 100);
    ::setxattr(names[1].c_str(), "user.note", "kept", 4, 0);
    ::symlink((dir / "none").c_str(), (dir / "dangling.dpx").c_str());
    ::mkfifo((dir / "fifo.dpx").c_str(), 0644);
    const testrun::outcome r = testrun::run_tarvex({{dir / "link.dpx", names[1], dir / "dangling.dpx", dir / "fifo.dpx"}});
    EXPECT_EQ((std::vector<std::string>{model::load_failed + std::string(" (") + dir / "dangling.dpx)",
                                        model::load_failed + std::string(" (") + dir / "fifo.dpx)"}), r.errors);
    char target[512] = {};
    EXPECT_GT(::readlink((dir / "link.dpx").c_str(), target, sizeof target), 0);
    EXPECT_EQ(names[0], target);
    EXPECT_EQ(want, testdata::read_file(names[0]));
    EXPECT_EQ(original1, testdata::read_file(dir / "hard.dpx"));
    EXPECT_EQ(want1, testdata::read_file(names[1]));
    struct stat st;
    ASSERT_EQ(0, ::stat(names[1].c_str(), &st));
    EXPECT_EQ((std::vector<unsigned>{0440, 100}), (std::vector<unsigned>{st.st_mode & 07777, st.st_gid}));
    char note[8] = {};
    EXPECT_EQ(4, ::getxattr(names[1].c_str(), "user.note", note, sizeof note));
    EXPECT_EQ(bytes({'k', 'e', 'e', 'p'}), testdata::read_file(dir / "outside"));
    // -c into another folder: the name given, the input's mode less the umask.
    ::mkdir((dir / "out").c_str(), 0755);
    testrun::run_tarvex({{"-c", dir / "out", dir / "link.dpx"}});
    EXPECT_EQ(want, testdata::read_file(dir / "out/link.dpx"));
}

}  // namespace
