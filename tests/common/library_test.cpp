// The runtime library: stack and texts against standard ones, numbers, encodings, paths and file operations.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/stack.h"
#include "common/stream.h"
#include "common/unicode.h"
#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using common::file;
using common::stream;
using common::unicode;
constexpr common::io_result ok = common::io_result::ok, failed = common::io_result::failed;
using ints = std::vector<long>;
using strings = std::vector<std::string>;
ints released;
void record(long v) { released.push_back(v); }
int greater(const long* a, const long* b) { return *a > *b; }
std::string utf8(const unicode& u) {
    std::vector<char> buf(size_t(u.length()) * 4 + 1);
    return u.copy_to(buf.data(), buf.size(), unicode::utf8);
}
std::string message(const std::function<void()>& body) {  // of the common::exception `body` throws
    try { body(); } catch (const common::exception& e) { return utf8(e.message); }
    return "no exception";
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
                               {"shot", "shot10", 0}, {"A", "a", 0}, {"a", "A", 0}}) {  // a prefix goes first
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
    stream t("Scan_0001.Dpx \xE9"), up(t), low;
    up.to_upper(), low = up, low.to_lower();
    t.append(file("/p")), t.append(file()), t.append(unicode(" \xC3\xA9\xE2\x82\xAC")), t.append(unicode());
    EXPECT_EQ(std::string(t.c_str()) + "|" + up.c_str() + "|" + low.c_str(),
              "Scan_0001.Dpx \xE9/p \xC3\xA9\xE2\x82\xAC|SCAN_0001.DPX \xE9|scan_0001.dpx \xE9");
}

// Fractions are single precision (float(1.1) is 1.1000000238...); 64-bit unicode forms print their low word.
TEST(Library, NumbersPrintInDecimalWithNineFractionDigits) {
    stream s;
    for (int32_t v : {INT32_MIN, -12, 0, 7, INT32_MAX}) s.append(v), s.append(',');
    s.append(uint32_t(4294967295u));
    for (double v : {1.5, -2.25, 0.0, -0.5, 65535.75, 4294967295.0, 1.1, 1e20, -1e300, double(NAN), -double(INFINITY)})
        s.append(' '), s.append(v);
    EXPECT_STREQ(s.c_str(), "-2147483648,-12,0,7,2147483647,4294967295 1.500000000 -2.250000000 0.000000000 "
                            "-0.500000000 65535.750000000 4294967295.000000000 1.100000024 4294967295.000000000 "
                            "-4294967295.000000000 0.000000000 -4294967295.000000000");
    char text[common::number_text_size];
    EXPECT_STREQ(common::decimal_text(text, UINT64_MAX, true), "-18446744073709551615");
    unicode u;
    u << INT_MIN << "|" << static_cast<short>(-32768) << "|" << static_cast<unsigned char>(255) << "|" << 4294967295u
      << "|" << uint64_t(42) << "|" << uint64_t(0) << "|" << uint64_t(0x100000005ull) << "|" << int64_t(-5000000000LL);
    EXPECT_EQ(utf8(u << "|" << 2.5), "-2147483648|-32768|255|4294967295|042|0|05|-705032704|2.500000000");
}

// Random edits from UTF-8 characters of one to four bytes against a u16string; inserts clamp to 0 .. length - 1.
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
    unicode grown;  // single units double the block; a text makes room for twice its size
    for (char16_t c : std::u16string(u"abcde")) grown.append(c);
    EXPECT_EQ((std::vector<int>{grown.capacity(), (grown << "xyz").capacity()}), (std::vector<int>{8, 11}));
    EXPECT_TRUE(unicode("abc").compare(unicode("abd")) > 0 && unicode("abc").compare(unicode()) == -1);
}

