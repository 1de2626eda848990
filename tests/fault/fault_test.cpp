// tarvex where its file calls fail: each call of a run failing in turn, cut
// short or interrupted (through the preloaded fault_inject.cpp). Each run is
// checked by run_checked against the model, with the failure the table below
// gives forced on the job that made the call.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/model.h"
#include "support/tarvex_process.h"

namespace {

using testrun::scratch_dir;

// One logged call; a, b: open flags, or a transfer's file offset and byte count.
struct call { long number; std::string op, path; long long a, b; };

// The numbered calls of a log.
std::vector<call> read_log(const std::string& path) {
    std::vector<call> calls;
    std::ifstream in(path);
    for (call c{}; in >> c.number >> c.op >> c.path >> c.a >> c.b && in.ignore(1024, '\n');) calls.push_back(c);
    return calls;
}

// 640 x 420 words are a little over 1 MiB: an image moves in more than one
// piece. The target offset lies past the source image, so a write's offset
// tells which copy it belongs to.
constexpr long long kSource = 8192, kTarget = 8192 + (2 << 20);

struct scenario {
    std::vector<std::string> options;
    std::vector<std::string> names;
    bool big, folder;  // the frames' byte order; -c out
    std::string absent = "";  // what the file system lacks
    bool cineon() const { return names[0] == "scan.dpx"; }
    bool swap() const { return big == testdata::host_little && !cineon(); }
};

// The failure table: the verdict (see run_checked) of the job whose call `c`
// fails; `placed` when its frame is already in place (the folder flush after
// the rename cannot undo it).
char failing(const scenario& s, const std::string& input, const call& c, bool placed) {
    if (placed) return 'c';
    // The Cineon file keeps its name whichever step of its rename fails (the claim of the name included).
    if (s.cineon() && (c.path != input || c.op.rfind("rename", 0) == 0)) return 'T';
    if (c.op == "rename" || c.op == "listxattr" || c.op == "chmod") return 'N';  // the input as it was
    if (c.path == input && c.op != "open") return c.op == "close" ? 'c' : c.a < kSource ? 'L' : 'R';  // header first
    // Where O_TMPFILE fails an exclusive create of a hidden name takes its place;
    // a -c output whose name is free is linked there, else named and renamed.
    if (c.op == "open") return c.path == input ? 'L' : (c.a & O_TMPFILE) == O_TMPFILE ? 'c' : s.swap() ? 'O' : 's';
    if (c.op == "link") return s.folder ? 'c' : 'W';
    if (c.op != "pwrite" && c.op != "copy") return 'W';  // fdatasync or close of the output
    if (c.a < 2048) return 'H';
    return !s.options.empty() && (!s.swap() || c.a >= kTarget) ? 'X' : 'W';
}

// Runs `s` in `dir` with call `at` failing in `mode`; `forced` gives each job's verdict. The fault library,
// preloaded, watches `dir` and logs to `log`.
void run(const scenario& s, const scratch_dir& dir, const std::string& log, long at, const std::string& mode,
         const std::string& forced) {
    dir.empty();
    ::unlink(log.c_str());
    testrun::run_options o(s.options, {"LD_PRELOAD=" TARVEX_FAULT_PRELOAD, "TARVEX_FAULT_DIR=" + dir.path() + "/",
                                       "TARVEX_FAULT_LOG=" + log, "TARVEX_FAULT_AT=" + std::to_string(at),
                                       "TARVEX_FAULT_MODE=" + mode, "TARVEX_FAULT_ABSENT=" + s.absent});
    if (s.folder) dir.touch("out/kept"), o.args.insert(o.args.end(), {"-c", dir / "out"});
    for (const std::string& name : s.names)
        o.args.push_back(dir.write(name, s.cineon() ? testdata::make_cineon(true, 16, 8)
                                                    : testdata::frame(s.big, testdata::image_at(kSource, 640, 420))));
    testrun::run_checked(dir, o, nullptr, forced);
}

// A clean run, whose calls must flush each frame before its rename; then one
// run for each call it made with that call failing, and each read and write
// also cut short and interrupted; prints how many runs met which verdict.
void fail_every_call(const scenario& s) {
    scratch_dir dir("tarvex-fault"), logs;
    const std::string log = logs / "calls.log", clean(s.names.size(), 'c');
    run(s, dir, log, 0, "error", clean);
    // A converted frame reaches stable storage and is closed before the rename
    // that puts it in place of its input; with -c nothing is flushed or renamed.
    int renames = 0;
    bool written = false, flushed = false, closed = false;
    for (const call& c : read_log(log)) {
        // The output: a nameless file opened on its folder, or a hidden name where the file system has no O_TMPFILE.
        const bool output = c.path.back() == '/' || c.path.find("/.tarvex-") != std::string::npos, write = output && (c.op == "pwrite" || c.op == "copy");
        const bool flush = output && c.op == "fdatasync";
        if (c.op == "open" && output) written = flushed = closed = false;
        EXPECT_FALSE(flushed && write) << "written after the flush, call " << c.number;
        EXPECT_FALSE(s.folder && flush) << "a -c output flushed, call " << c.number;
        EXPECT_TRUE(c.op != "rename" || s.cineon() || (flushed && closed)) << "renamed before flush and close, call " << c.number;
        written = written || write;
        flushed = flushed || (flush && written);
        closed = closed || (output && c.op == "close" && flushed);
        renames += c.op == "rename" && !s.cineon();
    }
    EXPECT_EQ(s.folder ? 0 : int(s.names.size() - s.cineon()), renames);

    std::map<std::string, int> tried;
    size_t now = 0;       // the frame whose job makes the call
    bool placed = false;  // that frame is in place already
    for (const call& c : read_log(log)) {
        for (size_t i = 0; i < s.names.size(); ++i)
            if (c.path == dir / s.names[i] && c.op == "open") now = i, placed = false;
        for (std::string mode : {"error", "short", "interrupt"}) {
            if (mode != "error" && c.op != "pread" && c.op != "pwrite" && c.op != "copy") continue;
            // A cut or interrupted transfer is completed.
            std::string forced = clean;
            if (mode == "error") forced[now] = failing(s, dir / s.names[now], c, placed);
            const std::string what = c.op + " (" + mode + "): " + forced[now];
            SCOPED_TRACE("call " + std::to_string(c.number) + " " + c.path + " " + what);
            run(s, dir, log, c.number, mode, forced);
            ++tried[what];
        }
        placed = placed || c.op == "rename";
    }
    for (const auto& [what, count] : tried) std::printf("  %3d x %s\n", count, what.c_str());
}

// Two frames swapped; a host-order frame that needs only the settings pass (its image copied by the kernel); a
// frame moved by both passes; -c into a folder; a misnamed Cineon file; then a frame and a Cineon file as on exFAT
// or a share: no RENAME_NOREPLACE, hard links or O_TMPFILE, and attributes that cannot be listed.
TEST(FaultInjection, EachCallOfEachScenarioFailsInTurn) {
    const bool little = testdata::host_little;
    const std::string absent = "rename2,link,tmpfile,xattr";
    for (const scenario& s : std::vector<scenario>{
             {{}, {"a.dpx", "b.dpx"}, little, false}, {{"-t", "2"}, {"host.dpx"}, !little, false},
             {{"-o", std::to_string(kTarget)}, {"moved.dpx"}, little, false}, {{}, {"c.dpx"}, little, true},
             {{}, {"scan.dpx"}, true, false}, {{}, {"a.dpx"}, little, false, absent}, {{}, {"scan.dpx"}, true, false, absent}}) {
        SCOPED_TRACE(s.names[0] + (s.options.empty() ? "" : " " + s.options[0]) + (s.folder ? " -c" : "") + " " + s.absent);
        fail_every_call(s);
    }
}

}  // namespace
