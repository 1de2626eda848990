// The byte-order repair job, driven through the built binary: the bytes it
// writes, the files it leaves alone, and what it prints.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::bytes;
using testdata::dpx_layout;

const char kOneDone[] = "\nFinished 1 of 1, none failed to convert.\n";
const char kOneFailed[] = "\nFinished 1 of 1, only 1 failed to convert.\n";

std::string error_line(const std::string& text) { return "\033[1;31mError: " + text + "\033[0m\n"; }

bool ends_with(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bytes slice(const bytes& b, size_t from, size_t n) { return bytes(b.begin() + long(from), b.begin() + long(from + n)); }

// Copies `part` into `b` at `at`, growing `b` with zeros when needed.
void overlay(bytes& b, size_t at, const bytes& part) {
    if (b.size() < at + part.size()) b.resize(at + part.size(), 0);
    std::copy(part.begin(), part.end(), b.begin() + long(at));
}

// `head` with `image` bytes of `source` from `from` laid at `to`, and both
// offset fields (host order) pointing there.
bytes with_image_at(bytes head, const bytes& source, size_t from, size_t to, size_t image) {
    overlay(head, to, slice(source, from, image));
    testdata::put(head, 4, to, 4, false);
    testdata::put(head, 808, to, 4, false);
    return head;
}

class RepairJob : public ::testing::Test {
protected:
    void SetUp() override {
        const uint16_t probe = 1;
        if (*reinterpret_cast<const uint8_t*>(&probe) != 1) GTEST_SKIP() << "expected bytes assume a little-endian host";
        ASSERT_FALSE(dir.path().empty());
    }
    bytes make(const std::string& name, const dpx_layout& layout) {
        bytes b = testdata::make_dpx(layout);
        EXPECT_TRUE(testdata::write_file(dir / name, b));
        return b;
    }
    bytes read(const std::string& name) { return testdata::read_file(dir / name); }
    bool exists(const std::string& name) { return testrun::exists(dir / name); }
    std::string run(std::vector<std::string> args, long file_size_limit = -1) {
        testrun::outcome r = testrun::run_piped(dir.path(), std::move(args), file_size_limit);
        EXPECT_EQ(0, r.status);
        return r.out;
    }

    testrun::scratch_dir dir;
};

dpx_layout little(dpx_layout layout = {}) {
    layout.big_endian = false;
    return layout;
}

TEST_F(RepairJob, BigEndianFilesAreRewrittenInHostOrderByteForByte) {
    struct layout_case {
        const char* what;
        uint32_t offset, width, height, x_orig, y_orig, extra_words, trailing;
    };
    // The image size is the larger of original and stored size: each file
    // holds exactly the image the driver must copy, then bytes it must not.
    // User data before the image is not carried over, and at 1664 the header
    // stops where the image starts, also when the image ends before 2048 and
    // so ends the file.
    const layout_case cases[] = {
        {"plain", 2048, 5, 3, 0, 0, 0, 0},
        {"user data to 4096", 4096, 5, 3, 0, 0, 0, 0},
        {"original 6 x 4", 2048, 5, 3, 6, 4, 9, 12},
        {"original 2 x 2", 2048, 5, 3, 2, 2, 0, 12},
        {"original unset", 2048, 5, 3, 0xFFFFFFFF, 0xFFFFFFFF, 0, 12},
        {"original 0 x 7", 2048, 5, 3, 0, 7, 20, 12},
        {"image at 1664", 1664, 20, 10, 0, 0, 0, 0},
        {"image inside the header", 1664, 3, 2, 0, 0, 0, 12},
    };
    for (const layout_case& c : cases) {
        SCOPED_TRACE(c.what);
        dpx_layout layout;
        layout.image_offset = layout.element_offset = c.offset;
        layout.width = c.width;
        layout.height = c.height;
        layout.x_orig = c.x_orig;
        layout.y_orig = c.y_orig;
        layout.extra_image_words = c.extra_words;
        layout.trailing_bytes = c.trailing;
        bytes input = make("frame.dpx", layout);
        std::string out = run({"frame.dpx"});
        if (c.offset == 2048 && c.trailing == 0) {
            EXPECT_EQ(testrun::golden("convert_big_endian.txt"), out);
        }
        EXPECT_TRUE(ends_with(out, kOneDone));
        const bytes expected = testdata::converted(input, layout);
        EXPECT_EQ(expected, read("frame.dpx"));
        EXPECT_FALSE(exists("~tmp.dpx"));
        // A converted file a whole header long loads again and needs nothing
        // more; a shorter one is refused by the reader and left as it is.
        const std::string again = run({"frame.dpx"});
        EXPECT_TRUE(ends_with(again, expected.size() >= 2048 ? kOneDone : kOneFailed)) << again;
        EXPECT_EQ(expected, read("frame.dpx"));
    }
}

TEST_F(RepairJob, FirstFileAt1664MovesLaterFilesTo1664) {
    dpx_layout at1664;
    at1664.image_offset = at1664.element_offset = 1664;
    at1664.width = 20;
    at1664.height = 10;
    dpx_layout at2048 = at1664;
    at2048.image_offset = at2048.element_offset = 2048;
    const size_t image = 20 * 10 * 4;
    bytes first = make("first.dpx", at1664);
    bytes big = make("big.dpx", at2048);
    bytes small = make("little.dpx", little(at2048));

    EXPECT_TRUE(ends_with(run({"first.dpx", "big.dpx", "little.dpx"}),
                          "\nFinished 3 of 3, none failed to convert.\n"));
    EXPECT_EQ(testdata::converted(first, at1664), read("first.dpx"));

    // Swap pass then settings pass into one file: the second image copy lands
    // on the first one's header tail and start, the short header goes last.
    bytes swapped = testdata::converted(big, at2048);
    EXPECT_EQ(with_image_at(swapped, swapped, 2048, 1664, image), read("big.dpx"));

    EXPECT_EQ(with_image_at(slice(small, 0, 1664), small, 2048, 1664, image), read("little.dpx"));
}

TEST_F(RepairJob, HostOrderFileNeedingNothingIsNotRewritten) {
    bytes input = make("frame.dpx", little());
    // A stale temporary file from an earlier run must not replace the input.
    bytes stale(3000, 0x3C);
    ASSERT_TRUE(testdata::write_file(dir / "~tmp.dpx", stale));
    ASSERT_TRUE(testrun::age(dir / "frame.dpx"));
    testrun::file_facts before = testrun::facts_of(dir / "frame.dpx");

    std::string out = run({"frame.dpx"});
    EXPECT_NE(std::string::npos, out.find("\nEndian          : Little\n"));
    EXPECT_TRUE(ends_with(out, kOneDone));
    testrun::file_facts after = testrun::facts_of(dir / "frame.dpx");
    EXPECT_EQ(before.inode, after.inode);
    EXPECT_EQ(before.mtime_ns, after.mtime_ns);
    EXPECT_EQ(input, read("frame.dpx"));
    EXPECT_EQ(stale, read("~tmp.dpx"));
}

TEST_F(RepairJob, RgbaDescriptorIsRewrittenAsRgb) {
    dpx_layout layout = little();
    layout.descriptor = 51;
    bytes input = make("frame.dpx", layout);
    EXPECT_TRUE(ends_with(run({"frame.dpx"}), kOneDone));
    input[800] = 50;
    EXPECT_EQ(input, read("frame.dpx"));
}

TEST_F(RepairJob, OffsetOptionMovesTheImage) {
    dpx_layout layout;
    bytes big = make("big.dpx", layout);
    bytes small = make("little.dpx", little(layout));
    EXPECT_TRUE(ends_with(run({"-o", "4096", "big.dpx", "little.dpx"}),
                          "\nFinished 2 of 2, none failed to convert.\n"));

    // The swap pass's image copy stays at 2048 below the moved image.
    bytes swapped = testdata::converted(big, layout);
    EXPECT_EQ(with_image_at(swapped, swapped, 2048, 4096, 60), read("big.dpx"));

    // Only the settings pass ran: it created the file, so zeros lie before the image.
    EXPECT_EQ(with_image_at(slice(small, 0, 2048), small, 2048, 4096, 60), read("little.dpx"));
}

TEST_F(RepairJob, LargeImageMovedOntoItsOwnSwappedCopy) {
    // Over two megabytes, so the image is moved in several pieces, and the
    // moved copy overlaps the swapped one.
    dpx_layout layout;
    layout.width = 1100;
    layout.height = 500;
    const size_t image = 1100 * 500 * 4;
    bytes input = make("large.dpx", layout);
    EXPECT_TRUE(ends_with(run({"-o", "4096", "large.dpx"}), kOneDone));
    bytes swapped = testdata::converted(input, layout);
    bytes expected = with_image_at(swapped, swapped, 2048, 4096, image);
    EXPECT_TRUE(expected == read("large.dpx"));
}

TEST_F(RepairJob, SettingsPassThatCannotOpenItsOutputEndsQuietly) {
    bytes input = make("frame.dpx", little());
    ASSERT_EQ(0, ::mkdir((dir / "~tmp.dpx").c_str(), 0755));
    ASSERT_TRUE(testrun::age(dir / "frame.dpx"));
    testrun::file_facts before = testrun::facts_of(dir / "frame.dpx");
    std::string out = run({"-t", "300", "frame.dpx"});
    EXPECT_EQ(std::string::npos, out.find("Error"));
    EXPECT_TRUE(ends_with(out, kOneDone));
    EXPECT_EQ(input, read("frame.dpx"));
    EXPECT_EQ(before.mtime_ns, testrun::facts_of(dir / "frame.dpx").mtime_ns);
}

TEST_F(RepairJob, TransferOptionStoresItsLowByteAndNeverMatches) {
    bytes input = make("frame.dpx", little());
    EXPECT_TRUE(ends_with(run({"-t", "300", "frame.dpx"}), kOneDone));
    input[801] = 44;
    EXPECT_EQ(input, read("frame.dpx"));

    testrun::file_facts before = testrun::facts_of(dir / "frame.dpx");
    EXPECT_TRUE(ends_with(run({"-t", "300", "frame.dpx"}), kOneDone));
    EXPECT_NE(before.inode, testrun::facts_of(dir / "frame.dpx").inode);
    EXPECT_EQ(input, read("frame.dpx"));
}

TEST_F(RepairJob, WhiteAndBlackOptionsAndDisagreeingOffsetsAreWritten) {
    bytes input = make("frame.dpx", little());
    EXPECT_TRUE(ends_with(run({"-w", "1000", "-b", "64", "frame.dpx"}), kOneDone));
    testdata::put(input, 784, 64, 4, false);
    testdata::put(input, 792, 1000, 4, false);
    EXPECT_EQ(input, read("frame.dpx"));

    testdata::put(input, 4, 0, 4, false);
    ASSERT_TRUE(testdata::write_file(dir / "frame.dpx", input));
    EXPECT_TRUE(ends_with(run({"frame.dpx"}), kOneDone));
    testdata::put(input, 4, 2048, 4, false);
    EXPECT_EQ(input, read("frame.dpx"));
}

TEST_F(RepairJob, FirstFileFixesTheSettingsForLaterOnes) {
    bytes first = make("first.dpx", little());
    dpx_layout other = little();
    other.image_offset = other.element_offset = 4096;
    other.transfer = 1;
    other.ref_low = 100;
    other.ref_high = 900;
    bytes second = make("second.dpx", other);
    ASSERT_TRUE(testrun::age(dir / "first.dpx"));
    testrun::file_facts before = testrun::facts_of(dir / "first.dpx");

    std::string out = run({"first.dpx", "second.dpx"});
    EXPECT_EQ(out.find("Cineon/DPX Settings"), out.rfind("Cineon/DPX Settings"));
    EXPECT_TRUE(ends_with(out, "\nFinished 2 of 2, none failed to convert.\n"));
    EXPECT_EQ(before.mtime_ns, testrun::facts_of(dir / "first.dpx").mtime_ns);

    bytes expected = with_image_at(slice(second, 0, 2048), second, 4096, 2048, 60);
    testdata::put(expected, 784, 95, 4, false);
    testdata::put(expected, 792, 685, 4, false);
    expected[801] = 3;
    EXPECT_EQ(expected, read("second.dpx"));
}

TEST_F(RepairJob, SettingsPassReusesStaleTemporaryBesideTheInput) {
    ASSERT_EQ(0, ::mkdir((dir / "sub").c_str(), 0755));
    bytes input = make("sub/frame.dpx", little());
    bytes stale(8000);
    for (size_t i = 0; i < stale.size(); ++i) stale[i] = uint8_t(i * 7 + 1);
    ASSERT_TRUE(testdata::write_file(dir / "sub/~tmp.dpx", stale));

    EXPECT_TRUE(ends_with(run({"-t", "300", "sub/frame.dpx"}), kOneDone));
    bytes expected = stale;
    overlay(expected, 0, slice(input, 0, 2048 + 60));
    expected[801] = 44;
    EXPECT_EQ(expected, read("sub/frame.dpx"));
    EXPECT_FALSE(exists("sub/~tmp.dpx"));
    EXPECT_FALSE(exists("~tmp.dpx"));
}

TEST_F(RepairJob, OutputFolderLeavesTheInputUntouched) {
    ASSERT_EQ(0, ::mkdir((dir / "out").c_str(), 0755));
    dpx_layout layout;
    bytes input = make("frame.dpx", layout);
    ASSERT_TRUE(testrun::age(dir / "frame.dpx"));
    testrun::file_facts before = testrun::facts_of(dir / "frame.dpx");

    EXPECT_TRUE(ends_with(run({"-c", "out", "frame.dpx"}), kOneDone));
    EXPECT_EQ(testdata::converted(input, layout), read("out/frame.dpx"));
    EXPECT_EQ(input, read("frame.dpx"));
    testrun::file_facts after = testrun::facts_of(dir / "frame.dpx");
    EXPECT_EQ(before.inode, after.inode);
    EXPECT_EQ(before.mtime_ns, after.mtime_ns);
    EXPECT_FALSE(exists("~tmp.dpx"));
    EXPECT_FALSE(exists("out/~tmp.dpx"));

    std::string out = run({"-c", "missing/", "frame.dpx"});
    EXPECT_TRUE(ends_with(out, error_line("Could not swap DPX to local byte ordering because it could not "
                                          "open the file!") + kOneFailed));
    EXPECT_EQ(input, read("frame.dpx"));
}

TEST_F(RepairJob, FailureInOutputFolderRemovesThePartialFile) {
    ASSERT_EQ(0, ::mkdir((dir / "out").c_str(), 0755));
    bytes input = testdata::make_dpx(dpx_layout{});
    input.resize(input.size() - 8);  // the image runs past the end of the file
    ASSERT_TRUE(testdata::write_file(dir / "cut.dpx", input));

    const std::string read_failed =
        error_line("Could not swap DPX to local byte ordering because it could not read the image file!");
    EXPECT_TRUE(ends_with(run({"-c", "out", "cut.dpx"}), read_failed + kOneFailed));
    EXPECT_FALSE(exists("out/cut.dpx"));
    EXPECT_EQ(input, read("cut.dpx"));

    EXPECT_TRUE(ends_with(run({"cut.dpx"}), read_failed + kOneFailed));
    EXPECT_FALSE(exists("~tmp.dpx"));
    EXPECT_EQ(input, read("cut.dpx"));
}

TEST_F(RepairJob, ShortImageWriteInSettingsPassCountsTwice) {
    const std::string write_failed =
        error_line("Could not swap DPX to local byte ordering because it could not write the image file!");
    bytes small = make("little.dpx", little());
    EXPECT_TRUE(ends_with(run({"-o", "4096", "little.dpx"}, 4096 + 30),
                          write_failed + "\nFinished 1 of 1, only 2 failed to convert.\n"));
    EXPECT_EQ(small, read("little.dpx"));
    EXPECT_FALSE(exists("~tmp.dpx"));

    bytes big = make("big.dpx", dpx_layout{});
    EXPECT_TRUE(ends_with(run({"big.dpx"}, 2048 + 30), write_failed + kOneFailed));
    EXPECT_EQ(big, read("big.dpx"));
    EXPECT_FALSE(exists("~tmp.dpx"));
}

TEST_F(RepairJob, EightBitFirstFileShowsItsReportAndStillFixesTheSettings) {
    dpx_layout eight;
    eight.bit_size = 8;
    eight.transfer = 1;
    bytes refused = make("eight.dpx", eight);
    bytes later = make("later.dpx", little());
    EXPECT_EQ(testrun::golden("eight_bit_first.txt"), run({"eight.dpx", "later.dpx"}));
    EXPECT_EQ(refused, read("eight.dpx"));
    later[801] = 1;
    EXPECT_EQ(later, read("later.dpx"));
    EXPECT_FALSE(exists("~tmp.dpx"));
}

TEST_F(RepairJob, FilesThatDoNotLoadTakeNoSettingAndStayByteIdentical) {
    bytes junk = {'J', 'U', 'N', 'K', 0, 1, 2, 3};
    ASSERT_TRUE(testdata::write_file(dir / "notdpx.bin", junk));
    dpx_layout low;
    low.element_offset = 1660;
    bytes below = make("low.dpx", low);
    dpx_layout far;
    far.element_offset = 2048 + 60 + 4;
    bytes beyond = make("far.dpx", far);
    dpx_layout good = little();
    good.transfer = 2;
    good.ref_low = 64;
    good.ref_high = 940;
    bytes kept = make("good.dpx", good);
    ASSERT_TRUE(testrun::age(dir / "good.dpx"));
    testrun::file_facts before = testrun::facts_of(dir / "good.dpx");

    EXPECT_EQ(testrun::golden("refused_then_first_report.txt"),
              run({"notdpx.bin", "absent.dpx", "low.dpx", "far.dpx", "good.dpx"}));
    EXPECT_EQ(junk, read("notdpx.bin"));
    EXPECT_EQ(below, read("low.dpx"));
    EXPECT_EQ(beyond, read("far.dpx"));
    EXPECT_EQ(kept, read("good.dpx"));
    EXPECT_EQ(before.mtime_ns, testrun::facts_of(dir / "good.dpx").mtime_ns);
    EXPECT_FALSE(exists("~tmp.dpx"));
}

TEST_F(RepairJob, CineonFilesAreRenamedNotConverted) {
    ASSERT_EQ(0, ::mkdir((dir / "take.2").c_str(), 0755));
    const bytes big = testdata::make_cineon(true, 4, 2);
    const bytes small = testdata::make_cineon(false, 4, 2);
    for (const char* name : {"scan.0001.dpx", "take.2/scan", "upper.CIN"})
        ASSERT_TRUE(testdata::write_file(dir / name, big));
    ASSERT_TRUE(testdata::write_file(dir / "keep.0002.cin", small));
    bytes frame = make("frame.dpx", dpx_layout{});

    EXPECT_EQ(testrun::golden("cineon_renames.txt"),
              run({"scan.0001.dpx", "keep.0002.cin", "take.2/scan", "upper.CIN", "frame.dpx"}));
    for (const char* name : {"scan.0001.cin", "take.2/scan.cin", "upper.cin"}) EXPECT_EQ(big, read(name)) << name;
    for (const char* name : {"scan.0001.dpx", "take.2/scan", "upper.CIN"}) EXPECT_FALSE(exists(name)) << name;
    EXPECT_EQ(small, read("keep.0002.cin"));
    EXPECT_EQ(testdata::converted(frame, dpx_layout{}), read("frame.dpx"));
}

}  // namespace