// Only UTF-8 and the system set are terminated; ASCII fails as a whole on a letter it cannot hold.
TEST(Library, UnicodeConvertsEveryEncoding) {
    EXPECT_EQ(utf8(unicode("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80")), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    for (auto [encoding, bytes] : {std::pair{unicode::utf16le, "\xE9\x00"s}, {unicode::utf16be, "\x00\xE9"s},
             {unicode::latin1, "\xE9"s}, {unicode::utf32le, "\xE9\x00\x00\x00"s}, {unicode::system8, "\xE9\x00"s},
             {unicode::utf32be, "\x00\x00\x00\xE9"s}, {unicode::utf8, "\xC3\xA9\x00"s}, {unicode::ascii, "\x00"s}}) {
        std::string buf(8, '#');
        unicode("\xC3\xA9").copy_to(&buf[0], buf.size(), encoding);
        EXPECT_EQ(buf.substr(0, bytes.size() + 1), bytes + '#') << "encoding " << encoding;
    }
    char name[16], keep[8] = "keep", tiny[4], out[16], one[1];
    EXPECT_EQ(std::string(unicode::encoding_name(name, 16, unicode::utf32le)) + unicode::encoding_name(keep, 8, 8) +
                  unicode::encoding_name(tiny, 4, unicode::utf16be), "UTF-32LEkeepUTF");
    size_t out_size = sizeof out, in_size = 2;
    EXPECT_EQ(unicode::convert(unicode::utf32be, out, &out_size, unicode::utf8, "ab", &in_size), 0);
    EXPECT_EQ(std::string(out, out_size) + char('0' + in_size), "\0\0\0a\0\0\0b2"s);
    out_size = 2, in_size = 3;
    EXPECT_TRUE(unicode::convert(unicode::ascii, out, &out_size, unicode::utf8, "abc", &in_size) == -1 &&
                out_size == 0 && in_size == 0 && out[0] == 0) << "a failed conversion keeps nothing";
    out_size = sizeof out, in_size = 1, out[0] = '#';
    EXPECT_TRUE(unicode::convert(9, out, &out_size, unicode::utf8, "a", &in_size) == -1 && out_size == sizeof out &&
                out[0] == '#') << "an unknown encoding touches nothing";
    in_size = 0;
    EXPECT_EQ(message([&] { unicode("abc").copy_to(one, sizeof one, unicode::utf8); }) + "|" +
                  message([&] { unicode::convert(unicode::utf8, out, &out_size, 4, "x", &in_size); }) + "|" +
                  message([&] { unicode("abc").copy_to(nullptr, 16, unicode::utf16be); }),
              "unicode::convert() out of range!|unicode::convert() out of range!|"
              "unicode::convert() missing arguments!");
    unicode u("abc"), huge;  // a length no real block could back is refused before anything moves
    huge.impl.length = 0x3fffffff, huge.impl.data = huge.impl.begin = const_cast<unsigned short*>(u.data());
    EXPECT_THROW(u.append(huge), common::_throw_bad_allocation);
    huge.impl.data = nullptr;  // not its block
    EXPECT_EQ(utf8(u), "abc");
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
// text_in_form copies it as it is and convert_to empties the path. Packing writes size, text and form.
TEST(Library, PathFormsAndPacking) {
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
    file f, back;
    f.assign(file::url, "/tmp");
    std::string packed(16, '\xAA'), expected = packed;
    const int32_t text_size = 5, form = file::url;
    std::memcpy(&expected[0], &text_size, 4), std::memcpy(&expected[4], "/tmp", 5), std::memcpy(&expected[9], &form, 4);
    uint32_t size = 0, read_size = 0;
    EXPECT_TRUE(f.pack_data(&packed[0], &size) == ok && back.unpack_data(&packed[0], &read_size) == ok);
    EXPECT_TRUE(packed == expected && size + read_size == 26 && back.form == form && !strcmp(back.c_str(), "/tmp"));
    EXPECT_EQ(testrun::stdout_of([&] { EXPECT_TRUE(f.pack_data(nullptr, &size) == failed &&
                                                   f.unpack_data(nullptr, &size) == failed); }),
              "file::pack_data, ERROR no buffer to pack the data in.\n file::unpack_data, ERROR no buffer to unpack.\n");
    EXPECT_TRUE(size == 13 && f.c_str() == std::string("/tmp"));
}

TEST(Library, FileSystemOperations) {
    testrun::scratch_dir dir("tarvex-file");
    auto at = [&](const std::string& name, int form = file::posix_path) {  // `name` in the folder, in `form`
        file f((dir / name).c_str());
        return f.convert_to(form), f;
    };
    std::string content(8193, 'x');  // the last read of a copy gets one byte
    for (size_t i = 0; i < content.size(); ++i) content[i] = char('A' + i % 23);
    dir.touch("a", content);
    int is_file = -1, is_dir = -1;
    file url = at("a", file::url), none;
    EXPECT_TRUE(at("a").exists(&is_file) && at("").exists(&is_dir) && is_file == 0 && is_dir == 1 && !none.exists() &&
                !at("missing").exists() && none.create_directory(0755) == common::directory_result::made);
    EXPECT_TRUE(url.exists() && url.form == file::url && url.c_str() == std::string(at("a", file::url).c_str()));
    EXPECT_TRUE(at("a").change_mode(0606) == ok && at("missing").change_mode(0600) == failed);
    struct stat st;
    EXPECT_TRUE(::stat((dir / "a").c_str(), &st) == 0 && at("a").change_time() == uint32_t(st.st_ctime) &&
                at("missing").change_time() == 0xFFFFFFFFu);
    mode_t old_mask = ::umask(022);
    EXPECT_TRUE(url.copy_to(at("copy")) == ok);
    ::umask(old_mask);
    EXPECT_EQ(testdata::read_file(dir / "copy"), testdata::bytes(content.begin(), content.end()));
    EXPECT_TRUE(::stat((dir / "copy").c_str(), &st) == 0 && (st.st_mode & 07777) == 0606) << "mode kept, umask or not";
    EXPECT_TRUE(at("a").copy_to(at("a")) == failed && at("").copy_to(at("d")) == failed &&
                at("missing").copy_to(at("d")) == failed && fs::file_size(dir / "a") == content.size())
        << "refused; copying onto itself must not truncate";
    EXPECT_EQ((std::vector{at("a").link_to(at("link")), at("a").link_to(at("link")), at("a", file::url).rename_to(at("b")),
                           at("a").rename_to(at("c")), at("b").remove(), at("b").remove(), none.remove(), none.change_mode(0),
                           none.link_to(none), none.rename_to(none), none.copy_to(none), none.remove_tree()}),
              (std::vector{ok, failed, ok, failed, ok, failed, ok, ok, ok, ok, ok, ok})) << "an empty path does nothing";
    EXPECT_TRUE(fs::read_symlink(dir / "link") == dir / "a" && dir.names() == (strings{"copy", "link"}));
    // Missing parents are made (0; 2: already there; 1: failed), but never a folder inside one named "Volumes".
    fs::create_directories(dir / "x"), fs::create_directories(dir / "Volumes2");
    for (const strings& r : {strings{"x/y/z", "0"}, {"x/y/z", "2"}, {"p/q/r/s", "0"}, {"copy/sub", "1"},
                             {"Volumes/disk/shots", "1"}, {"Volumes2/a/b", "0"}}) {
        EXPECT_EQ(int(at(r[0]).create_directory(0755)), std::stoi(r[1])) << r[0];
        EXPECT_EQ(fs::is_directory(dir / r[0]), r[1] != "1") << r[0];
    }
    EXPECT_TRUE(fs::create_directory(dir / "Volumes") && int(at("Volumes/disk").create_directory(0755)) == 0);
    for (const char* f : {"tree/1", "tree/a/2", "tree/a/b/3", "tree/a/b/c/4", "tree/d/5", "outside/keep"}) dir.touch(f);
    fs::create_directory_symlink(dir / "outside", dir / "tree/a/link");
    EXPECT_TRUE(at("tree/").remove_tree() == ok && at("tree").remove_tree() == ok);
    EXPECT_TRUE(!fs::exists(dir / "tree") && fs::exists(dir / "outside/keep")) << "a link is removed, never followed";
}

// Runs of consecutive frames of the sequence a name belongs to, in name order (s.1, s.10, s.2: 1-1, 10-2).
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
}

}  // namespace
