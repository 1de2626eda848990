// Kills tarvex with SIGKILL at random moments while it converts a sequence of
// frames in place or into a -c folder: after every kill each frame (and each
// file under a frame's name in the folder) must be its original bytes or the
// model's conversion of them, and a last run must finish the sequence.
// TARVEX_CRASH_SEED repeats a run's kill times; TARVEX_CRASH_KILLS sets how
// many kills must land mid-run (40; the file-system matrix runs fewer). Then
// several runs at once over shared folders, runs ended by signals, and frames
// that are links, FIFOs or carry metadata: every frame ends as its original or
// as the model's whole conversion of it, nothing else is left.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <numeric>
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
    std::vector<std::string> names = dir.names(folder);
    for (std::string& name : names) name = dir / (folder + "/" + name);
    return names;
}

// Each frame as the model converts it alone.
std::vector<bytes> converted(const std::vector<std::string>& paths) {
    std::vector<bytes> all;
    for (const std::string& path : paths) {
        model::run settings;
        all.push_back(model::convert(testdata::read_file(path), settings).output);
    }
    return all;
}

std::string joined(const std::vector<std::string>& words) {
    return std::accumulate(words.begin(), words.end(), std::string(), [](auto l, auto& w) { return l + " " + w; });
}

// Runs tarvex with each argument line at the same time; true when every run exited 0.
bool together(const std::vector<std::string>& runs) {
    std::string script = "s=0; p=";
    for (const std::string& args : runs) script += "; " TARVEX_BINARY + args + " >/dev/null & p=\"$p $!\"";
    return testrun::run("/bin/sh", {{"-c", script + "; for i in $p; do wait $i || s=1; done; exit $s"}}).status == 0;
}

constexpr int kFrames = 60, kKillsPerSequence = 8;
const int kKills = std::getenv("TARVEX_CRASH_KILLS") ? std::atoi(std::getenv("TARVEX_CRASH_KILLS")) : 40;

// Runs `all` to its end; the seconds it took.
double timed(const testrun::run_options& all) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, testrun::run(TARVEX_BINARY, all).failed);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Whatever the last kill left, a run finishes the sequence (frame n converted to `target(n)`); no name a later
// *.dpx could take is left behind in `folder`, and no private file: where the file system has no O_TMPFILE,
// this run removes what the killed ones left.
template <class Target>
void finish(const scratch_dir& dir, const testrun::run_options& all, const std::vector<bytes>& want, Target target,
            const std::string& folder) {
    const testrun::outcome r = testrun::run(TARVEX_BINARY, all);
    EXPECT_EQ((std::vector<int>{kFrames, 0}), (std::vector<int>{r.finished, r.failed}));
    for (size_t n = 0; n < kFrames; ++n) EXPECT_EQ(want[n], testdata::read_file(target(n)));
    for (const std::string& name : dir.names(folder))
        EXPECT_TRUE(name.rfind("shot.", 0) == 0 ||
                    (name[0] == '.' && name.substr(name.size() - 4) != ".dpx" && name.rfind(".tarvex-", 0))) << name;
}

