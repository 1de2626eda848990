// The entry as a user meets it: options, operands, list files, the banner,
// the refusals before any job and the closing summary.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::bytes;
using testdata::dpx_layout;

// The banner off a terminal: no filling blanks before ">".
const char kPlainBanner[] = "\033[1;44m<tarvex v3.1 beta 1 (c) 2026 Quillmoor Film Tools >\033[0m\n";
const char kNoFiles[] = "\033[1;31mError: No files entered!\nSee man pages for more information.\033[0m\n";
const char kLowOffset[] =
    "\033[1;31mError: Byte offset was set below the minimum requestable range of 2048 bytes.\033[0m\n";
const char kNoJobs[] = "\033[1;31mError: Total Jobs = 0!\033[0m\n\nFinished 0 of 0, none failed to convert.\n";

class Entry : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(dir.path().empty());
        frame = testdata::make_dpx(dpx_layout{});
        ASSERT_TRUE(testdata::write_file(dir / "a.dpx", frame));
    }
    std::string run(std::vector<std::string> args) {
        testrun::outcome r = testrun::run_piped(dir.path(), std::move(args));
        EXPECT_EQ(0, r.status);
        return r.out;
    }
    bool untouched() { return testdata::read_file(dir / "a.dpx") == frame; }

    testrun::scratch_dir dir;
    bytes frame;  // a.dpx, big-endian, as written
};

TEST_F(Entry, RefusalsAndEarlyEndsTouchNoFile) {
    const std::string banner = kPlainBanner;
    ASSERT_TRUE(testdata::write_file(dir / "empty.txt", bytes()));
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, banner + kNoFiles},
        {{"-t", "3", "-f"}, banner + kNoFiles},
        {{"-o", "2047", "a.dpx"}, banner + kLowOffset},
        {{"-o", "0", "a.dpx"}, banner + kLowOffset},
        {{"-o", "abc", "a.dpx"}, banner + kLowOffset},
        {{"-o", "-2", "a.dpx"}, banner + kLowOffset},
        // -z ends the run before any file; without its value it is an
        // unknown option, and no operands remain.
        {{"-z", "anything", "a.dpx"}, banner + "v3.1 beta 1\n"},
        {{"-z"}, banner + "Unrecognized option: z\n" + kNoFiles},
        {{"-l", "missing.txt", "a.dpx"}, banner + kNoJobs},
        {{"-l", "empty.txt"}, banner + kNoJobs},
    };
    for (const auto& [args, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(args));
        EXPECT_EQ(expected, run(args));
        EXPECT_TRUE(untouched());
    }
}

TEST_F(Entry, AcceptedOptionsConvertTheFile) {
    // 2048 and -1 are valid offsets, -f is accepted silently, and an unknown
    // option is reported in order while the run goes on.
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"-o", "2048", "a.dpx"}, "convert_big_endian.txt"},
        {{"-o", "-1", "a.dpx"}, "convert_big_endian.txt"},
        {{"-f", "a.dpx"}, "convert_big_endian.txt"},
        {{"-x", "a.dpx"}, "unrecognized_option.txt"},
    };
    for (const auto& [args, golden] : cases) {
        SCOPED_TRACE(testing::PrintToString(args));
        ASSERT_TRUE(testdata::write_file(dir / "a.dpx", frame));
        EXPECT_EQ(testrun::golden(golden), run(args));
        EXPECT_EQ(testdata::converted(frame, dpx_layout{}), testdata::read_file(dir / "a.dpx"));
    }
}

TEST_F(Entry, OptionsAfterOperandsStillApply) {
    run({"a.dpx", "-t", "300"});
    bytes out = testdata::read_file(dir / "a.dpx");
    ASSERT_GT(out.size(), 801u);
    EXPECT_EQ(44, out[801]);
}

TEST_F(Entry, ListFileLinesAreTheJobsAndOperandsAreIgnored) {
    bytes second = testdata::make_dpx(dpx_layout{});
    ASSERT_TRUE(testdata::write_file(dir / "b.dpx", second));
    bytes ignored = testdata::make_dpx(dpx_layout{});
    ASSERT_TRUE(testdata::write_file(dir / "ignored.dpx", ignored));
    // The last line has no newline and is a job all the same; the empty one fails.
    const std::string list = "a.dpx\n\nb.dpx";
    ASSERT_TRUE(testdata::write_file(dir / "list.txt", bytes(list.begin(), list.end())));

    EXPECT_EQ(testrun::golden("list_with_empty_line.txt"), run({"-l", "list.txt", "ignored.dpx"}));
    EXPECT_EQ(testdata::converted(frame, dpx_layout{}), testdata::read_file(dir / "a.dpx"));
    EXPECT_EQ(testdata::converted(second, dpx_layout{}), testdata::read_file(dir / "b.dpx"));
    EXPECT_EQ(ignored, testdata::read_file(dir / "ignored.dpx"));
}

TEST_F(Entry, BannerFillsTheTerminalUpTo244Columns) {
    const std::string text = "<tarvex v3.1 beta 1 (c) 2026 Quillmoor Film Tools ";
    struct widths { int columns, visible; };
    // Narrower than the text: no filling at all; wider than 244: capped there.
    for (widths w : {widths{25, int(text.size()) + 1}, widths{80, 80}, widths{120, 120}, widths{300, 244}}) {
        testrun::outcome r = testrun::run_on_terminal(dir.path(), {}, w.columns);
        EXPECT_EQ(0, r.status);
        std::string banner = "\033[1;44m" + text;
        banner.append(size_t(w.visible) - text.size() - 1, ' ');
        banner += ">\033[0m\n";
        EXPECT_EQ(banner + kNoFiles, r.out) << w.columns << " columns";
    }
}

}  // namespace
