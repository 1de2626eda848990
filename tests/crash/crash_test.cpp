// Kills tarvex with SIGKILL at random moments while it converts a sequence
// of frames in place, and checks after every kill that each frame is either
// its original bytes or its complete converted bytes; a last run over each
// sequence must then finish it. Set TARVEX_CRASH_SEED to repeat a run's kill times.
#include <algorithm>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testrun::scratch_dir;
using testdata::bytes;
using clock_type = std::chrono::steady_clock;

constexpr int kFrames = 60;
// Kills that must land while tarvex is still running.
constexpr int kKills = 40;
// Kills before a sequence is finished by an uninterrupted run.
constexpr int kKillsPerSequence = 8;

std::string frame_name(int n) {
    char name[32];
    std::snprintf(name, sizeof name, "shot.%04d.dpx", n);
    return name;
}

// Starts tarvex on every frame of `folder` with output discarded.
pid_t start_tarvex(const std::string& folder) {
    std::vector<std::string> args;
    for (int n = 1; n <= kFrames; ++n) args.push_back(folder + "/" + frame_name(n));
    return testrun::start(TARVEX_BINARY, args);
}

// Makes the big-endian sequence in `folder` and returns each frame's bytes.
std::vector<bytes> make_sequence(const std::string& folder) {
    testrun::run_options o;
    o.args = {"-W", "512", "-H", "256", "-n", std::to_string(kFrames), "-e", "big", folder + "/shot.%04d.dpx"};
    EXPECT_EQ(testrun::run(TARVEX_MKFRAMES, o).status, 0);
    std::vector<bytes> frames;
    for (int n = 1; n <= kFrames; ++n) frames.push_back(testdata::read_file(folder + "/" + frame_name(n)));
    return frames;
}

// What state each frame is in, and whether any is neither of its two versions.
struct census {
    int original = 0;
    int converted = 0;
    std::vector<std::string> broken;
};

census take_census(const std::string& folder, const std::vector<bytes>& originals,
                   const std::vector<bytes>& converted) {
    census c;
    for (int n = 1; n <= kFrames; ++n) {
        bytes now = testdata::read_file(folder + "/" + frame_name(n));
        if (now == originals[size_t(n - 1)]) {
            ++c.original;
        } else if (now == converted[size_t(n - 1)]) {
            ++c.converted;
        } else {
            c.broken.push_back(frame_name(n));
        }
    }
    return c;
}

unsigned seed_for_run() {
    if (const char* seed = std::getenv("TARVEX_CRASH_SEED")) return unsigned(std::strtoul(seed, nullptr, 10));
    return std::random_device{}();
}

TEST(Crash, KilledAtRandomMomentsEveryFrameIsWholeAndASecondRunFinishes) {
    scratch_dir dir("tarvex-crash");
    const std::string work = dir / "work";
    const std::string reference = dir / "reference";
    ::mkdir(work.c_str(), 0755);
    ::mkdir(reference.c_str(), 0755);

    // An uninterrupted run over a copy gives each frame's converted bytes and
    // the time a whole run takes here.
    std::vector<bytes> originals = make_sequence(reference);
    ASSERT_EQ(originals.size(), size_t(kFrames));
    auto started = clock_type::now();
    pid_t pid = start_tarvex(reference);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    const double whole_run = std::chrono::duration<double>(clock_type::now() - started).count();
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    // A run over the converted sequence changes nothing: its time is what a
    // run spends before it reaches the frames still to convert.
    started = clock_type::now();
    pid = start_tarvex(reference);
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    const double idle_run = std::chrono::duration<double>(clock_type::now() - started).count();
    std::vector<bytes> converted;
    for (int n = 1; n <= kFrames; ++n) {
        converted.push_back(testdata::read_file(reference + "/" + frame_name(n)));
        ASSERT_NE(converted.back(), originals[size_t(n - 1)]) << "the reference run converted nothing";
    }

    const unsigned seed = seed_for_run();
    std::printf("crash test: seed %u (TARVEX_CRASH_SEED=%u repeats it), whole run %.3f s, idle run %.3f s\n",
                seed, seed, whole_run, idle_run);
    std::mt19937 random(seed);
    int kills = 0, killed_mid_run = 0, campaigns = 0;
    // The reference run is one sample on a machine that may be busy: kills
    // that come after the run has ended shorten the span the delays are drawn
    // from, kills that land widen it again up to the measured one.
    double scale = 1.0;
    while (killed_mid_run < kKills && campaigns < 3 * kKills) {
        ++campaigns;
        for (int n = 1; n <= kFrames; ++n)
            ASSERT_TRUE(testdata::write_file(work + "/" + frame_name(n), originals[size_t(n - 1)]));
        // Kill runs over the sequence until it is converted, or a few times
        // over; a run only converts what is left, so it takes that share of
        // the converting time.
        census now = take_census(work, originals, converted);
        for (int round = 0; now.original > 0 && round < kKillsPerSequence; ++round) {
            double span = 1.2 * scale * (idle_run + (whole_run - idle_run) * now.original / kFrames);
            double delay = std::uniform_real_distribution<double>(0.0, span)(random);
            pid = start_tarvex(work);
            ASSERT_GT(pid, 0);
            std::this_thread::sleep_for(std::chrono::duration<double>(delay));
            ::kill(pid, SIGKILL);
            ASSERT_EQ(::waitpid(pid, &status, 0), pid);
            ++kills;
            if (WIFSIGNALED(status)) {
                ++killed_mid_run;
                scale = std::min(1.0, scale * 1.1);
            } else {
                scale *= 0.6;
            }
            now = take_census(work, originals, converted);
            ASSERT_TRUE(now.broken.empty()) << "kill " << kills << " after " << delay << " s left "
                                            << now.broken.size() << " frames broken, first " << now.broken.front();
            std::printf("  kill %2d after %.4f s: %2d converted, %2d original%s\n", kills, delay, now.converted,
                        now.original, WIFSIGNALED(status) ? "" : " (the run had ended)");
        }
        // Whatever the last kill left (a stale ~tmp.dpx included), a run
        // over the sequence finishes it.
        testrun::run_options again;
        for (int n = 1; n <= kFrames; ++n) again.args.push_back(work + "/" + frame_name(n));
        testrun::outcome r = testrun::run_tarvex(again);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.finished, kFrames);
        EXPECT_EQ(r.failed, 0) << r.out;
        EXPECT_EQ(take_census(work, originals, converted).converted, kFrames);
        EXPECT_FALSE(testrun::exists(work + "/~tmp.dpx"));
    }
    std::printf("crash test: %d sequences, %d kills, %d of them while tarvex was running\n", campaigns, kills,
                killed_mid_run);
    EXPECT_GE(killed_mid_run, kKills);
}

}  // namespace
