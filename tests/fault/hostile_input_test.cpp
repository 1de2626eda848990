// Runs tarvex on files whose headers lie: sizes that overflow, offsets past
// the end, truncated images, refused layouts. Each must end in its documented
// failure with the input untouched, nothing left behind, and no allocation
// larger than the file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fault/fault_library.h"
#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testrun::run_options;
using run_result = testrun::outcome;
using testrun::scratch_dir;
using testdata::bytes;
using testdata::put;

const char kLoadFailed[] = "Could not load image or file was not a DPX file!";
const char kNot10Bit[] = "Could not swap DPX to local byte ordering because it was not a 10bit image file!";
const char kReadFailed[] = "Could not swap DPX to local byte ordering because it could not read the image file!";
const char kSettingsTitle[] = "Cineon/DPX Settings";

// Allocations a run makes whatever the file (paths, text conversion, the
// console) stay below this; anything sized from a header value must stay
// below the file's own size.
constexpr long long kAllocationFloor = 64 * 1024;

// A hostile file and the one error line it must produce.
struct hostile_case {
    std::string name;
    bytes data;
    const char* message;
    bool report;  // the settings report is printed before the failure
};

bytes base_frame(bool big_endian = true) {
    testdata::dpx_layout layout;
    layout.big_endian = big_endian;
    layout.width = 8;
    layout.height = 4;
    return testdata::make_dpx(layout);
}

// The big-endian base frame with `n` bytes at `at` replaced by `value`.
bytes patched(size_t at, uint64_t value, int n) {
    bytes b = base_frame();
    put(b, at, value, n, true);
    return b;
}

bytes truncated(size_t size) {
    bytes b = base_frame();
    b.resize(size);
    return b;
}

// Width and height whose product is 2^62 + 1, so that width x height x 4
// wraps in 64 bits to 4.
bytes wrapping_size() {
    bytes b = base_frame();
    put(b, 772, 1380655685, 4, true);
    put(b, 776, 3340214413u, 4, true);
    return b;
}

bytes both_offsets(uint32_t offset) {
    bytes b = base_frame();
    put(b, 4, offset, 4, true);
    put(b, 808, offset, 4, true);
    return b;
}

std::vector<hostile_case> hostile_cases() {
    std::vector<hostile_case> cases = {
        {"empty", {}, kLoadFailed, false},
        {"three-bytes", truncated(3), kLoadFailed, false},
        {"half-a-header", truncated(1000), kLoadFailed, false},
        {"unknown-magic", patched(0, 0x53445059, 4), kLoadFailed, false},
        {"encrypted", patched(660, 0, 4), kLoadFailed, false},
        {"no-elements", patched(770, 0, 2), kLoadFailed, false},
        {"nine-elements", patched(770, 9, 2), kLoadFailed, false},
        {"orientation-8", patched(768, 8, 2), kLoadFailed, false},
        {"packing-0-at-10-bit", patched(804, 0, 2), kLoadFailed, false},
        {"packing-2", patched(804, 2, 2), kLoadFailed, false},
        {"run-length-encoded", patched(806, 1, 2), kLoadFailed, false},
        {"descriptor-52", patched(800, 52, 1), kLoadFailed, false},
        {"bit-size-12", patched(803, 12, 1), kLoadFailed, false},
        {"bit-size-16", patched(803, 16, 1), kLoadFailed, false},
        {"bit-size-8", patched(803, 8, 1), kNot10Bit, true},
        {"header-only", truncated(2048), kReadFailed, true},
        {"image-cut-short", truncated(2048 + 8 * 4 * 4 - 1), kReadFailed, true},
        {"zero-height", patched(776, 0, 4), kReadFailed, true},
        {"zero-width", patched(772, 0, 4), kReadFailed, true},
        {"width-and-height-65536", [] {
             bytes b = patched(772, 65536, 4);
             put(b, 776, 65536, 4, true);
             return b;
         }(), kReadFailed, true},
        {"width-and-height-max", [] {
             bytes b = patched(772, 0xFFFFFFFF, 4);
             put(b, 776, 0xFFFFFFFF, 4, true);
             return b;
         }(), kReadFailed, true},
        {"size-wraps-to-4-bytes", wrapping_size(), kReadFailed, true},
        {"original-size-huge", [] {
             bytes b = patched(1424, 0x7FFFFFFF, 4);
             put(b, 1428, 0x7FFFFFFF, 4, true);
             return b;
         }(), kReadFailed, true},
        // A data offset outside the file, or inside the header, is refused
        // when the file is loaded; one inside the file whose image runs past
        // its end fails when the image is read.
        {"data-offset-below-1664", both_offsets(1000), kLoadFailed, false},
        {"data-offset-past-end", both_offsets(1u << 20), kLoadFailed, false},
        {"data-offset-max", both_offsets(0xFFFFFFFF), kLoadFailed, false},
        {"data-offset-at-end", both_offsets(2048 + 8 * 4 * 4), kReadFailed, true},
        {"data-offset-just-past-image", both_offsets(2049), kReadFailed, true},
    };
    return cases;
}

// Runs tarvex on `files` (paths in `dir`) with the fault library logging,
// and returns the run and its log.
run_result run_logged(const scratch_dir& dir, const std::vector<std::string>& files, faulttest::call_log* log) {
    run_options o;
    for (const auto& f : files) o.args.push_back(dir / ("work/" + f));
    o.env = {faulttest::preload_entry(), "TARVEX_FAULT_DIR=" + dir / "work/", "TARVEX_FAULT_LOG=" + dir / "calls.log"};
    run_result r = testrun::run_tarvex(o);
    *log = faulttest::read_call_log(dir / "calls.log");
    return r;
}

