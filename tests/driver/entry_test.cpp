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

TEST_F(Entry, NoOperandsIsRefusedBeforeAnyJob) {
    EXPECT_EQ(std::string(kPlainBanner) + kNoFiles, run({}));
    EXPECT_EQ(std::string(kPlainBanner) + kNoFiles, run({"-t", "3", "-f"}));
}

TEST_F(Entry, ByteOffsetBelow2048IsRefused) {
    for (const char* offset : {"2047", "0", "abc", "-2"}) {
        EXPECT_EQ(std::string(kPlainBanner) + kLowOffset, run({"-o", offset, "a.dpx"})) << offset;
        EXPECT_TRUE(untouched()) << offset;
    }
}

TEST_F(Entry, ByteOffset2048AndMinusOneAreAccepted) {
    EXPECT_EQ(testrun::golden("convert_big_endian.txt"), run({"-o", "2048", "a.dpx"}));
    ASSERT_TRUE(testdata::write_file(dir / "a.dpx", frame));
    EXPECT_EQ(testrun::golden("convert_big_endian.txt"), run({"-o", "-1", "a.dpx"}));
    EXPECT_EQ(testdata::converted(frame, dpx_layout{}), testdata::read_file(dir / "a.dpx"));
}

TEST_F(Entry, VersionOptionEndsTheRunBeforeAnyFile) {
    EXPECT_EQ(std::string(kPlainBanner) + "v3.1 beta 1\n", run({"-z", "anything", "a.dpx"}));
    EXPECT_TRUE(untouched());
    // Without its value -z is an unknown option, and no operands remain.
    EXPECT_EQ(std::string(kPlainBanner) + "Unrecognized option: z\n" + kNoFiles, run({"-z"}));
}

TEST_F(Entry, FlagOptionIsAcceptedSilently) {
    EXPECT_EQ(testrun::golden("convert_big_endian.txt"), run({"-f", "a.dpx"}));
    EXPECT_FALSE(untouched());
}

TEST_F(Entry, UnknownOptionIsReportedInOrderAndTheRunGoesOn) {
    EXPECT_EQ(testrun::golden("unrecognized_option.txt"), run({"-x", "a.dpx"}));
    EXPECT_EQ(testdata::converted(frame, dpx_layout{}), testdata::read_file(dir / "a.dpx"));
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

TEST_F(Entry, MissingOrEmptyListFileRunsNoJob) {
    EXPECT_EQ(std::string(kPlainBanner) + kNoJobs, run({"-l", "missing.txt", "a.dpx"}));
    ASSERT_TRUE(testdata::write_file(dir / "empty.txt", bytes()));
    EXPECT_EQ(std::string(kPlainBanner) + kNoJobs, run({"-l", "empty.txt"}));
    EXPECT_TRUE(untouched());
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
