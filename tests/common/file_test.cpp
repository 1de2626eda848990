#include "common/file.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

namespace fs = std::filesystem;
using common::file;

std::string name_of(const file& f) {
    char buf[256];
    return f.name(buf, sizeof buf);
}

std::string base_of(const file& f) {
    char buf[256];
    return f.base_name(buf, sizeof buf);
}

std::string extension_of(const file& f) {
    char buf[256];
    return f.extension(buf, sizeof buf);
}

TEST(FileTest, AssignSetsFormSizeAndPointers) {
    file f;
    f.assign(2, "/tmp/x");
    EXPECT_STREQ(f.c_str(), "/tmp/x");
    EXPECT_EQ(f.form, 2);
    EXPECT_EQ(f.size, 7);
    EXPECT_EQ(f.top, f.data + 6);
    EXPECT_EQ(f.last, f.top);
    f.assign(0, nullptr);
    EXPECT_EQ(f.data, nullptr);
    EXPECT_EQ(f.size, 0);
    EXPECT_EQ(f.form, 2) << "a null text keeps the form";
    f.assign(3, "");
    EXPECT_EQ(f.data, nullptr);
    EXPECT_EQ(f.form, 3) << "an empty text takes the form";
    file copy(file("/a/b"));
    EXPECT_STREQ(copy.c_str(), "/a/b");
    copy = copy;
    EXPECT_STREQ(copy.c_str(), "/a/b");
}

TEST(FileTest, ParentDropsTheLastComponent) {
    struct case_t {
        const char* path;
        const char* parent;
    } cases[] = {
        {"/a/b///", "/a/"}, {"/a", "/"}, {"ab", ""}, {"a", "a"}, {"/a/b", "/a/"},
        {"/", "/"},         {"x/y/", "x/"}, {"///", ""},
    };
    for (const case_t& c : cases) {
        file f(c.path);
        f.parent();
        EXPECT_STREQ(f.c_str(), c.parent) << "parent of " << c.path;
        EXPECT_EQ(f.size, f.data ? int32_t(std::strlen(c.parent) + 1) : 0);
    }
}

TEST(FileTest, AppendsGrowTheBufferAndKeepTheText) {
    file f;
    f.append(2, "/tmp");
    EXPECT_EQ(f.form, 2) << "an empty path is assigned";
    f.add_separator();
    f.add_separator();
    f.add_separator(0);
    f.append(2, "");
    std::string model = "/tmp/";
    EXPECT_STREQ(f.c_str(), model.c_str());
    for (int i = 0; i < 20; ++i) {
        f.append(2, "seg");
        f.append_number(int64_t(i - 10));
        model += "seg" + std::to_string(i - 10);
        ASSERT_STREQ(f.c_str(), model.c_str());
        ASSERT_EQ(f.top, f.data + model.size());
        ASSERT_LE(f.top, f.last);
    }
    file g("n");
    g.append_number(uint64_t(0));
    g.append_number(int64_t(-12));
    g.append_number(INT64_MIN);
    g.append_number(UINT64_MAX);
    EXPECT_STREQ(g.c_str(), ("n0-12" + std::to_string(INT64_MIN) + std::to_string(UINT64_MAX)).c_str());
    file h("/x/");
    h.append_texts(1, 3, "a", "/", "b.dpx");
    h.append(file("-c"));
    EXPECT_STREQ(h.c_str(), "/x/a/b.dpx-c");
    h.replace_last(1, "other.dpx");
    EXPECT_STREQ(h.c_str(), "/x/a/other.dpx");
}

TEST(FileTest, NameBaseNameAndExtension) {
    // A dot in a folder name is no extension; trailing separators are skipped.
    struct case_t {
        const char *path, *name, *base, *extension;
    } cases[] = {
        {"/shots/reel.1/scan.0001.dpx", "scan.0001.dpx", "scan.0001", "dpx"},
        {"/shots/reel.1///", "reel.1", "reel", "1"},
        {"scan", "scan", "scan", ""},
        {"/a.b/scan", "scan", "scan", ""},
    };
    for (const case_t& c : cases) {
        SCOPED_TRACE(c.path);
        file f(c.path);
        EXPECT_EQ(name_of(f), c.name);
        EXPECT_EQ(base_of(f), c.base);
        EXPECT_EQ(extension_of(f), c.extension);
    }

    file f("/shots/reel.1/scan.0001.dpx");
    char small[4] = "xyz";
    EXPECT_STREQ(f.name(small, sizeof small), "sca");
    char untouched[4] = "xyz";
    EXPECT_EQ(f.name(untouched, 0), untouched);
    EXPECT_STREQ(untouched, "xyz");
    EXPECT_EQ(f.name(nullptr, 10), nullptr);
}

