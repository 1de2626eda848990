// The runtime library: stack and texts against standard ones, numbers, paths and frame ranges.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/stack.h"
#include "common/stream.h"
#include "common/unicode.h"
#include "support/tarvex_process.h"

namespace {

using common::file;
using common::stream;
using common::unicode;
using ints = std::vector<long>;
using strings = std::vector<std::string>;
ints released;
void record(long v) { released.push_back(v); }
int greater(const long* a, const long* b) { return *a > *b; }
std::string utf8(const unicode& u) {
    std::vector<char> buf(size_t(u.length()) * 4 + 1);
    return u.copy_to(buf.data(), buf.size(), unicode::utf8);
}

// A script pins the growth (to 2 * count + 1) and the shrink (to exactly full once more than half the slots
// are unused); random inserts and removes (~i: remove element i) follow, then a sort, all against a vector.
TEST(Library, StackFollowsAVectorModel) {
    const int script[][2] = {{0, 1}, {1, 3}, {2, 3}, {1, 7}, {4, 7}, {5, 7}, {6, 7}, {7, 15}, {~7, 15}, {~0, 6},
                             {6, 13}, {~6, 13}, {~0, 5}, {~0, 5}, {~0, 5}, {~0, 5}, {~0, 1}, {~0, 0}};  // at, capacity
    std::mt19937 rng(13);
    ints model;
    {
        common::stack<long> s(record);
        EXPECT_THROW(*s.begin(), common::_throw_empty_allocation);
        for (int i = 0; i < 3000; ++i) {
            const int n = int(model.size()), random = rng() % 3 ? int(rng() % unsigned(n + 1)) : ~int(rng() % unsigned(std::max(n, 1)));
            const int at = i < 18 ? script[i][0] : n || random >= 0 ? random : 0, value = int(rng() % 50) - 25;
            const ints gone = at < 0 ? ints{model[size_t(~at)]} : ints{};
            released.clear();
            if (at >= 0) s.insert(value, at), model.insert(model.begin() + at, value);
            if (at < 0) s.remove(~at), model.erase(model.begin() + ~at);
            ASSERT_EQ(ints(s.data, s.data + s.count), model) << "step " << i;
            ASSERT_TRUE(released == gone && s.size() <= s.capacity() && (s.data == nullptr) == model.empty() &&
                        (i >= 18 || s.capacity() == script[i][1])) << "step " << i << ", capacity " << s.capacity();
        }
        const int n = s.size();
        for (const auto& refused : std::initializer_list<std::function<void()>>{[&] { s.insert(0, -1); },
                 [&] { s.insert(0, n + 1); }, [&] { s.remove(-1); }, [&] { s.remove(n); }, [&] { s[-1]; },
                 [&] { s[n]; }, [&] { s.end() - s.begin(); }, [&] { s.begin() - s.end(); }})
            EXPECT_THROW(refused(), common::_throw_out_of_range);
        EXPECT_TRUE(s.at(2) - s.at(0) == 2 && s.at(0) - s.at(0) == 0 && s.begin() == s.at(0) && s.begin() != s.at(1));
        s.sort(greater), std::sort(model.begin(), model.end()), released.clear();
        EXPECT_EQ(ints(s.data, s.data + s.count), model) << "refused calls change nothing; sorted like std::sort";
    }
    EXPECT_EQ(released, model) << "destruction releases in index order";
    for (auto [a, b, after] : {std::tuple{"SHOT9", "shot10", 1}, {"shot10", "SHOT9", 0}, {"shot10", "shot", 1},
                               {"shot", "shot10", 0}, {"A", "a", 0}, {"b", "A", 1}}) {  // a prefix goes first
        char *x = const_cast<char*>(a), *y = const_cast<char*>(b);
        EXPECT_EQ(common::compare_cstrings(&x, &y), after) << a << " after " << b;
    }
}

// Erasing from..to removes them (only `to` when reversed) while `to` lies in the text, else keeps the first
// from - 1 bytes; truncating to n keeps n - 1 bytes; assigning allocates exactly.
TEST(Library, StreamFollowsAStringModel) {
    const char* pieces[] = {"", "a", "bc", "defgh", "klmnopqrstuv"};
    std::mt19937 rng(11);
    stream s;
    std::string m;
    for (int i = 0; i < 6000; ++i) {
        const int len = int(m.size()), a = int(rng() % 18) - 3, b = int(rng() % 18) - 3;
        const int op = len > 24 ? 4 + i % 2 : int(rng() % 7);
        const std::string p = pieces[rng() % 5], own = m.substr(size_t(std::clamp(b, 0, len)));
        auto clamped = [&](int x) { return size_t(std::clamp(x, 0, len)); };
        if (op == 0) s.assign(p.empty() && a < 0 ? nullptr : p.c_str()), m = p;
        if (op == 1) s.append(p.c_str()), s.append(stream(p.c_str())), s.append('!'), m += p + p + "!";
        if (op == 2) s.insert(p.c_str(), a), m.insert(clamped(a), p);
        if (op == 3) s.append(s.c_str() + clamped(b)), m += own;
        if (op == 6) s.insert(s.c_str() + clamped(b), a), m.insert(clamped(a), own);
        if (op == 4) s.erase(a, b);
        if (op == 4 && b < len && a >= 0 && b >= 0) m.erase(size_t(std::min(a, b)), size_t(b - std::min(a, b) + 1));
        if (op == 4 && b >= len) m.resize(clamped(a - 1));
        if (op == 5) s.truncate(a), m.resize(a <= 1 ? 0 : clamped(a - 1));
        ASSERT_EQ(s.c_str(), m) << "step " << i << ", op " << op << " " << a << " " << b;
        ASSERT_TRUE(s.length() == int32_t(m.size()) && (s.data == nullptr && s.size == 0) == m.empty());
        ASSERT_TRUE(m.empty() || (s.top == s.data + m.size() && s.top <= s.last && (op || s.capacity() == s.size)));
    }
    stream t("scan_0001.Dpx \xE9"), up(t), low;
    up.to_upper(), low = up, low.to_lower();
    t.append(file("/p")), t.append(file()), t.append(unicode(" \xC3\xA9\xE2\x82\xAC")), t.append(unicode());
    EXPECT_EQ(std::string(t.c_str()) + "|" + up.c_str() + "|" + low.c_str(),
              "scan_0001.Dpx \xE9/p \xC3\xA9\xE2\x82\xAC|SCAN_0001.DPX \xE9|scan_0001.dpx \xE9");
}

// Random edits from UTF-8 characters of one to four bytes against a u16string; inserts clamp to 0 .. length - 1.
// Numbers print in decimal, 64-bit ones by their low word.
TEST(Library, UnicodeFollowsAU16StringModel) {
    const std::pair<const char*, std::u16string> pieces[] = {
        {"a", u"a"}, {"\xC3\xA9", u"\u00E9"}, {"\xE2\x82\xAC x", u"\u20AC x"}, {"\xF0\x9F\x98\x80", u"\U0001F600"}};
    const char* invalid[] = {"ok\xC3\x28", "\xE2\x82", "\xFF", "", nullptr};  // give an empty string
    std::mt19937 rng(3);
    unicode u, copy("seed");
    std::u16string m;
    for (int i = 0; i < 3000; ++i) {
        const int len = int(m.size()), at = int(rng() % 12) - 2, op = len > 30 ? 5 : int(rng() % 7);
        const auto& [text, units] = pieces[rng() % 4];
        const size_t clamped = m.empty() ? 0 : size_t(std::clamp(at, 0, len - 1));
        if (op == 0) u.append(units[0]), m += units[0];
        if (op == 1) u << text, m += units;
        if (op == 2) u.insert(unicode(text), at), m.insert(clamped, units);
        if (op == 3) u.insert(units[0], at), m.insert(clamped, 1, units[0]);
        if (op == 4) u << u, m += m;
        if (op == 5) u.set_length(at), m.resize(at < 1 ? 0 : size_t(std::min(at, len)));
        if (op == 6) u.assign_utf8(invalid[rng() % 5]), m.clear();
        copy = u;
        ASSERT_EQ(std::u16string(u.data(), u.data() + u.length()), m) << "step " << i << " op " << op;
        ASSERT_TRUE(copy.compare(u) == (m.empty() ? -1 : 0) && copy.capacity() == int(m.size()) &&
                    (u.data() == nullptr) == m.empty() && (m.empty() || u.impl.last == u.impl.begin + m.size()));
    }
    EXPECT_TRUE(unicode("abc").compare(unicode("abd")) > 0 && unicode("abc").compare(unicode()) == -1);
    unicode n;
    n << INT_MIN << "|" << static_cast<short>(-32768) << "|" << static_cast<unsigned char>(255) << "|" << 4294967295u
      << "|" << uint64_t(42) << "|" << uint64_t(0) << "|" << uint64_t(0x100000005ull) << "|" << int64_t(-5000000000LL);
    EXPECT_EQ(utf8(n << "|" << 2.5), "-2147483648|-32768|255|4294967295|042|0|05|-705032704|2.500000000");
}

// Rows are a path and "name|base name|extension|parent": trailing "/" are skipped, a dot in a folder is no
// extension, a path of one or two bytes has no parent; then "path|replace" and "changed|path" of change_extension.
TEST(Library, PathArithmetic) {
    for (const strings& r : {strings{"/shots/reel.1/scan.0001.dpx", "scan.0001.dpx|scan.0001|dpx|/shots/reel.1/"},
                             {"/shots/reel.1///", "reel.1|reel|1|/shots/"}, {"/a.b/scan", "scan|scan||/a.b/"},
                             {"ab", "ab|ab||"}, {"a", "a|a||a"}, {"/a", "a|a||/"}, {"/", "|||/"}, {"x/y/", "y|y||x/"},
                             {"///", "|||"}}) {
        file f(r[0].c_str());
        char name[64] = "dirty", base[64] = "dirty", ext[64] = "dirty";
        std::string parts = std::string(f.name(name, 64)) + "|" + f.base_name(base, 64) + "|" + f.extension(ext, 64);
        f.parent();
        EXPECT_EQ(parts + "|" + f.c_str(), r[1]) << r[0];
        EXPECT_EQ(f.size, f.data ? int32_t(std::strlen(f.c_str()) + 1) : 0) << r[0];
    }
    for (const strings& r : {strings{"scan|1", "1|scan.cin"}, {"scan.CIN|1", "1|scan.cin"}, {"x/|1", "0|x/"},
                             {"scan.cin|1", "0|scan.cin"}, {"/r/s.0001.dpx|1", "1|/r/s.0001.cin"},
                             {"/r.d/s|1", "1|/r.d/s.cin"}, {"scan.CIN|0", "1|scan.CIN.cin"}, {"|1", "0|"}}) {
        file f(r[0].substr(0, r[0].size() - 2).c_str());
        const bool changed = f.change_extension("cin", r[0].back() - '0');  // before c_str(): it may move the text
        EXPECT_EQ(std::to_string(changed) + "|" + f.c_str(), r[1]) << r[0];
    }
    file f("/r/scan.dpx"), g("n"), h("/x/"), copy;
    char small[4] = "xyz", one[2] = "x";
    EXPECT_STREQ(f.name(small, sizeof small), "sca");
    EXPECT_STREQ(f.name(small, 0), "sca") << "no room: untouched";
    EXPECT_EQ(std::string(f.text_in_form(file::url, one, 1)) + (f.name(nullptr, 10) ? "?" : ""), "");
    g.append_number(uint64_t(0)), g.append_number(int64_t(-12)), g.append_number(INT64_MIN);
    g.append_number(UINT64_MAX);
    h.append_texts(1, 3, "a", "/", "b.dpx"), h.append(file("-c")), h.append(file());
    EXPECT_EQ(std::string(g.c_str()) + "|" + h.c_str(), "n0-12-922337203685477580818446744073709551615|/x/a/b.dpx-c");
    h.replace_last(1, "other.dpx"), copy = h, copy = *&copy;
    EXPECT_STREQ(file(copy).c_str(), "/x/a/other.dpx");
    copy.assign(0, nullptr), h.assign(3, "");
    EXPECT_TRUE(copy.empty() && copy.form == 1 && h.empty() && h.form == 3) << "null keeps the form, \"\" takes it";
    file grown;  // an empty path takes the appended text's form; the text grows, also by its own end
    grown.append(2, "/tmp"), grown.add_separator(), grown.add_separator(), grown.append(2, "");
    for (int i = 0; i < 3; ++i) grown.append(2, "x"), grown.add_separator(0), grown.append(2, grown.c_str() + 1);
    EXPECT_EQ(grown.c_str() + std::to_string(grown.form), "/tmp/xtmp/xxtmp/xtmp/xxxtmp/xtmp/xxtmp/xtmp/xxx2");
    EXPECT_TRUE(grown.top == grown.data + 47 && grown.top <= grown.last);
}

// Rows are the text's form and text, the form wanted and the result; "-": the text cannot be converted, so
// text_in_form copies it as it is and convert_to empties the path.
TEST(Library, PathForms) {
    for (const strings& r : {strings{"1", "/tmp/a b/\xC3\xA9%.dpx", "3", "file:///tmp/a%20b/%C3%A9%25.dpx"},
                             {"3", "file:///tmp/a%20b/%C3%A9%25.dpx", "0", "/tmp/a b/\xC3\xA9%.dpx"},
                             {"1", "rel/a b", "3", "rel/a%20b"}, {"3", "file://localhost/x/y%2Fz?q#f", "2", "/x/y/z"},
                             {"0", "/a", "2", "/a"}, {"3", "http://h/x", "1", "-"}, {"3", "file://server/x", "1", "-"},
                             {"3", "file:///%zz", "1", "-"}, {"3", "file:///%00", "1", "-"}, {"4", "/a b", "3", "-"}}) {
        file f;
        f.assign(std::stoi(r[0]), r[1].c_str());
        char buf[64];
        EXPECT_EQ(f.text_in_form(std::stoi(r[2]), buf, sizeof buf), r[3] == "-" ? r[1] : r[3]);
        f.convert_to(std::stoi(r[2]));
        EXPECT_EQ(f.c_str() + std::to_string(f.form), (r[3] == "-" ? "" : r[3]) + r[2]) << r[1];
    }
}

// Runs of consecutive frames of the sequence a name belongs to, in name order (s.1, s.10, s.2: 1-1, 10-2);
// then a frame is removed once and refused once it is gone.
TEST(Library, FrameRangesSplitAtGaps) {
    testrun::scratch_dir dir("tarvex-frames");
    for (const char* f : {"shot.0001.dpx", "shot.0002.dpx", "shot.0003.dpx", "shot.0005.dpx", "shot.0006.dpx",
                          "shot.0010.dpx", "other.0004.dpx", "shot.0004.cin", "shot.00x7.dpx", "shot.dpx", "s.1.dpx",
                          "shot0007.dpx", "shot0008.dpx", "shot0009.dpx", "shot 0100.dpx", "shot 0101.dpx", "s.2.dpx",
                          "shot 0103.dpx", "lone.0001.dpx", "s.10.dpx", ".0001.x", ".0002.x"})
        dir.touch(f);
    for (const strings& r : {strings{"shot.0002.dpx", "1:1-3 5-6 10-10 "}, {"shot0008.dpx", "1:7-9 "},
                             {".0001.x", "1:1-2 "}, {"s.1.dpx", "1:1-1 10-2 "}, {"shot 0101.dpx", "1:100-101 103-103 "},
                             {"no/s.1.dpx", "0:"}, {"lone.0001.dpx", "0:"}}) {
        common::stack<kel_fileRange_t*> out([](kel_fileRange_t* range) { std::free(range); });
        std::string found = std::to_string(file((dir / r[0]).c_str()).frame_ranges(out)) + ":";
        for (int32_t i = 0; i < out.size(); ++i)
            found += std::to_string(out[i]->first) + "-" + std::to_string(out[i]->last) + " ";
        EXPECT_EQ(found, r[1]) << r[0];
    }
    file lone((dir / "lone.0001.dpx").c_str());
    EXPECT_TRUE(lone.remove() == common::io_result::ok && lone.remove() == common::io_result::failed);
}

}  // namespace
