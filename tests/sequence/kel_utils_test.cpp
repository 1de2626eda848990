// Frame-name parsing, name sanitizing and the folder scans of kel_utils.
#include "sequence/kel_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <set>
#include <string>

#include "support/tarvex_process.h"

namespace {

using namespace std::string_literals;
const std::string longest = std::string(32767 - 9, 'a') + " 0001.dpx", too_long = "a" + longest, a256(256, 'a');

// "base|frame|extension", or the result code; the guard bytes after the buffers must stay.
std::string split(const std::string& name, int style) {
    std::string base(264, 'Z'), frame(24, 'Z'), ext(264, 'Z');
    uint16_t digits = 99;
    const int result = int(kel_utils::split_frame_name(name.c_str(), style, &base[0], &frame[0], &ext[0], &digits));
    EXPECT_EQ(base.substr(256) + frame.substr(16) + ext.substr(256) + std::to_string(digits),
              std::string(24, 'Z') + std::to_string(std::string(frame.c_str()).size())) << name;
    return result ? std::to_string(result) : std::string(base.c_str()) + "|" + frame.c_str() + "|" + ext.c_str();
}

// Not split ("3"): a short or no base, no or a wrong separator, bad digits, no extension, an unknown style,
// 256-byte parts, names past 32767 bytes. Sanitizing makes 26 characters "_", keeps 256 units, gives "" when too long.
TEST(KelUtils, TakesNamesApartAndSanitizesThem) {
    const std::string d20 = "12345678901234567890", d15 = "|" + d20.substr(0, 15) + "|.x", a254 = a256.substr(2);
    for (const auto& [name, style, parts] : {std::tuple{"ab.0001.x"s, 0, "ab|0001|.x"s}, {"ab0001.x", 1, "ab|0001|.x"},
             {"a.b.0012.c", 0, "a.b|0012|.c"}, {"ab_07.x", 1, "ab_|07|.x"}, {".0001.x", 0, "|0001|.x"},
             {"my ab 01.x", 2, "my ab|01|.x"}, {"ab." + d20 + ".x", 0, "ab" + d15}, {"ab" + d20 + ".x", 1, "ab" + d15},
             {"ab " + d20 + ".x", 2, "ab" + d15}, {"s.1." + a254, 0, "s|1|." + a254}, {a254 + "0.x", 1, a254 + "|0|.x"},
             {"a0001.x", 1, "3"}, {"0001.x", 1, "3"}, {"ab01.x", 2, "3"}, {" 01.x", 2, "3"}, {"ab.01.x", 1, "3"},
             {"ab 01.x", 1, "3"}, {"ab.x", 1, "3"}, {"ab01.x", 0, "3"}, {"ab.0a1.x", 0, "3"}, {"ab..x", 0, "3"},
             {"ab01", 1, "3"}, {"ab01.x", 7, "3"}, {too_long, 2, "3"}, {"s.1.a" + a254, 0, "3"},
             {"a" + a254 + "0.x", 1, "3"}})
        EXPECT_EQ(split(name, style), parts) << name.substr(0, 20) << " style " << style;
    const std::string unsafe = "/:\\\";*?<>|@+=~!#$%&^()[]{}", mixed = "Caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x8e\xac.dpx";
    std::string printable, safe, wide;
    for (char c = ' '; c <= '~'; ++c) printable += c, safe += unsafe.find(c) == std::string::npos ? c : '_';
    for (int i = 0; i < 300; ++i) wide += "\xe6\x97\xa5";
    for (const auto& [in, want, size] : {std::tuple{printable, safe, 999u}, {mixed, mixed, 999u}, {"", "", 999u},
             {wide, wide.substr(0, 768), 999u}, {std::string(300, 'n'), std::string(256, 'n'), 999u},
             {"abc", "abc", 4u}, {"abcd", "", 4u}, {"abc", "", 1u}, {"a", "a", 2u}}) {
        std::string out(size + 8, 'Z');
        kel_utils::sanitize_name(&out[0], size, in.c_str());
        EXPECT_EQ(out.c_str() + out.substr(size), want + "ZZZZZZZZ") << in.substr(0, 20) << " in " << size;
        EXPECT_EQ(size == 999 ? kel_utils::sanitize_name(in) : want, want) << "the standard-string form";
    }
}

// "result:text " of a scan for ab*.x (the limit counts the characters appended; 0: no buffer), and the
// paths find_files reports under a folder (with a type list when `typed`), relative to it, sorted.
std::string range(const std::string& folder, int style, size_t limit = 64) {
    char out[80] = "stale";
    const int result = int(kel_utils::get_frame_range(folder.c_str(), "ab", ".x", style, limit ? out : nullptr, limit));
    return std::to_string(result) + ":" + out + " ";
}
std::string find(const std::string& folder, const char* prefix, bool typed = false) {
    static const uint32_t dpx = 0x44505820;  // no entry on this host carries a type code
    common::stack<kel_fileResult_t*> results(kel_utils::release_result);
    bool found = kel_utils::find_files(results, kel_fileQuery_t{prefix, typed ? &dpx : nullptr, typed}, folder.c_str());
    std::set<std::string> paths;
    for (int32_t i = 0; i < results.size(); ++i)
        paths.insert(std::string(" ") + (results[i]->folder + folder.size()) + results[i]->name);
    return std::accumulate(paths.begin(), paths.end(), std::string(found == !paths.empty() ? "" : "wrong result:"));
}

TEST(KelUtils, ScansFolders) {
    testrun::scratch_dir dir, other, zero;
    for (const char* name : {"ab.1.x", "ab.2.x", "ab.3.x", "ab.10.x", "cd.50.x", "ab.99.y", "ab.98.X", "AB.97.x",
                             "ab77.x", "ab 66.x", ".ab.4.x", "xab.3.x", "cd.1.x"})
        dir.touch(name);
    for (const char* name : {"a/deep/er/Ab_1.x", "b/deep/ab_2.x", "c/ab_3.x", "ab.500.x/x"}) other.touch(name);
    EXPECT_EQ(range(dir / "", 0) + range(dir / "", 1) + range(dir / "", 2) + range(dir / "", 0, 3) +
                  range(dir / "", 0, 0) + range(other / "", 0) + range(dir / "cd.1.x", 0) + range(dir / "no/", 0),
              "0:1-10 0:77-77 0:66-66 0:1-1 0:stale 1: 3: 3: ");
    EXPECT_EQ(find(dir / "", "AB.") + "|" + find(dir / "", "ab", true) + find(dir / "no/", "") + "|" +
                  find(other / "a/", "de"), " AB.97.x ab.1.x ab.10.x ab.2.x ab.3.x ab.98.X ab.99.y|| deep");
    EXPECT_THAT(find(other / "", "AB_"), testing::AnyOf(" a/deep/er/Ab_1.x", " b/deep/ab_2.x", " c/ab_3.x"))
        << "the search stops soon after its first hit";
    dir.touch("ab.0000000000000000002.x"), other.touch("ab..x"), zero.touch("ab.0000.x");
    EXPECT_EQ(range(dir / "", 0) + range(other / "", 0) + range(zero / "", 0), "0:0-10 1: 0:0-0 ")
        << "only 15 digits are read; a matching name without digits finds nothing";
}

}  // namespace