// Without a sanitizer, whose allocator the fault library cannot see, the
// log must say how much the run allocated at most.
void expect_bounded_allocation(const faulttest::call_log& log, size_t file_size) {
#ifndef TARVEX_SANITIZED
    ASSERT_GE(log.largest_allocation, 0) << "the fault library recorded no allocation";
#endif
    if (log.largest_allocation < 0) return;
    EXPECT_LE(log.largest_allocation, std::max<long long>(kAllocationFloor, (long long)file_size));
}

TEST(HostileInput, EachFailsWithItsMessageAndTheInputUntouched) {
    for (const hostile_case& c : hostile_cases()) {
        SCOPED_TRACE(c.name);
        scratch_dir dir("tarvex-hostile");
        ASSERT_TRUE(testrun::exists(dir.path()));
        ::mkdir((dir / "work").c_str(), 0755);
        ASSERT_TRUE(testdata::write_file(dir / "work/frame.dpx", c.data));

        faulttest::call_log log;
        run_result r = run_logged(dir, {"frame.dpx"}, &log);

        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err.find("Sanitizer"), std::string::npos) << r.err;
        EXPECT_EQ(r.errors, std::vector<std::string>{c.message});
        EXPECT_EQ(r.failed, 1);
        EXPECT_EQ(r.out.find(kSettingsTitle) != std::string::npos, c.report);
        EXPECT_EQ(testdata::read_file(dir / "work/frame.dpx"), c.data);
        EXPECT_EQ(dir.names("work"), std::vector<std::string>{"frame.dpx"});
        expect_bounded_allocation(log, c.data.size());
    }
}

// One run over a good frame and then every hostile file: the good frame is
// converted, every hostile one fails in turn, and the run reaches its summary.
TEST(HostileInput, OneRunOverAllOfThemKeepsGoing) {
    scratch_dir dir("tarvex-hostile");
    ::mkdir((dir / "work").c_str(), 0755);
    testdata::dpx_layout layout;
    layout.width = 8;
    layout.height = 4;
    bytes good = testdata::make_dpx(layout);
    ASSERT_TRUE(testdata::write_file(dir / "work/0-good.dpx", good));
    std::vector<std::string> files = {"0-good.dpx"};
    std::vector<std::string> messages;
    size_t largest_file = good.size();
    for (const hostile_case& c : hostile_cases()) {
        files.push_back(c.name + ".dpx");
        ASSERT_TRUE(testdata::write_file(dir / ("work/" + files.back()), c.data));
        messages.push_back(c.message);
        largest_file = std::max(largest_file, c.data.size());
    }

    faulttest::call_log log;
    run_result r = run_logged(dir, files, &log);

    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.errors, messages);
    EXPECT_EQ(r.finished, int(files.size()));
    EXPECT_EQ(r.failed, int(messages.size()));
    EXPECT_EQ(testdata::read_file(dir / "work/0-good.dpx"), testdata::converted(good, layout));
    std::vector<std::string> left = dir.names("work");
    EXPECT_EQ(left.size(), files.size());
    EXPECT_EQ(std::count(left.begin(), left.end(), "~tmp.dpx"), 0);
    expect_bounded_allocation(log, largest_file);
}

// Cineon files are only ever renamed; hostile sizes in one change nothing
// of its contents, and a refused channel layout is a load failure.
TEST(HostileInput, CineonFilesAreRenamedOrRefusedNeverRead) {
    struct cineon_case {
        std::string name;
        size_t at;
        uint64_t value;
        int n;
        bool refused;
    };
    const std::vector<cineon_case> cases = {
        {"huge-width", 196 + 4, 0xFFFFFFFF, 4, false},
        {"huge-height", 196 + 8, 0xFFFFFFFF, 4, false},
        {"offset-past-end", 4, 0xFFFFFFF0, 4, false},
        {"no-channels", 193, 0, 1, true},
        {"negative-channels", 193, 0xC8, 1, true},
        {"eight-bit-first-channel", 196 + 2, 8, 1, true},
        {"interleaved", 680, 1, 1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        scratch_dir dir("tarvex-hostile");
        ::mkdir((dir / "work").c_str(), 0755);
        bytes data = testdata::make_cineon(true, 4, 2);
        put(data, c.at, c.value, c.n, true);
        ASSERT_TRUE(testdata::write_file(dir / "work/scan.dpx", data));

        faulttest::call_log log;
        run_result r = run_logged(dir, {"scan.dpx"}, &log);

        EXPECT_EQ(r.status, 0) << r.err;
        if (c.refused) {
            EXPECT_EQ(r.errors, std::vector<std::string>{kLoadFailed});
            EXPECT_EQ(testdata::read_file(dir / "work/scan.dpx"), data);
            EXPECT_EQ(dir.names("work"), std::vector<std::string>{"scan.dpx"});
        } else {
            EXPECT_TRUE(r.errors.empty());
            EXPECT_NE(r.out.find("Renaming..." + dir / "work/scan.cin"), std::string::npos) << r.out;
            EXPECT_EQ(testdata::read_file(dir / "work/scan.cin"), data);
            EXPECT_EQ(dir.names("work"), std::vector<std::string>{"scan.cin"});
        }
        expect_bounded_allocation(log, data.size());
    }
}

}  // namespace
