#include "sequence/kel_utils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/tarvex_process.h"

namespace {

namespace fs = std::filesystem;

using testrun::scratch_dir;

// A buffer of `size` bytes followed by guard bytes that must stay untouched.
struct Guarded {
    explicit Guarded(size_t size) : size(size), bytes(size + 16, '\x5a') {}
    char* data() { return bytes.data(); }
    bool guard_intact() const {
        for (size_t i = size; i < bytes.size(); ++i)
            if (bytes[i] != '\x5a') return false;
        return true;
    }
    size_t size;
    std::vector<char> bytes;
};

struct Split {
    int result;
    std::string base, frame, extension;
    uint16_t digits;
};

Split split(const std::string& name, int style) {
    Guarded base(kel_utils::name_buffer_size), frame(kel_utils::frame_buffer_size),
        ext(kel_utils::name_buffer_size);
    uint16_t digits = 99;
    int result = kel_utils::split_frame_name(name.c_str(), style, base.data(), frame.data(),
                                             ext.data(), &digits);
    EXPECT_TRUE(base.guard_intact() && frame.guard_intact() && ext.guard_intact()) << name;
    return {result, base.data(), frame.data(), ext.data(), digits};
}

TEST(KelUtilsStyleTest, TellsTheThreeFormsAndNamesWithoutFrames) {
    // A plain name counts as attached: the walk stops on the letter before the dot.
    // A name made only of digits stops the walk on its first character.
    struct Case { const char* name; int style; bool space, attached; };
    for (const Case& c : {Case{"shot.0001.dpx", 0, false, false}, Case{"shot0001.dpx", 1, false, true},
                          Case{"shot_0001.dpx", 1, false, true},  Case{"shot 0001.dpx", 2, true, false},
                          Case{"my shot 0001.dpx", 2, true, false}, Case{"shot-12.tif", 1, false, true},
                          Case{"shot0001", 0, false, false},     Case{"shot 0001", 0, false, false},
                          Case{"shot.dpx", 1, false, true},      Case{"0001.dpx", 1, false, true},
                          Case{nullptr, 0, false, false}}) {
        SCOPED_TRACE(c.name ? c.name : "null");
        EXPECT_EQ(kel_utils::naming_style(c.name), c.style);
        EXPECT_EQ(kel_utils::is_space_numbered(c.name), c.space);
        EXPECT_EQ(kel_utils::is_attached_numbered(c.name), c.attached);
    }
}

TEST(KelUtilsStyleTest, RefusesNamesBeyondSixteenBitIndexes) {
    std::string longest(kel_utils::max_name_length - 9, 'a');
    longest += " 0001.dpx";
    ASSERT_EQ(longest.size(), size_t(kel_utils::max_name_length));
    EXPECT_EQ(kel_utils::naming_style(longest.c_str()), 2);
    EXPECT_EQ(kel_utils::last_index_of(longest.c_str(), '.'), kel_utils::max_name_length - 4);

    std::string too_long = "a" + longest;
    EXPECT_EQ(kel_utils::naming_style(too_long.c_str()), 0);
    EXPECT_FALSE(kel_utils::is_space_numbered(too_long.c_str()));
    EXPECT_EQ(kel_utils::last_index_of(too_long.c_str(), '.'), 0);
    EXPECT_EQ(split(too_long, 2).result, 3);
    std::vector<char> text(too_long.begin(), too_long.end());
    text.push_back(0);
    kel_utils::split_at_last(text.data(), nullptr, 0, '.');
    EXPECT_EQ(std::string(text.data()), too_long);
}

TEST(KelUtilsTextTest, LastIndexAndSplitAtLast) {
    EXPECT_EQ(kel_utils::last_index_of("a.b.c", '.'), 3);
    EXPECT_EQ(kel_utils::last_index_of(".abc", '.'), 0);
    EXPECT_EQ(kel_utils::last_index_of("abc", '.'), 0);
    EXPECT_EQ(kel_utils::last_index_of(nullptr, '.'), 0);

    char text[] = "shot.0001.dpx";
    Guarded tail(3);
    EXPECT_EQ(kel_utils::split_at_last(text, tail.data(), tail.size, '.'), text);
    EXPECT_STREQ(text, "shot.0001");
    EXPECT_STREQ(tail.data(), "dp");
    EXPECT_TRUE(tail.guard_intact());

    kel_utils::split_at_last(text, nullptr, 64, '.');
    EXPECT_STREQ(text, "shot");
    char tail2[8] = "keep";
    kel_utils::split_at_last(text, tail2, sizeof tail2, '.');
    EXPECT_STREQ(text, "shot");
    EXPECT_STREQ(tail2, "keep");
    kel_utils::split_at_last(text, tail2, sizeof tail2, '\0');
    EXPECT_STREQ(text, "shot");
    EXPECT_EQ(kel_utils::split_at_last(nullptr, tail2, sizeof tail2, '.'), nullptr);

    EXPECT_EQ(kel_utils::strip_extension("a.b.dpx"), "a.b");
    EXPECT_EQ(kel_utils::strip_extension("shot"), "shot");
    EXPECT_EQ(kel_utils::strip_extension(".hidden"), "");
}

TEST(KelUtilsSplitTest, SplitsEachStyle) {
    struct Case { const char* name; int style; const char* base; const char* frame; const char* ext; };
    for (const Case& c : {Case{"shot.0001.dpx", 0, "shot", "0001", ".dpx"},
                          Case{"a.b.000120.cin", 0, "a.b", "000120", ".cin"},
                          Case{"shot0001.dpx", 1, "shot", "0001", ".dpx"},
                          Case{"shot_07.dpx", 1, "shot_", "07", ".dpx"},
                          Case{"my shot 0001.dpx", 2, "my shot", "0001", ".dpx"}}) {
        Split s = split(c.name, c.style);
        EXPECT_EQ(s.result, 0) << c.name;
        EXPECT_EQ(s.base, c.base) << c.name;
        EXPECT_EQ(s.frame, c.frame) << c.name;
        EXPECT_EQ(s.extension, c.ext) << c.name;
        EXPECT_EQ(s.digits, std::strlen(c.frame)) << c.name;
    }
}

TEST(KelUtilsSplitTest, CutsFrameTextToFifteenDigits) {
    std::string digits = "12345678901234567890";
    for (int style : {0, 1, 2}) {
        const char* separator[] = {".", "", " "};
        Split s = split("shot" + std::string(separator[style]) + digits + ".dpx", style);
        EXPECT_EQ(s.result, 0);
        EXPECT_EQ(s.frame, digits.substr(0, kel_utils::frame_buffer_size - 1));
        EXPECT_EQ(s.digits, kel_utils::frame_buffer_size - 1);
    }
}

TEST(KelUtilsSplitTest, RejectsWhatIsNoFrameName) {
    struct Case { const char* name; int style; };
    for (const Case& c : {Case{"a0001.dpx", 1},       // one-character base
                          Case{"0001.dpx", 1},        // digits only
                          Case{"shot0001.dpx", 2},    // no space
                          Case{" 0001.dpx", 2},       // space at the start
                          Case{"shot.0001.dpx", 1},   // dot before the digits
                          Case{"shot 0001.dpx", 1},   // space before the digits
                          Case{"shot.dpx", 1},        // no digits
                          Case{"shot0001.dpx", 0},    // no second dot
                          Case{"shot.00a1.dpx", 0},   // not all digits
                          Case{"shot..dpx", 0},       // empty frame text
                          Case{"shot0001", 1},        // no extension
                          Case{"shot0001.dpx", 7}}) { // unknown style
        EXPECT_EQ(split(c.name, c.style).result, 3) << c.name << " style " << c.style;
    }
    std::string long_base(kel_utils::name_buffer_size, 'a');
    EXPECT_EQ(split(long_base + ".0001.dpx", 0).result, 3);
    EXPECT_EQ(split("shot.0001." + long_base, 0).result, 3);
    // A stem of 255 bytes is the longest the base buffer holds.
    Split edge = split(long_base.substr(5) + "0001.dpx", 1);
    EXPECT_EQ(edge.result, 0);
    EXPECT_EQ(edge.base, long_base.substr(5));
    EXPECT_EQ(split(long_base.substr(4) + "0001.dpx", 1).result, 3);
}

std::string sanitized(const std::string& text, size_t size = 2048) {
    Guarded out(size);
    kel_utils::sanitize_name(out.data(), size, text.c_str());
    EXPECT_TRUE(out.guard_intact());
    return out.data();
}

TEST(KelUtilsSanitizeTest, ReplacesTheUnsafeCharactersKeepsNonAsciiAndCutsTo256Units) {
    const std::string unsafe = "/:\\\";*?<>|@+=~!#$%&^()[]{}";
    ASSERT_EQ(unsafe.size(), 26u);
    std::string printable, safe;
    for (char c = ' '; c <= '~'; ++c) {
        printable += c;
        safe += unsafe.find(c) == std::string::npos ? c : '_';
    }
    const std::string mixed = "Caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x8e\xac-1_2.dpx";
    std::string ascii(300, 'n'), wide;
    for (int i = 0; i < 300; ++i) wide += "\xe6\x97\xa5";
    // Three bytes a unit: the standard-string form's buffer must hold 768 bytes.
    const std::pair<std::string, std::string> cases[] = {{printable, safe}, {"a/b:c", "a_b_c"},
                                                         {mixed, mixed},    {ascii, ascii.substr(0, 256)},
                                                         {wide, wide.substr(0, 256 * 3)}, {"", ""}};
    for (const auto& [in, out] : cases) {
        SCOPED_TRACE(in.substr(0, 24));
        EXPECT_EQ(sanitized(in), out);
        EXPECT_EQ(kel_utils::sanitize_name(in), out);
    }
}

TEST(KelUtilsSanitizeTest, SmallBuffersAndMissingInput) {
    EXPECT_EQ(sanitized("abc", 4), "abc");
    EXPECT_EQ(sanitized("abcd", 4), "");
    EXPECT_EQ(sanitized("abc", 1), "");
    char out[4] = "zzz";
    EXPECT_EQ(kel_utils::sanitize_name(out, sizeof out, nullptr), out);
    EXPECT_STREQ(out, "");
}

int frame_range(const scratch_dir& dir, const char* base, const char* ext, int style,
                std::string* text, size_t limit = 64) {
    char out[256] = "stale";
    int result = kel_utils::get_frame_range((dir / "").c_str(), base, ext, style, out, limit);
    *text = out;
    return result;
}

TEST(KelUtilsFrameRangeTest, SpansFramesWithGapsAndSkipsOtherNames) {
    scratch_dir dir;
    ASSERT_FALSE(dir.path().empty());
    for (const char* name : {"shot.0001.dpx", "shot.0002.dpx", "shot.0003.dpx", "shot.0010.dpx",
                             "take.0050.dpx", "shot.0099.tif", "shot.0098.DPX", "SHOT.0097.dpx",
                             "shot0077.dpx", "shot 0066.dpx", ".shot.0400.dpx", "xshot.0300.dpx"})
        dir.touch(name);
    fs::create_directory(dir / "shot.0500.dpx");
    // The limit counts characters appended, not the buffer's size.
    struct Case { int style; size_t limit; const char* text; };
    std::string text;
    for (Case c : {Case{0, 64, "1-10"}, Case{1, 64, "77-77"}, Case{2, 64, "66-66"}, Case{0, 3, "1-1"}}) {
        EXPECT_EQ(frame_range(dir, "shot", ".dpx", c.style, &text, c.limit), 0) << c.style;
        EXPECT_EQ(text, c.text);
    }
    // Only the first 15 digits of a frame text are read.
    dir.touch("shot.0000000000000000002.dpx");
    EXPECT_EQ(frame_range(dir, "shot", ".dpx", 0, &text), 0);
    EXPECT_EQ(text, "0-10");
}

TEST(KelUtilsFrameRangeTest, ReportsNoFramesAndUnreadableFolders) {
    scratch_dir dir;
    dir.touch("other.0001.dpx");
    std::string text;
    EXPECT_EQ(frame_range(dir, "shot", ".dpx", 0, &text), 1);
    EXPECT_EQ(text, "");
    // A matching name whose frame text does not parse finds nothing.
    dir.touch("shot..dpx");
    EXPECT_EQ(frame_range(dir, "shot", ".dpx", 0, &text), 1);

    // Tests may run as root, where permissions do not stop opendir: a regular
    // file and a missing path are folders that cannot be read.
    char out[16] = "stale";
    std::string file = dir / "other.0001.dpx";
    EXPECT_EQ(kel_utils::get_frame_range(file.c_str(), "shot", ".dpx", 0, out, 16), 3);
    EXPECT_STREQ(out, "");
    std::string missing = dir / "missing/";
    EXPECT_EQ(kel_utils::get_frame_range(missing.c_str(), "shot", ".dpx", 0, out, 16), 3);
}

std::set<std::string> found(const common::stack<kel_fileResult_t*>& results) {
    std::set<std::string> paths;
    for (int32_t i = 0; i < results.size(); ++i)
        paths.insert(std::string(results[i]->folder) + results[i]->name);
    return paths;
}

TEST(KelUtilsFindTest, StopsAfterTheFirstHitInANestedTree) {
    scratch_dir dir;
    std::set<std::string> every;
    for (const char* name : {"a/deep/er/Shot_1.dpx", "b/deep/shot_2.dpx", "c/shot_3.dpx", "d/e/shot_4.dpx"}) {
        dir.touch(name);
        every.insert(dir / name);
    }

    common::stack<kel_fileResult_t*> results(kel_utils::release_result);
    kel_fileQuery_t query;
    query.prefix = "SHOT_";
    EXPECT_TRUE(kel_utils::find_files(results, query, (dir / "").c_str()));
    ASSERT_EQ(results.size(), 1);
    EXPECT_EQ(every.count(*found(results).begin()), 1u);
}

TEST(KelUtilsFindTest, MatchesPrefixesInOneFolderAndHonoursTypeLists) {
    scratch_dir dir;
    for (const char* name : {"shot.0001.dpx", "Shot.0002.dpx", "take.0001.dpx", ".shot.0003.dpx"})
        dir.touch(name);
    fs::create_directory(dir / "shots");
    common::stack<kel_fileResult_t*> results(kel_utils::release_result);
    kel_fileQuery_t query;
    query.prefix = "shot";
    EXPECT_TRUE(kel_utils::find_files(results, query, (dir / "").c_str()));
    std::set<std::string> expected = {dir / "shot.0001.dpx", dir / "Shot.0002.dpx", dir / "shots"};
    EXPECT_EQ(found(results), expected);

    common::stack<kel_fileResult_t*> typed(kel_utils::release_result);
    const uint32_t dpx_type = 0x44505820;
    query.types = &dpx_type;
    query.type_count = 1;
    EXPECT_FALSE(kel_utils::find_files(typed, query, (dir / "").c_str()));
    EXPECT_EQ(typed.size(), 0);
    query.types = nullptr;
    query.type_count = 0;
    EXPECT_FALSE(kel_utils::find_files(typed, query, (dir / "missing/").c_str()));
}

}  // namespace
