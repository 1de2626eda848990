// Fails, one at a time, every open, read, seek, write, flush, close and
// rename tarvex makes on the files of a run, and checks what each failure
// leaves behind: the error line, the failure count, the input file and the
// temporary or output file. Reads and writes are also cut short and
// interrupted, which a correct run must absorb.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fault/fault_library.h"
#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using faulttest::file_call;
using testrun::run_options;
using run_result = testrun::outcome;
using testrun::scratch_dir;
using testdata::bytes;

const char kLoadFailed[] = "Could not load image or file was not a DPX file!";
const char kOpenFailed[] = "Could not swap DPX to local byte ordering because it could not open the file!";
const char kReadFailed[] = "Could not swap DPX to local byte ordering because it could not read the image file!";
const char kImageWriteFailed[] =
    "Could not swap DPX to local byte ordering because it could not write the image file!";
const char kHeaderWriteFailed[] =
    "Could not swap DPX to local byte ordering because it could not write the header!";

// 640 x 420 words are a little over 1 MiB, so the image moves in more than
// one piece whatever buffer size the job uses up to that.
constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 420;
constexpr uint32_t kSource = 8192;
constexpr uint64_t kImageBytes = uint64_t(kWidth) * kHeight * 4;
// A target offset beyond the end of the source image, so every write tells by
// its offset which copy it belongs to.
constexpr uint32_t kTarget = 8192 + (2u << 20);

// What one frame of a run must come to after a failure in one call.
enum class outcome {
    converted,           // no failure: the converted frame is in place
    load_failed,         // could not load; nothing made
    open_failed,         // could not open the output; nothing left
    read_failed,         // could not read the image; output removed
    image_write_failed,  // could not write the image, counted once; output removed
    image_write_failed_twice,  // the settings pass's image write, counted twice; output removed
    header_write_failed,       // swap pass header; output removed
    header_write_failed_kept,  // settings pass header; ~tmp.dpx left where it is
    silent,                    // settings pass could open nothing: no message, nothing counted
    not_renamed                // the final rename failed: input as it was, converted ~tmp.dpx beside it
};

const char* name_of(outcome o) {
    switch (o) {
        case outcome::converted: return "converted";
        case outcome::load_failed: return "load failed";
        case outcome::open_failed: return "open failed";
        case outcome::read_failed: return "read failed";
        case outcome::image_write_failed: return "image write failed (1)";
        case outcome::image_write_failed_twice: return "image write failed (2)";
        case outcome::header_write_failed: return "header write failed, removed";
        case outcome::header_write_failed_kept: return "header write failed, kept";
        case outcome::silent: return "silent";
        case outcome::not_renamed: return "not renamed";
    }
    return "?";
}

// One frame of a scenario: its file name, bytes, and what converting it must give.
struct frame {
    std::string name;
    bytes input;
    bytes converted;
    std::string renamed;  // a Cineon frame's name after the run; empty for DPX
};

// A run of tarvex over some frames, with the passes it makes.
struct scenario {
    std::vector<frame> frames;
    std::vector<std::string> options;
    bool swap = false;      // the files are in the other byte order
    bool settings = false;  // the run's settings differ from the files'
    bool folder = false;    // -c out/
};

bytes big_frame(bool big_endian, testdata::dpx_layout* out_layout = nullptr) {
    testdata::dpx_layout layout;
    layout.big_endian = big_endian;
    layout.width = kWidth;
    layout.height = kHeight;
    layout.image_offset = kSource;
    layout.element_offset = kSource;
    if (out_layout) *out_layout = layout;
    return testdata::make_dpx(layout);
}

// A big-endian frame and its conversion with no settings changed.
frame swapped_frame(const std::string& name) {
    testdata::dpx_layout layout;
    bytes input = big_frame(true, &layout);
    return {name, input, testdata::converted(input, layout), ""};
}

// The folder `work` of a run: where each frame lies, where its result goes
// and which temporary name it passes through.
struct run_folder {
    std::string work;
    bool folder;
    std::string input(const frame& f) const { return work + "/" + f.name; }
    std::string output(const frame& f) const { return folder ? work + "/out/" + f.name : work + "/~tmp.dpx"; }
};

void prepare(const scenario& s, const run_folder& where) {
    ::mkdir(where.work.c_str(), 0755);
    if (s.folder) ::mkdir((where.work + "/out").c_str(), 0755);
    for (const auto& f : s.frames) ASSERT_TRUE(testdata::write_file(where.input(f), f.input));
}