TEST(FileTest, ChangeExtensionReportsWhetherThePathChanged) {
    struct case_t {
        const char* path;
        int replace;
        bool changed;
        const char* result;
    } cases[] = {
        {"scan", 1, true, "scan.cin"},
        {"scan.CIN", 1, true, "scan.cin"},
        {"x/", 1, false, "x/"},
        {"scan.cin", 1, false, "scan.cin"},
        {"/r/scan.0001.dpx", 1, true, "/r/scan.0001.cin"},
        {"/r.d/scan", 1, true, "/r.d/scan.cin"},
        {"scan.CIN", 0, true, "scan.CIN.cin"},
    };
    for (const case_t& c : cases) {
        file f(c.path);
        EXPECT_EQ(f.change_extension("cin", c.replace), c.changed) << c.path;
        EXPECT_STREQ(f.c_str(), c.result) << c.path;
    }
    file empty;
    EXPECT_FALSE(empty.change_extension("cin", 1));
}

TEST(FileTest, FormsConvertBetweenPathsAndFileUrls) {
    const char* path = "/tmp/a b/\xC3\xA9%.dpx";
    file f(path);
    char buf[128];
    EXPECT_STREQ(f.text_in_form(file::url, buf, sizeof buf), "file:///tmp/a%20b/%C3%A9%25.dpx");
    EXPECT_STREQ(f.text_in_form(file::system_path, buf, sizeof buf), path);
    f.convert_to(file::url);
    EXPECT_EQ(f.form, 3);
    EXPECT_STREQ(f.c_str(), "file:///tmp/a%20b/%C3%A9%25.dpx");
    f.convert_to(file::posix_path);
    EXPECT_STREQ(f.c_str(), path);

    file local;
    local.assign(file::url, "file://localhost/x/y%2Fz?query#frag");
    local.convert_to(file::utf8_path);
    EXPECT_STREQ(local.c_str(), "/x/y/z");

    for (const char* bad : {"http://host/x", "file://server/x", "file:///x%zz", "file:///x%00y"}) {
        file remote;
        remote.assign(file::url, bad);
        EXPECT_STREQ(remote.text_in_form(file::posix_path, buf, sizeof buf), bad)
            << "an unconvertible text is copied as it is";
        remote.convert_to(file::posix_path);
        EXPECT_EQ(remote.data, nullptr) << bad;
        EXPECT_EQ(remote.form, 1);
    }
}

TEST(FileTest, PackWritesSizeTextAndForm) {
    file f("/tmp");
    unsigned char packed[32];
    std::memset(packed, 0xAA, sizeof packed);
    uint32_t size = 0;
    ASSERT_EQ(f.pack_data(packed, &size), 0);
    EXPECT_EQ(size, 13u);

    unsigned char expected[32];
    std::memset(expected, 0xAA, sizeof expected);
    const int32_t text_size = 5, form = 1;
    std::memcpy(expected + 0, &text_size, 4);
    std::memcpy(expected + 4, "/tmp", 5);
    std::memcpy(expected + 9, &form, 4);
    EXPECT_EQ(0, std::memcmp(packed, expected, sizeof packed));

    file back;
    uint32_t read_size = 0;
    ASSERT_EQ(back.unpack_data(packed, &read_size), 0);
    EXPECT_EQ(read_size, 13u);
    EXPECT_STREQ(back.c_str(), "/tmp");
    EXPECT_EQ(back.form, 1);

    file url_form;
    url_form.assign(3, "file:///x");
    url_form.pack_data(packed, &size);
    back.unpack_data(packed, &read_size);
    EXPECT_EQ(read_size, size);
    EXPECT_STREQ(back.c_str(), "file:///x");
    EXPECT_EQ(back.form, 3);
}

TEST(FileTest, PackingWithoutABufferPrintsAndChangesNothing) {
    file f("/keep");
    uint32_t size = 77;
    EXPECT_EQ(testrun::stdout_of([&] { EXPECT_EQ(f.pack_data(nullptr, &size), 1); }),
              "file::pack_data, ERROR no buffer to pack the data in.\n");
    EXPECT_EQ(testrun::stdout_of([&] { EXPECT_EQ(f.unpack_data(nullptr, &size), 1); }),
              " file::unpack_data, ERROR no buffer to unpack.\n");
    EXPECT_EQ(size, 77u);
    EXPECT_STREQ(f.c_str(), "/keep");
}

