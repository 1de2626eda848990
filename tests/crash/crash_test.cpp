// Kills tarvex with SIGKILL at random moments while it converts a sequence of
// frames in place or into a -c folder: after every kill each frame (and each
// file under a frame's name in the folder) must be its original bytes or the
// model's conversion of them, and a last run must finish the sequence.
// TARVEX_CRASH_SEED repeats a run's kill times; TARVEX_CRASH_KILLS sets how
// many kills must land mid-run (40; the file-system matrix runs fewer).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>

#include "support/model.h"
#include "support/tarvex_process.h"

namespace {

constexpr int kFrames = 60, kKillsPerSequence = 8;
const int kKills = std::getenv("TARVEX_CRASH_KILLS") ? std::atoi(std::getenv("TARVEX_CRASH_KILLS")) : 40;

void kill_at_random_moments(bool into_folder) {
    testrun::scratch_dir dir("tarvex-crash");
    ASSERT_EQ(0, testrun::run(TARVEX_MKFRAMES, {{"-W", "512", "-H", "256", "-n", std::to_string(kFrames), "-e", "big",
                                                  dir / "shot.%04d.dpx"}}).status);
    testrun::run_options frames;
    std::vector<testdata::bytes> originals, converted;
    model::run settings;
    const std::string out = dir / "out";
    if (into_folder) ::mkdir(out.c_str(), 0755), frames.args = {"-c", out};
    const size_t first = frames.args.size();
    for (const std::string& name : dir.names()) {
        if (name == "out") continue;
        frames.args.push_back(dir / name);
        originals.push_back(testdata::read_file(frames.args.back()));
        converted.push_back(model::convert(originals.back(), settings).output);
    }
    ASSERT_EQ(size_t(kFrames), converted.size());
    // A whole run, then one over the converted frames: the time a run spends
    // converting, and before it reaches the frames left to convert.
    double seconds[2];
    for (double& s : seconds) {
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, testrun::run_tarvex(frames).failed);
        s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    // Where frame n is converted to, and what else may stand there.
    auto target = [&](size_t n) {
        const std::string& in = frames.args[first + n];
        return into_folder ? out + in.substr(in.rfind('/')) : in;
    };
    for (size_t n = 0; n < kFrames; ++n) ASSERT_EQ(converted[n], testdata::read_file(target(n)));

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
        for (size_t n = 0; n < kFrames; ++n) ASSERT_TRUE(testdata::write_file(frames.args[first + n], originals[n]));
        for (size_t n = 0; n < kFrames && into_folder; ++n) ::unlink(target(n).c_str());
        for (int round = 0, left = kFrames; left > 0 && round < kKillsPerSequence; ++round, ++kills) {
            // A run converts only what is left, so it takes that share of the converting time.
            const double span = 1.2 * scale * (seconds[1] + (seconds[0] - seconds[1]) * left / kFrames);
            frames.kill_after = std::uniform_real_distribution<double>(0.0, span)(random);
            const bool mid_run = testrun::run_tarvex(frames).status == -1;
            landed += mid_run;
            scale = mid_run ? std::min(1.0, scale * 1.1) : scale * 0.6;
            left = 0;
            for (size_t n = 0; n < kFrames; ++n) {
                const testdata::bytes now = testdata::read_file(target(n));
                left += into_folder ? now.empty() : now == originals[n];
                ASSERT_TRUE(now == (into_folder ? testdata::bytes() : originals[n]) || now == converted[n])
                    << "a kill after " << frames.kill_after << " s broke " << target(n);
            }
        }
        // Whatever the last kill left, a run finishes the sequence; no name
        // a later *.dpx could take is left behind, and no private file: where
        // the file system has no O_TMPFILE, this run removes what the killed ones left.
        frames.kill_after = -1;
        testrun::outcome r = testrun::run_tarvex(frames);
        EXPECT_EQ((std::vector<int>{kFrames, 0}), (std::vector<int>{r.finished, r.failed}));
        for (size_t n = 0; n < kFrames; ++n) EXPECT_EQ(converted[n], testdata::read_file(target(n)));
        for (const std::string& name : dir.names(into_folder ? "out" : ""))
            EXPECT_TRUE(name == "out" || name.rfind("shot.", 0) == 0 ||
                        (name[0] == '.' && name.substr(name.size() - 4) != ".dpx" && name.rfind(".tarvex-", 0))) << name;
    }
    std::printf("crash test: %d sequences, %d kills, %d of them while tarvex was running\n", sequences, kills, landed);
    EXPECT_GE(landed, kKills);
}

TEST(Crash, KilledAtRandomMomentsEveryFrameIsWholeAndASecondRunFinishes) { kill_at_random_moments(false); }
TEST(Crash, KilledAtRandomMomentsIntoAFolderNoFileIsPartial) { kill_at_random_moments(true); }

}  // namespace