run_options options_for(const scenario& s, const run_folder& where, const std::string& log, long fault_at,
                        const char* mode) {
    run_options o;
    o.args = s.options;
    if (s.folder) {
        o.args.push_back("-c");
        o.args.push_back(where.work + "/out");
    }
    for (const auto& f : s.frames) o.args.push_back(where.input(f));
    o.env = {faulttest::preload_entry(), "TARVEX_FAULT_DIR=" + where.work + "/", "TARVEX_FAULT_LOG=" + log,
             "TARVEX_FAULT_AT=" + std::to_string(fault_at), std::string("TARVEX_FAULT_MODE=") + mode};
    return o;
}

// What a failure in `call`, made while frame `f` was being converted, must
// lead to.
outcome expected_for(const scenario& s, const run_folder& where, const frame& f, const file_call& call) {
    const bool input = call.path == where.input(f);
    if (call.op == "rename") return outcome::not_renamed;
    if (input) {
        if (call.op == "open") return outcome::load_failed;
        if (call.op == "close") return outcome::converted;  // nothing depends on closing what was read
        // The magic and the header are read from the top of the file, the
        // image from its data offset.
        return call.a < kSource ? outcome::load_failed : outcome::read_failed;
    }
    if (call.op == "open") {
        if (s.swap) return outcome::open_failed;
        // The settings pass tries the existing file first and creates it second.
        return (call.a & O_CREAT) ? outcome::silent : outcome::converted;
    }
    if (call.op == "write" || call.op == "pwrite") {
        if (call.a < 2048) return s.settings ? outcome::header_write_failed_kept : outcome::header_write_failed;
        bool settings_copy = s.settings && (!s.swap || call.a >= kTarget);
        return settings_copy ? outcome::image_write_failed_twice : outcome::image_write_failed;
    }
    if (call.op == "fdatasync" || call.op == "fsync" || call.op == "close") return outcome::image_write_failed;
    return outcome::converted;
}

// A short or interrupted transfer must be completed by the caller, except
// the four-byte magic read, where fewer bytes mean the file cannot be loaded.
outcome expected_for_partial(const run_folder& where, const frame& f, const file_call& call, const char* mode) {
    bool magic = call.path == where.input(f) && call.a == 0 && call.b == 4;
    return magic && std::string(mode) == "short" ? outcome::load_failed : outcome::converted;
}

std::vector<std::string> messages_of(outcome o) {
    switch (o) {
        case outcome::load_failed: return {kLoadFailed};
        case outcome::open_failed: return {kOpenFailed};
        case outcome::read_failed: return {kReadFailed};
        case outcome::image_write_failed:
        case outcome::image_write_failed_twice: return {kImageWriteFailed};
        case outcome::header_write_failed:
        case outcome::header_write_failed_kept: return {kHeaderWriteFailed};
        default: return {};
    }
}

int failures_of(outcome o) {
    switch (o) {
        case outcome::converted:
        case outcome::silent:
        case outcome::not_renamed: return 0;
        case outcome::image_write_failed_twice: return 2;
        default: return 1;
    }
}

// True when a frame after `index` writes ~tmp.dpx again, which the job
// reuses for every frame: what an earlier frame left there is then gone.
bool temp_reused_after(const scenario& s, size_t index) {
    return !s.folder && index + 1 < s.frames.size() && s.frames.back().renamed.empty();
}

// Checks the files of frame `index` after a run in which it met outcome `o`.
void check_files(const scenario& s, const run_folder& where, size_t index, outcome o) {
    const frame& f = s.frames[index];
    SCOPED_TRACE(f.name + ": " + name_of(o));
    const std::string input = where.input(f);
    const std::string output = where.output(f);
    const bool kept_temp = o == outcome::header_write_failed_kept && !s.folder;
    if (temp_reused_after(s, index)) {
        if (o == outcome::converted) {
            EXPECT_EQ(testdata::read_file(input), f.converted);
        } else {
            EXPECT_EQ(testdata::read_file(input), f.input) << "the input changed";
        }
        return;
    }
    if (o == outcome::converted) {
        if (!f.renamed.empty()) {
            EXPECT_FALSE(testrun::exists(input));
            EXPECT_EQ(testdata::read_file(where.work + "/" + f.renamed), f.input);
            return;
        }
        if (s.folder) {
            EXPECT_EQ(testdata::read_file(input), f.input);
            EXPECT_EQ(testdata::read_file(output), f.converted);
        } else {
            EXPECT_EQ(testdata::read_file(input), f.converted);
            EXPECT_FALSE(testrun::exists(output));
        }
        return;
    }
    EXPECT_EQ(testdata::read_file(input), f.input) << "the input changed";
    if (!f.renamed.empty()) {
        EXPECT_FALSE(testrun::exists(where.work + "/" + f.renamed));
    }
    if (o == outcome::not_renamed) {
        if (f.renamed.empty()) {
            EXPECT_EQ(testdata::read_file(output), f.converted);
        }
        return;
    }
    if (kept_temp) {
        EXPECT_TRUE(testrun::exists(output)) << "~tmp.dpx should have been left in place";
        return;
    }
    EXPECT_FALSE(testrun::exists(output)) << "the output was not removed";
}