class FileSystemTest : public testing::Test {
protected:
    std::string at(const std::string& relative) const { return dir / relative; }
    void touch(const std::string& relative, const std::string& content = "x") { dir.touch(relative, content); }
    testrun::scratch_dir dir{"tarvex-file"};
};

TEST_F(FileSystemTest, ExistsTellsFilesFromDirectoriesAndKeepsTheForm) {
    touch("f");
    int is_dir = -1;
    EXPECT_TRUE(file(at("f").c_str()).exists(&is_dir));
    EXPECT_EQ(is_dir, 0);
    EXPECT_TRUE(file(dir.path().c_str()).exists(&is_dir));
    EXPECT_EQ(is_dir, 1);
    EXPECT_FALSE(file(at("missing").c_str()).exists());
    EXPECT_FALSE(file().exists());

    file as_url(at("f").c_str());
    as_url.convert_to(file::url);
    std::string url_text = as_url.c_str();
    EXPECT_TRUE(as_url.exists());
    EXPECT_EQ(as_url.form, 3);
    EXPECT_EQ(url_text, as_url.c_str());
}

TEST_F(FileSystemTest, RemoveModeLinkRenameAndChangeTime) {
    touch("a", "payload");
    file a(at("a").c_str());
    EXPECT_EQ(a.change_mode(0600), 0);
    EXPECT_EQ(fs::status(at("a")).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);

    struct stat st;
    ASSERT_EQ(::stat(at("a").c_str(), &st), 0);
    EXPECT_EQ(a.change_time(), uint32_t(st.st_ctime));
    EXPECT_EQ(file(at("missing").c_str()).change_time(), 0xFFFFFFFFu);

    EXPECT_EQ(a.link_to(file(at("link").c_str())), 0);
    EXPECT_EQ(fs::read_symlink(at("link")), at("a"));
    EXPECT_EQ(a.link_to(file(at("link").c_str())), 1) << "the link is already there";

    EXPECT_EQ(a.rename_to(file(at("b").c_str())), 0);
    EXPECT_FALSE(fs::exists(at("a")));
    EXPECT_TRUE(fs::exists(at("b")));
    EXPECT_EQ(a.rename_to(file(at("c").c_str())), 1) << "a is gone";

    EXPECT_EQ(file(at("b").c_str()).remove(), 0);
    EXPECT_FALSE(fs::exists(at("b")));
    EXPECT_EQ(file(at("b").c_str()).remove(), 1);
    EXPECT_EQ(file(at("missing").c_str()).change_mode(0600), 1);
}

