// Runs tarvex where it cannot write: a read-only folder beside the inputs,
// a read-only or missing -c folder, and a file-size limit that cuts the
// image writes short as a full disk would.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/dpx_bytes.h"
#include "support/tarvex_process.h"

namespace {

using testrun::run_options;
using run_result = testrun::outcome;
using testrun::scratch_dir;
using testdata::bytes;

const char kOpenFailed[] = "Could not swap DPX to local byte ordering because it could not open the file!";
const char kImageWriteFailed[] =
    "Could not swap DPX to local byte ordering because it could not write the image file!";

// A big-endian frame (needs the swap pass) and a host-order one that only
// the settings pass touches once the run asks for transfer 2.
struct two_frames {
    bytes swapped;
    bytes host;
    two_frames() {
        testdata::dpx_layout layout;
        layout.image_offset = layout.element_offset = 4096;
        swapped = testdata::make_dpx(layout);
        layout.big_endian = false;
        host = testdata::make_dpx(layout);
    }
};

// Writes the two frames into `folder` as big.dpx and host.dpx.
void write_frames(const std::string& folder, const two_frames& frames) {
    ASSERT_TRUE(testdata::write_file(folder + "/big.dpx", frames.swapped));
    ASSERT_TRUE(testdata::write_file(folder + "/host.dpx", frames.host));
}

// The swap pass cannot open its output and says so; the settings pass cannot
// open its output either and deliberately says nothing and counts nothing.
void expect_open_failures(const run_result& r) {
    EXPECT_EQ(r.status, 0) << r.err;
    ASSERT_NE(r.status, 125) << "could not switch to an unprivileged user";
    EXPECT_EQ(r.errors, std::vector<std::string>{kOpenFailed});
    EXPECT_EQ(r.finished, 2);
    EXPECT_EQ(r.failed, 1);
}

TEST(Unwritable, ReadOnlyFolderBesideTheInputs) {
    scratch_dir dir("tarvex-unwritable");
    ::chmod(dir.path().c_str(), 0755);
    const std::string folder = dir / "frames";
    ::mkdir(folder.c_str(), 0755);
    two_frames frames;
    write_frames(folder, frames);
    ::chmod(folder.c_str(), 0555);

    run_options o;
    o.args = {"-t", "2", folder + "/big.dpx", folder + "/host.dpx"};
    o.unprivileged = true;
    run_result r = testrun::run_tarvex(o);

    expect_open_failures(r);
    EXPECT_EQ(testdata::read_file(folder + "/big.dpx"), frames.swapped);
    EXPECT_EQ(testdata::read_file(folder + "/host.dpx"), frames.host);
    EXPECT_EQ(dir.names("frames"), (std::vector<std::string>{"big.dpx", "host.dpx"}));
}

TEST(Unwritable, ReadOnlyOutputFolder) {
    scratch_dir dir("tarvex-unwritable");
    ::chmod(dir.path().c_str(), 0755);
    const std::string out = dir / "out";
    ::mkdir(out.c_str(), 0555);
    two_frames frames;
    write_frames(dir.path(), frames);

    run_options o;
    o.args = {"-t", "2", "-c", out, dir / "big.dpx", dir / "host.dpx"};
    o.unprivileged = true;
    run_result r = testrun::run_tarvex(o);

    expect_open_failures(r);
    EXPECT_EQ(testdata::read_file(dir / "big.dpx"), frames.swapped);
    EXPECT_EQ(testdata::read_file(dir / "host.dpx"), frames.host);
    EXPECT_TRUE(dir.names("out").empty());
}

TEST(Unwritable, MissingOutputFolderIsNotCreated) {
    scratch_dir dir("tarvex-unwritable");
    two_frames frames;
    write_frames(dir.path(), frames);

    run_options o;
    o.args = {"-t", "2", "-c", dir / "no/such/folder", dir / "big.dpx", dir / "host.dpx"};
    run_result r = testrun::run_tarvex(o);

    expect_open_failures(r);
    EXPECT_EQ(testdata::read_file(dir / "big.dpx"), frames.swapped);
    EXPECT_EQ(testdata::read_file(dir / "host.dpx"), frames.host);
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"big.dpx", "host.dpx"}));
}

// A file-size limit just past the image offset: the image write gets part
// of the way and then fails as on a full disk, in the swap pass, in the
// settings pass (where it counts twice) and in an output folder, which is
// left with no partial frame.
TEST(Unwritable, DiskFullDuringTheImageWrite) {
    struct disk_full_case { const char* what; std::vector<std::string> args; const char* input; int failed; };
    const std::vector<disk_full_case> cases = {
        {"swap pass", {"big.dpx"}, "big.dpx", 1},
        {"settings pass", {"-t", "2", "host.dpx"}, "host.dpx", 2},
        {"output folder", {"-c", "out", "big.dpx"}, "big.dpx", 1},
    };
    for (const disk_full_case& c : cases) {
        SCOPED_TRACE(c.what);
        scratch_dir dir("tarvex-unwritable");
        two_frames frames;
        write_frames(dir.path(), frames);
        ::mkdir((dir / "out").c_str(), 0755);

        run_options o;
        for (const auto& a : c.args) o.args.push_back(a[0] == '-' || a == "2" ? a : dir / a);
        o.file_size_limit = 4096 + 20;
        run_result r = testrun::run_tarvex(o);

        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.errors, std::vector<std::string>{kImageWriteFailed});
        EXPECT_EQ(r.failed, c.failed);
        EXPECT_EQ(testdata::read_file(dir / c.input),
                  std::string(c.input) == "big.dpx" ? frames.swapped : frames.host);
        EXPECT_EQ(dir.names(), (std::vector<std::string>{"big.dpx", "host.dpx", "out"}));
        EXPECT_TRUE(dir.names("out").empty());
    }
}

}  // namespace