// The names the work folder must hold after a run in which the frames met
// `outcomes`.
std::vector<std::string> expected_names(const scenario& s, const std::vector<outcome>& outcomes) {
    std::set<std::string> names;
    if (s.folder) names.insert("out");
    for (size_t i = 0; i < s.frames.size(); ++i) {
        const frame& f = s.frames[i];
        outcome o = outcomes[i];
        names.insert(o == outcome::converted && !f.renamed.empty() ? f.renamed : f.name);
        bool temp_stays = o == outcome::header_write_failed_kept || (o == outcome::not_renamed && f.renamed.empty());
        if (temp_stays && !s.folder && !temp_reused_after(s, i)) names.insert("~tmp.dpx");
    }
    return std::vector<std::string>(names.begin(), names.end());
}

// Runs `s` with call `fault_at` failing in `mode` and checks everything
// against the outcome of each frame.
void run_and_check(const scenario& s, scratch_dir& dir, long fault_at, const char* mode,
                   const std::vector<outcome>& outcomes, const file_call* expected_call) {
    dir.empty();
    run_folder where{dir / "work", s.folder};
    prepare(s, where);
    const std::string log = dir / "calls.log";
    run_result r = testrun::run_tarvex(options_for(s, where, log, fault_at, mode));

    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.find("Sanitizer"), std::string::npos) << r.err;

    std::vector<std::string> messages;
    int failures = 0;
    for (size_t i = 0; i < s.frames.size(); ++i) {
        outcome o = outcomes[i];
        for (const auto& m : messages_of(o)) messages.push_back(m);
        failures += failures_of(o);
        check_files(s, where, i, o);
    }
    EXPECT_EQ(r.errors, messages);
    EXPECT_EQ(dir.names("work"), expected_names(s, outcomes));
    EXPECT_EQ(r.finished, int(s.frames.size()));
    EXPECT_EQ(r.total, int(s.frames.size()));
    EXPECT_EQ(r.failed, failures);

    if (expected_call) {
        // The call that failed is the one the clean run made at that number.
        faulttest::call_log calls = faulttest::read_call_log(log);
        auto hit = std::find_if(calls.calls.begin(), calls.calls.end(),
                                [&](const file_call& c) { return c.number == fault_at; });
        ASSERT_NE(hit, calls.calls.end());
        EXPECT_TRUE(hit->failed);
        EXPECT_EQ(hit->op, expected_call->op);
        EXPECT_EQ(hit->path, expected_call->path);
    }
}

// Runs `s` once cleanly, then once per logged call with that call failing,
// and once more with every read and write cut short and interrupted; prints
// how many runs met which outcome, so the log shows every fault class tried.
void fail_every_call(const scenario& s) {
    std::map<std::string, int> tried;
    scratch_dir dir("tarvex-fault");
    ASSERT_FALSE(dir.path().empty());
    run_folder where{dir / "work", s.folder};

    std::vector<outcome> clean(s.frames.size(), outcome::converted);
    {
        SCOPED_TRACE("clean run");
        run_and_check(s, dir, 0, "error", clean, nullptr);
    }
    faulttest::call_log trace = faulttest::read_call_log(dir / "calls.log");
    ASSERT_FALSE(trace.calls.empty());

    size_t current = 0;
    for (const file_call& call : trace.calls) {
        if (call.number == 0) continue;
        for (size_t i = 0; i < s.frames.size(); ++i)
            if (call.path == where.input(s.frames[i])) current = i;
        const frame& f = s.frames[current];
        std::vector<const char*> modes = {"error"};
        if (faulttest::is_transfer(call)) {
            modes.push_back("short");
            modes.push_back("eintr");
        }
        for (const char* mode : modes) {
            std::vector<outcome> outcomes = clean;
            outcomes[current] = std::string(mode) == "error" ? expected_for(s, where, f, call)
                                                             : expected_for_partial(where, f, call, mode);
            SCOPED_TRACE("call " + std::to_string(call.number) + " " + call.op + " " + call.path + " at " +
                         std::to_string(call.a) + " (" + mode + "), expecting " + name_of(outcomes[current]));
            run_and_check(s, dir, call.number, mode, outcomes, &call);
            ++tried[call.op + "/" + mode + " -> " + name_of(outcomes[current])];
        }
    }
    for (const auto& [what, count] : tried) std::printf("  %3d x %s\n", count, what.c_str());
}

