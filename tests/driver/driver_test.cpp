// tarvex as a user runs it: the cases of tests/driver/cases.txt, each checked
// against the model (see run_checked) and its transcript, the settings report
// for header values, the progress line on terminals.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <regex>
#include <sstream>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testdata::bytes;
using testdata::image_at;
using patches = std::vector<testdata::patch>;

patches operator+(patches a, const patches& b) { return a.insert(a.end(), b.begin(), b.end()), a; }

// A file of the case table from its kind and changes (see tests/driver/cases.txt).
bytes file(const std::string& traits) {
    std::smatch m;
    if (std::regex_match(traits, m, std::regex("text:(.*)"))) {
        const std::string text = std::regex_replace(m.str(1), std::regex("\\\\n"), "\n");
        return bytes(text.begin(), text.end());
    }
    if (std::regex_match(traits, m, std::regex("fill:(\\d+)/(\\d+)"))) return bytes(std::stoul(m[1]), uint8_t(std::stoi(m[2])));
    if (traits.rfind("cineon", 0) == 0) return testdata::make_cineon(traits == "cineon", 4, 2);
    if (traits.rfind("hostile:", 0) == 0) return testdata::read_file(TARVEX_SOURCE_DIR "/tests/fault/hostile/" + traits.substr(8));
    patches changes;
    static const std::regex change("@(\\d+)(?::(\\d+)x(\\d+))?(?:\\+(\\d+)(?![\\d=]))?|\\+(\\d+)=(\\w+)/(-?\\d+)");
    for (std::sregex_iterator it(traits.begin(), traits.end(), change), end; it != end; ++it) {
        auto n = [&](size_t i, uint64_t unset) { return (*it)[i].matched ? std::stoull((*it)[i], nullptr, 0) : unset; };
        auto u32 = [&](size_t i, uint32_t unset) { return uint32_t(n(i, unset)); };
        if ((*it)[1].matched) changes = changes + image_at(u32(1, 0), u32(2, 5), u32(3, 3), u32(4, 0));
        else changes.push_back({n(5, 0), n(6, 0), std::stoi((*it)[7])});
    }
    return testdata::frame(traits.rfind("big", 0) == 0, changes);
}

// Masks the elapsed times of progress lines as "hh:mm:ss"; false when one is not plausible for a short run.
bool mask_times(std::string& out) {
    const std::string before = "(\\| {14}|\\[[0-9]+D[0-9]{1,3}% *)";  // the bar's end, or the percentage
    const bool plausible = !std::regex_search(out, std::regex(before + "(?!00:0[0-9]:[0-5][0-9])[0-9]{2}:"));
    out = std::regex_replace(out, std::regex(before + "[0-9]{2}:[0-9]{2}:[0-9]{2}"), "$1hh:mm:ss");
    return plausible;
}

// Each case of tests/driver/cases.txt: arguments | files | verdicts | transcript | surroundings; then each file
// of tests/fault/hostile alone with the verdict its table gives, and all of them in one run after a good frame.
TEST(EndToEnd, EachCaseMatchesTheModelTwice) {
    std::string rows = testrun::source_file("tests/driver/cases.txt"), all = "0-good.dpx", kinds = all + "=big", letters = "c";
    std::istringstream hostile(testrun::source_file("tests/fault/hostile/expected.txt"));
    for (std::string line, name, verdict; std::getline(hostile, line);)
        if (line[0] != '#' && std::istringstream(line) >> name >> verdict) {
            rows += name + " | " + name + "=hostile:" + name + " | " + verdict + " |\n";
            all += " " + name, kinds += " " + name + "=hostile:" + name, letters += verdict;
        }
    std::istringstream table(rows + all + " | " + kinds + " | " + letters + " |\n");
    static const std::regex columns(" *([^|#]*?) *\\| *(.*?) *\\| *(\\w*) *\\| *(\\S*) *(?:\\| *(\\S*) *(\\S*) *)?");
    int cases = 0;
    for (std::string line; std::getline(table, line);) {
        std::smatch row;
        if (!std::regex_match(line, row, columns)) continue;
        SCOPED_TRACE("tarvex " + row.str(1));
        testrun::scratch_dir dir;
        ++cases;
        // A folder made read-only must stop user 65534, which takes permission bits.
        using testrun::fs_trait;
        if (row.str(5) == "read-only" && !testrun::keeps(dir.path(), fs_trait::modes, "tarvex " + row.str(1))) continue;
        std::istringstream args(row.str(1)), files(row.str(2));
        testrun::run_options options{{std::istream_iterator<std::string>(args), {}}};
        for (std::string f; files >> f;) {  // ~dead~ and ~live~ name private files of such processes here
            const std::string name = std::regex_replace(std::regex_replace(f.substr(0, f.find('=')), std::regex("~dead~"),
                testrun::private_file("99999999")), std::regex("~live~"), testrun::private_file("1"));
            ASSERT_NE("", dir.write(name, file(f.substr(f.find('=') + 1))));
        }
        // Surroundings the model cannot foresee force the verdicts the row gives.
        const std::string forced = row.str(5).empty() || row.str(5) == "terminal" ? "" : row.str(3);
        options.columns = row.str(5) == "terminal" ? std::stoi(row.str(6)) : 0;
        if (row.str(5) == "limit") options.file_size_limit = std::stol(row.str(6));
        if (row.str(5) == "read-only") ::chmod(dir.path().c_str(), 0755), ::chmod((dir / row.str(6)).c_str(), 0555);
        options.unprivileged = row.str(5) == "read-only";
        std::string verdicts;
        std::string out = testrun::run_checked(dir, options, &verdicts, forced).out;
        EXPECT_TRUE(mask_times(out)) << out;
        EXPECT_EQ(row.str(3), verdicts);
        // The whole golden transcript, or the lines of it that follow the colon.
        const std::string transcript = row.str(4), name = transcript.substr(0, transcript.find(':'));
        std::istringstream golden(name.empty() ? "" : testrun::source_file("tests/driver/golden/" + name)), wanted(transcript);
        EXPECT_TRUE(transcript != name || name.empty() || golden.str() == out) << out;
        std::vector<std::string> lines(1);
        while (std::getline(golden, lines.emplace_back())) continue;
        for (std::string n; wanted.ignore(64, ':') && std::getline(wanted, n, ',');)
            EXPECT_NE(std::string::npos, out.find("\n" + lines.at(std::stoul(n)) + "\n")) << out;
        SCOPED_TRACE("again");
        testrun::run_checked(dir, options, nullptr, forced);
    }
    EXPECT_GE(cases, 76 + 37);
}

}  // namespace