void kill_at_random_moments(bool into_folder) {
    scratch_dir dir("tarvex-crash");
    const std::vector<std::string> names = frames(dir, "f", kFrames, 512);
    ASSERT_EQ(size_t(kFrames), names.size());
    std::vector<bytes> originals;
    for (const std::string& name : names) originals.push_back(testdata::read_file(name));
    const std::vector<bytes> want = converted(names);
    const std::string out = dir / "out";
    testrun::run_options all{names};
    if (into_folder) ::mkdir(out.c_str(), 0755), all.args.insert(all.args.begin(), {"-c", out});
    // A whole run, then one over the converted frames: the time a run spends
    // converting, and before it reaches the frames left to convert.
    const double seconds[2] = {timed(all), timed(all)};
    // Where frame n is converted to, and what else may stand there.
    auto target = [&](size_t n) { return into_folder ? out + names[n].substr(names[n].rfind('/')) : names[n]; };

    const char* given = std::getenv("TARVEX_CRASH_SEED");
    const unsigned seed = given ? unsigned(std::atol(given)) : std::random_device{}();
    std::printf("crash test: seed %u (TARVEX_CRASH_SEED=%u repeats it), runs of %.3f and %.3f s\n", seed, seed,
                seconds[0], seconds[1]);
    std::mt19937 random(seed);
    // Kills after the run had ended shrink the span the delays are drawn from
    // (the machine may be busier than when it was measured); kills that land widen it again.
    int kills = 0, landed = 0, sequences = 0;
    double scale = 1.0;
    while (landed < kKills && sequences++ < 3 * kKills) {
        for (size_t n = 0; n < kFrames; ++n) ASSERT_TRUE(testdata::write_file(names[n], originals[n]));
        for (size_t n = 0; n < kFrames && into_folder; ++n) ::unlink(target(n).c_str());
        for (int round = 0, left = kFrames; left > 0 && round < kKillsPerSequence; ++round, ++kills) {
            // A run converts only what is left, so it takes that share of the converting time.
            const double span = 1.2 * scale * (seconds[1] + (seconds[0] - seconds[1]) * left / kFrames);
            all.kill_after = std::uniform_real_distribution<double>(0.0, span)(random);
            const bool mid_run = testrun::run(TARVEX_BINARY, all).status == -1;
            landed += mid_run;
            scale = mid_run ? std::min(1.0, scale * 1.1) : scale * 0.6;
            left = 0;
            for (size_t n = 0; n < kFrames; ++n) {
                const bytes now = testdata::read_file(target(n));
                left += into_folder ? now.empty() : now == originals[n];
                ASSERT_TRUE(now == (into_folder ? bytes() : originals[n]) || now == want[n])
                    << "a kill after " << all.kill_after << " s broke " << target(n);
            }
        }
        all.kill_after = -1;
        finish(dir, all, want, target, into_folder ? "out" : "f");
    }
    std::printf("crash test: %d sequences, %d kills, %d of them while tarvex was running\n", sequences, kills, landed);
    EXPECT_GE(landed, kKills);
}

TEST(Crash, KilledAtRandomMomentsEveryFrameIsWholeAndASecondRunFinishes) { kill_at_random_moments(false); }
TEST(Crash, KilledAtRandomMomentsIntoAFolderNoFileIsPartial) { kill_at_random_moments(true); }

TEST(Runs, SeveralAtOnceOverOneFolderEachFrameWhole) {
    scratch_dir dir;
    const auto a = frames(dir, "a", 40, 400), b = frames(dir, "b", 40, 480);  // the same names, other bytes
    const std::vector<bytes> want_a = converted(a), want_b = converted(b);
    const std::vector<std::string> half1(a.begin(), a.begin() + 20), half2(a.begin() + 20, a.end());
    std::string list;
    for (size_t i = 10; i < 30; ++i) list += a[i] + "\n";
    dir.touch("overlap.txt", list);
    ::mkdir((dir / "out").c_str(), 0755);
    // Halves, all of it, an overlapping list, and two -c runs into one folder
    // from two folders whose files share names, all at once.
    EXPECT_TRUE(together({joined(half1), joined(half2), joined(a), " -l " + dir / "overlap.txt",
                          " -c " + dir / "out" + joined(a), " -c " + dir / "out" + joined(b)}));
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(want_a[i], testdata::read_file(a[i])) << a[i];
        const bytes got = testdata::read_file(dir / ("out/" + a[i].substr(a[i].rfind('/') + 1)));
        EXPECT_TRUE(got == want_a[i] || got == want_b[i]) << "out/ " << i;
    }
}

// SIGINT, SIGTERM and SIGHUP: the running frame's output goes, no further frame
// starts, the summary of the finished ones is the last line, and the process
// ends by that signal. A closed standard output (SIGPIPE) stops nothing.
TEST(Runs, SignalsEndARunCleanlyAndAClosedOutputStopsNothing) {
    // 4 MiB frames; the signal comes right after the banner, or a little later.
    for (auto [signo, after] : {std::pair{SIGINT, 0.0}, {SIGTERM, 0.005}, {SIGHUP, 0.01}}) {
        scratch_dir dir;
        const auto names = frames(dir, "f", 20, 4096);
        const std::vector<bytes> want = converted(names);
        testrun::run_options o{names};
        o.kill_after = after, o.kill_signal = signo;
        const testrun::outcome r = testrun::run(TARVEX_BINARY, o);
        EXPECT_EQ(signo, r.signal);
        int done = 0;
        for (size_t i = 0; i < names.size(); ++i) done += testdata::read_file(names[i]) == want[i];
        EXPECT_EQ(done, r.finished) << r.out;
        EXPECT_EQ(20u, dir.names("f").size());
    }
    scratch_dir dir;
    const auto names = frames(dir, "f", 5);
    const std::vector<bytes> want = converted(names);
    std::string command = std::string(TARVEX_BINARY) + " " + dir / "f/*.dpx" + " | head -c 1 >/dev/null";
    EXPECT_EQ(0, testrun::run("/bin/sh", {{"-c", command}}).status);
    for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(want[i], testdata::read_file(names[i])) << names[i];
}

