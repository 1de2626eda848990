// The progress line as it shows on terminals of set widths.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

// `out` with the elapsed time of every progress line replaced by "hh:mm:ss";
// the times found are appended to `times`.
std::string without_times(const std::string& out, std::vector<std::string>* times) {
    static const std::regex clock("(\\| {14}|\\[[0-9]+D[0-9]{1,3}% *)([0-9]{2}:[0-9]{2}:[0-9]{2})");
    std::string result;
    auto last = out.cbegin();
    for (std::sregex_iterator it(out.begin(), out.end(), clock), end; it != end; ++it) {
        result.append(last, (*it)[2].first);
        result += "hh:mm:ss";
        times->push_back((*it)[2].str());
        last = (*it)[2].second;
    }
    result.append(last, out.cend());
    return result;
}

class Progress : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(dir.path().empty()); }
    // Writes `count` big-endian frames f0.dpx, f1.dpx, ... and returns their names.
    std::vector<std::string> frames(int count) {
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i) {
            names.push_back("f" + std::to_string(i) + ".dpx");
            EXPECT_TRUE(testdata::write_file(dir / names.back(), testdata::make_dpx(testdata::dpx_layout{})));
        }
        return names;
    }
    // The run's output with its elapsed times replaced, each checked to be a
    // plausible time of a short run.
    std::string run(const std::vector<std::string>& args, int columns) {
        testrun::outcome r = testrun::run_on_terminal(dir.path(), args, columns);
        EXPECT_EQ(0, r.status);
        std::vector<std::string> times;
        std::string out = without_times(r.out, &times);
        for (const std::string& t : times) EXPECT_TRUE(std::regex_match(t, std::regex("00:0[0-9]:[0-5][0-9]"))) << t;
        return out;
    }
    // The output between the settings report and the summary.
    static std::string progress_part(const std::string& out) {
        size_t from = out.find("Bits            : 10\n");
        size_t to = out.rfind("\nFinished ");
        if (from == std::string::npos || to == std::string::npos) return out;
        from += 21;
        return to > from ? out.substr(from, to - from) : std::string();
    }

    testrun::scratch_dir dir;
};

std::string bar_line(const std::string& escape, const std::string& percent, int stars, int blanks) {
    return escape + percent + "|" + std::string(size_t(stars), '*') + std::string(size_t(blanks), ' ') + "|" +
           std::string(14, ' ') + "hh:mm:ss";
}

TEST_F(Progress, FourJobsOnTerminalsOf80And120And300Columns) {
    for (int columns : {80, 120, 300}) {
        SCOPED_TRACE(testing::Message() << columns << " columns");
        std::vector<std::string> names = frames(4);
        EXPECT_EQ(testrun::golden("terminal_" + std::to_string(columns) + ".txt"), run(names, columns));
    }
}

TEST_F(Progress, StartLineThenOneBarPerJobWithPercentagesTruncated) {
    const std::string start = "Starting Process...";
    struct bar_case { int jobs, columns; std::string progress; };
    const bar_case cases[] = {
        {1, 80, start + std::string(61, ' ') + bar_line("\033[80D", "100% ", 51, 0)},
        {3, 80, start + std::string(61, ' ') + bar_line("\033[80D", "33%  ", 17, 34) +
                    bar_line("\033[80D", "66%  ", 34, 17) + bar_line("\033[80D", "100% ", 51, 0)},
        // 25 columns leave no room for a bar; 30 leave room for one cell.
        {2, 25, start + std::string(6, ' ') + "\033[25D50%  hh:mm:ss" + "\033[25D100% hh:mm:ss"},
        {2, 30, start + std::string(11, ' ') + bar_line("\033[30D", "50%  ", 0, 1) +
                    bar_line("\033[30D", "100% ", 1, 0)},
    };
    for (const bar_case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.jobs << " jobs on " << c.columns << " columns");
        EXPECT_EQ(c.progress, progress_part(run(frames(c.jobs), c.columns)));
    }
}

TEST_F(Progress, NothingIsDrawnOffATerminal) {
    testrun::outcome r = testrun::run_piped(dir.path(), frames(2));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", progress_part(r.out));
}

}  // namespace