TEST(FaultInjection, SwapPassOverTwoFramesFailsEachCallInTurn) {
    scenario s;
    s.frames = {swapped_frame("a.dpx"), swapped_frame("b.dpx")};
    s.swap = true;
    fail_every_call(s);
}

TEST(FaultInjection, SettingsPassFailsEachCallInTurn) {
    testdata::dpx_layout layout;
    bytes input = big_frame(false, &layout);
    // The settings pass writes a new file: header with transfer 2, zeros up
    // to the image, the image as it was.
    bytes expected(size_t(kSource + kImageBytes), 0);
    std::copy(input.begin(), input.begin() + 2048, expected.begin());
    std::copy(input.begin() + kSource, input.begin() + long(kSource + kImageBytes), expected.begin() + kSource);
    expected[801] = 2;
    scenario s;
    s.frames = {{"host.dpx", input, expected, ""}};
    s.options = {"-t", "2"};
    s.settings = true;
    fail_every_call(s);
}

TEST(FaultInjection, BothPassesMovingTheImageFailEachCallInTurn) {
    testdata::dpx_layout layout;
    bytes input = big_frame(true, &layout);
    // The swap pass's copy stays at the old offset; the settings pass adds
    // the image at the new one and points both offset fields at it.
    bytes expected = testdata::converted(input, layout);
    expected.resize(size_t(kTarget + kImageBytes), 0);
    std::copy(expected.begin() + kSource, expected.begin() + long(kSource + kImageBytes),
              expected.begin() + kTarget);
    testdata::put(expected, 4, kTarget, 4, false);
    testdata::put(expected, 808, kTarget, 4, false);
    scenario s;
    s.frames = {{"moved.dpx", input, expected, ""}};
    s.options = {"-o", std::to_string(kTarget)};
    s.swap = true;
    s.settings = true;
    fail_every_call(s);
}

TEST(FaultInjection, OutputFolderFailsEachCallInTurn) {
    scenario s;
    s.frames = {swapped_frame("c.dpx")};
    s.swap = true;
    s.folder = true;
    fail_every_call(s);
}

TEST(FaultInjection, MisnamedCineonFailsEachCallInTurn) {
    bytes input = testdata::make_cineon(true, 16, 8);
    scenario s;
    s.frames = {{"scan.dpx", input, input, "scan.cin"}};
    fail_every_call(s);
}

// The converted frame reaches stable storage, and is closed, before the
// rename that puts it in place of the input.
TEST(FaultInjection, ConvertedFrameIsFlushedBeforeItReplacesTheInput) {
    scenario s;
    s.frames = {swapped_frame("a.dpx"), swapped_frame("b.dpx"), swapped_frame("c.dpx")};
    scratch_dir dir("tarvex-fault");
    run_folder where{dir / "work", false};
    prepare(s, where);
    run_result r = testrun::run_tarvex(options_for(s, where, dir / "calls.log", 0, "error"));
    ASSERT_EQ(r.failed, 0) << r.out;
    faulttest::call_log trace = faulttest::read_call_log(dir / "calls.log");

    const std::string temp = where.work + "/~tmp.dpx";
    int renames = 0;
    bool written = false, flushed = false, closed = false;
    for (const file_call& call : trace.calls) {
        if (call.path != temp) continue;
        if (call.op == "open") written = flushed = closed = false;
        if (call.op == "write" || call.op == "pwrite") {
            EXPECT_FALSE(flushed) << "written after the flush, call " << call.number;
            written = true;
        }
        if (call.op == "fdatasync" || call.op == "fsync") flushed = written;
        if (call.op == "close") closed = true;
        if (call.op == "rename") {
            EXPECT_TRUE(flushed) << "renamed without a flush, call " << call.number;
            EXPECT_TRUE(closed) << "renamed while open, call " << call.number;
            ++renames;
        }
    }
    EXPECT_EQ(renames, 3);
}

}  // namespace