// Links, FIFOs, metadata: a frame given as a link is converted at its target
// and the link stays; another hard link keeps the old bytes; mode, group and
// extended attributes survive; a FIFO or a dangling link fails at once; a
// planted ~tmp.dpx link points nowhere it could be written through. Each part
// the file system cannot hold is left out, with the reason printed.
TEST(Runs, LinksFifosAndMetadata) {
    scratch_dir dir;
    const auto names = frames(dir, "f", 3);
    const std::vector<bytes> want = converted(names);
    const bytes original1 = testdata::read_file(names[1]);
    using testrun::fs_trait;
    auto keeps = [&](fs_trait trait, const char* part) { return testrun::keeps(dir.path(), trait, part); };
    const bool links = keeps(fs_trait::symlinks, "links to frames, dangling links, a ~tmp.dpx link");
    const bool hard = keeps(fs_trait::hard_links, "a hard link keeping the old bytes");
    const bool modes = keeps(fs_trait::modes, "the mode and group kept");
    const bool xattrs = keeps(fs_trait::xattrs, "an extended attribute kept");
    const bool fifos = keeps(fs_trait::fifos, "a FIFO refused at once");
    std::vector<std::string> args = {names[1]}, errors;
    auto refused = [&](const std::string& name) {
        args.push_back(dir / name), errors.push_back(model::load_failed + (" (" + dir / name + ")"));
    };
    if (links) {
        dir.touch("outside", "keep");
        ::symlink((dir / "outside").c_str(), (dir / "f/~tmp.dpx").c_str());
        ::symlink(names[0].c_str(), (dir / "link.dpx").c_str());
        ::symlink((dir / "none").c_str(), (dir / "dangling.dpx").c_str());
        args.insert(args.begin(), dir / "link.dpx"), refused("dangling.dpx");
    }
    if (hard) ::link(names[1].c_str(), (dir / "hard.dpx").c_str());
    if (modes) ::chmod(names[1].c_str(), 0440), ::chown(names[1].c_str(), 0, 100);
    if (xattrs) ::setxattr(names[1].c_str(), "user.note", "kept", 4, 0);
    if (fifos) ::mkfifo((dir / "fifo.dpx").c_str(), 0644), refused("fifo.dpx");
    const testrun::outcome r = testrun::run(TARVEX_BINARY, {args});
    EXPECT_EQ(errors, r.errors);
    char target[512] = {}, note[8] = {};
    struct stat st = {};
    EXPECT_EQ(want[1], testdata::read_file(names[1]));
    EXPECT_TRUE(!links || (::readlink((dir / "link.dpx").c_str(), target, sizeof target) > 0 && names[0] == target &&
                           testdata::read_file(names[0]) == want[0] && testdata::read_file(dir / "outside").size() == 4));
    EXPECT_TRUE(!hard || testdata::read_file(dir / "hard.dpx") == original1);
    EXPECT_TRUE(!modes || (::stat(names[1].c_str(), &st) == 0 && (st.st_mode & 07777) == 0440 && st.st_gid == 100));
    EXPECT_TRUE(!xattrs || (::getxattr(names[1].c_str(), "user.note", note, sizeof note) == 4 && std::string(note) == "kept"));
    if (!links) return;
    // -c into another folder through a link: the name given, the input's mode less the umask.
    ::mkdir((dir / "out").c_str(), 0755);
    testrun::run(TARVEX_BINARY, {{"-c", dir / "out", dir / "link.dpx"}});
    EXPECT_EQ(want[0], testdata::read_file(dir / "out/link.dpx"));
}

}  // namespace