TEST_F(FileSystemTest, CopyKeepsContentAndMode) {
    std::string content;
    for (int i = 0; i < 10000; ++i) content += char('A' + i % 26 + (i % 4096 == 0));
    touch("src", content);
    ASSERT_EQ(::chmod(at("src").c_str(), 0666), 0);
    mode_t old_mask = ::umask(022);
    int result = file(at("src").c_str()).copy_to(file(at("dst").c_str()));
    ::umask(old_mask);
    ASSERT_EQ(result, 0);
    EXPECT_EQ(testdata::read_file(at("dst")), testdata::bytes(content.begin(), content.end()));
    struct stat st;
    ASSERT_EQ(::stat(at("dst").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0666u);

    EXPECT_EQ(file(at("src").c_str()).copy_to(file(at("src").c_str())), 1);
    EXPECT_EQ(fs::file_size(at("src")), content.size()) << "copying onto itself must not truncate";
    EXPECT_EQ(file(at("missing").c_str()).copy_to(file(at("dst2").c_str())), 1);
    EXPECT_FALSE(fs::exists(at("dst2")));
}

TEST_F(FileSystemTest, CreateDirectoryMakesMissingParents) {
    file deep(at("x/y/z").c_str());
    fs::create_directory(at("x"));
    EXPECT_EQ(deep.create_directory(0755), 0);
    EXPECT_TRUE(fs::is_directory(at("x/y")));
    EXPECT_TRUE(fs::is_directory(at("x/y/z")));
    EXPECT_EQ(deep.create_directory(0755), 2);

    EXPECT_EQ(file(at("p/q/r/s").c_str()).create_directory(0700), 0);
    EXPECT_TRUE(fs::is_directory(at("p/q/r/s")));

    touch("plain");
    EXPECT_EQ(file(at("plain/sub").c_str()).create_directory(0755), 1);
}

TEST_F(FileSystemTest, CreateDirectoryNeverMakesAVolumesFolder) {
    EXPECT_EQ(file(at("Volumes/disk/shots").c_str()).create_directory(0755), 1);
    EXPECT_FALSE(fs::exists(at("Volumes")));
    fs::create_directory(at("Volumes"));
    EXPECT_EQ(file(at("Volumes/disk").c_str()).create_directory(0755), 0);
    fs::create_directory(at("Volumes2"));
    EXPECT_EQ(file(at("Volumes2/a/b").c_str()).create_directory(0755), 0)
        << "only a component named exactly Volumes stops the climb";
}

TEST_F(FileSystemTest, RemoveTreeRemovesEverythingButFollowsNoLink) {
    fs::create_directories(at("tree/a/b/c"));
    fs::create_directories(at("tree/d"));
    fs::create_directories(at("outside"));
    touch("outside/keep");
    for (const char* f : {"tree/1", "tree/a/2", "tree/a/b/3", "tree/a/b/c/4", "tree/d/5"}) touch(f);
    fs::create_directory_symlink(at("outside"), at("tree/a/link"));

    file tree(at("tree/").c_str());
    EXPECT_EQ(tree.remove_tree(), 0);
    EXPECT_FALSE(fs::exists(at("tree")));
    EXPECT_TRUE(fs::exists(at("outside/keep")));
    EXPECT_EQ(file(at("tree").c_str()).remove_tree(), 0) << "nothing left to remove";
}

class FrameRangeTest : public FileSystemTest {
protected:
    std::vector<std::pair<int32_t, int32_t>> ranges_of(const std::string& relative, int* result) {
        common::stack<kel_fileRange_t*> out(release_range);
        *result = file(at(relative).c_str()).frame_ranges(out);
        std::vector<std::pair<int32_t, int32_t>> found;
        for (int32_t i = 0; i < out.size(); ++i) found.emplace_back(out[i]->first, out[i]->last);
        return found;
    }
    static void release_range(kel_fileRange_t* r) { std::free(r); }
    using runs = std::vector<std::pair<int32_t, int32_t>>;
};

TEST_F(FrameRangeTest, DottedSequenceSplitsAtGaps) {
    for (const char* f : {"shot.0001.dpx", "shot.0002.dpx", "shot.0003.dpx", "shot.0005.dpx", "shot.0006.dpx",
                          "shot.0010.dpx", "other.0004.dpx", "shot.0004.cin", "shot.00x7.dpx", "shot.dpx"})
        touch(f);
    int result = 0;
    EXPECT_EQ(ranges_of("shot.0002.dpx", &result), (runs{{1, 3}, {5, 6}, {10, 10}}));
    EXPECT_EQ(result, 1);
}

TEST_F(FrameRangeTest, AttachedAndSpacedNumbersAreMatchedByTheirOwnStyle) {
    for (const char* f : {"shot0007.dpx", "shot0008.dpx", "shot0009.dpx", "shot 0100.dpx", "shot 0101.dpx",
                          "shot 0103.dpx"})
        touch(f);
    int result = 0;
    EXPECT_EQ(ranges_of("shot0008.dpx", &result), (runs{{7, 9}}));
    EXPECT_EQ(ranges_of("shot 0101.dpx", &result), (runs{{100, 101}, {103, 103}}));
}

TEST_F(FrameRangeTest, FewerThanTwoFramesOrNoFolderReportNothing) {
    touch("lone.0001.dpx");
    int result = 1;
    EXPECT_TRUE(ranges_of("lone.0001.dpx", &result).empty());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(ranges_of("missing/shot.0001.dpx", &result).empty());
    EXPECT_EQ(result, 0);
}

TEST_F(FrameRangeTest, OrderIsByNameSoUnequalWidthsSplitRuns) {
    for (const char* f : {"s.1.dpx", "s.2.dpx", "s.10.dpx"}) touch(f);
    int result = 0;
    // Sorted by name: s.1, s.10, s.2.
    EXPECT_EQ(ranges_of("s.1.dpx", &result), (runs{{1, 1}, {10, 2}}));
}

}  // namespace
