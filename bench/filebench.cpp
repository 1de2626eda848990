// tarvex-filebench: times tarvex against cp over generated sequences, runs
// alternating with the baseline, and prints medians, ratios and peak memory.
//
// usage: tarvex-filebench TARVEX MKFRAMES WORKDIR [REPETITIONS [SEQUENCES]]
// (SEQUENCES: the names of the sequences to time, comma-separated: 2k, 4k, tiny,
// "2k host order", "2k 16-bit", "2k 12-bit"; all by default)
//
// In-place conversion is compared twice: with cp followed by a flush of each
// copy, and with the floor of any safe in-place rewrite (copy beside, flush,
// rename over the original), which also pays for freeing the originals.
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct outcome {
    double seconds = 0;
    long peak_kib = 0;
};

// Starts a command with its output discarded.
pid_t start(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

// Runs commands at the same time and waits for all; exits on any failure.
outcome run_together(const std::vector<std::vector<std::string>>& commands) {
    auto begin = std::chrono::steady_clock::now();
    std::vector<pid_t> pids;
    for (const auto& c : commands) pids.push_back(start(c));
    outcome o;
    for (size_t i = 0; i < pids.size(); ++i) {
        int status = 0;
        struct rusage usage;
        wait4(pids[i], &status, 0, &usage);
        o.peak_kib = std::max(o.peak_kib, long(usage.ru_maxrss));
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "filebench: %s failed\n", commands[i][0].c_str());
            std::exit(1);
        }
    }
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return o;
}

outcome run(const std::vector<std::string>& args) { return run_together({args}); }

void shell(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "filebench: '%s' failed\n", command.c_str());
        std::exit(1);
    }
}

std::vector<std::string> files_in(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(dir + "/" + e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Lets the disk finish what the untimed preparation gave it (the journal
// commits after deletions and flushes), so no timed run inherits that work.
void settle() {
    shell("sync");
    usleep(500000);
    shell("sync");
}

// A fresh empty folder with nothing of it left dirty in the page cache.
void fresh(const std::string& dir) {
    shell("rm -rf '" + dir + "' && mkdir -p '" + dir + "'");
    settle();
}

// The floor of any safe in-place rewrite, done in this process: each file is
// copied to a temporary beside it, flushed, and renamed over the original, so
// the original's blocks are freed as tarvex's replacement frees them. With
// `flush_folder` the folder is flushed after each rename too, as tarvex does.
outcome copy_flush_replace(const std::vector<std::string>& files, bool flush_folder = false) {
    auto start = std::chrono::steady_clock::now();
    for (const auto& f : files) {
        std::string tmp = f + ".tmp";
        int in = open(f.c_str(), O_RDONLY);
        int out = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0664);
        struct stat st;
        if (in < 0 || out < 0 || fstat(in, &st) != 0) std::exit(1);
        off_t left = st.st_size;
        while (left > 0) {
            ssize_t n = copy_file_range(in, nullptr, out, nullptr, size_t(left), 0);
            if (n <= 0) std::exit(1);
            left -= n;
        }
        if (fdatasync(out) != 0 || close(out) != 0 || rename(tmp.c_str(), f.c_str()) != 0) std::exit(1);
        close(in);
        if (flush_folder) {
            int dir = open(f.substr(0, f.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY);
            if (dir < 0 || fsync(dir) != 0) std::exit(1);
            close(dir);
        }
    }
    outcome o;
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return o;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

struct scenario {
    std::string name;
    std::string baseline_name;
    int frames;
    std::vector<std::string> options;  // tarvex's, besides -c and the frames
    bool in_place = false;             // the frames are converted where they are, else into a fresh -c folder
    bool together = false;             // by two runs at once over the two halves
    std::vector<double> tarvex, baseline;
    long peak_kib = 0;
};

// A sequence the benchmark makes with tarvex-mkframes.
struct set {
    std::string name, size_w, size_h;
    int count;
    std::string bits, order;
};

// The runs timed over one sequence, each with its baseline.
std::vector<scenario> scenarios(const set& s) {
    const std::string label = s.name + " (" + s.size_w + "x" + s.size_h + ")";
    const int n = s.count;
    auto in_place = [&](std::string name, std::string baseline, std::vector<std::string> options = {}) {
        return scenario{std::move(name), std::move(baseline), n, std::move(options), true, false, {}, {}, 0};
    };
    auto copy = [&](std::string name, std::string baseline, std::vector<std::string> options = {}) {
        return scenario{std::move(name), std::move(baseline), n, std::move(options), false, false, {}, {}, 0};
    };
    if (s.name == "2k host order")
        return {copy("-c, " + label, "cp"),
                in_place("in place -t 2 (settings pass), " + label, "cp + fdatasync", {"-t", "2"}),
                copy("-c -e big, " + label, "cp", {"-e", "big"}),
                in_place("in place -e big, " + label, "cp + fdatasync", {"-e", "big"})};
    if (s.bits != "10")
        return {copy("-c -a, " + label, "cp", {"-a"}), in_place("in place -a, " + label, "cp + fdatasync", {"-a"})};
    if (s.name == "tiny") return {copy("-c, 1000 tiny frames " + s.size_w + "x" + s.size_h + " in one call", "cp")};
    std::vector<scenario> all = {in_place("in place, " + label, "cp + fdatasync"),
                                 in_place("in place, " + label, "copy, fdatasync, rename over original")};
    if (s.name == "2k") all.push_back(in_place("in place, " + label, "copy, fdatasync, rename, folder flush"));
    all.push_back(copy("-c, " + label, "cp"));
    all.push_back(copy("-c -o 4096 (settings pass), " + label, "cp", {"-o", "4096"}));
    if (s.name != "2k") return all;
    all.push_back(in_place("in place, two runs at once over the halves, " + label, "one run over all"));
    all.push_back(copy("-c, two runs at once over the halves, " + label, "one run over all"));
    all[all.size() - 2].together = all.back().together = true;
    return all;
}

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: tarvex-filebench TARVEX MKFRAMES WORKDIR [REPETITIONS [SEQUENCES]]\n");
        return 2;
    }
    const std::string tarvex = argv[1], mkframes = argv[2], work = argv[3];
    const int reps = argc > 4 ? std::atoi(argv[4]) : 5;
    const std::string only = argc > 5 ? "," + std::string(argv[5]) + "," : "";

    const std::vector<set> all_sets = {
        {"2k", "2048", "1556", 20, "10", "big"},        {"4k", "4096", "3112", 5, "10", "big"},
        {"tiny", "64", "48", 1000, "10", "big"},        {"2k host order", "2048", "1556", 20, "10", "little"},
        {"2k 16-bit", "2048", "1556", 20, "16", "big"}, {"2k 12-bit", "2048", "1556", 20, "12", "big"}};
    std::vector<set> chosen;
    for (const auto& s : all_sets)
        if (only.empty() || only.find("," + s.name + ",") != std::string::npos) chosen.push_back(s);
    const std::vector<set>& sets = chosen;
    for (const auto& s : sets) {
        std::string dir = work + "/src/" + s.name;
        if (int(files_in(dir).size()) == s.count) continue;
        fresh(dir);
        run({mkframes, "-W", s.size_w, "-H", s.size_h, "-n", std::to_string(s.count), "-b", s.bits, "-e", s.order,
             dir + "/frame.%04d.dpx"});
    }
    shell("sync");

    std::vector<scenario> results;
    const std::string out = work + "/out", base = work + "/base", inplace = work + "/inplace";
    for (const auto& s : sets) {
        const auto src = files_in(work + "/src/" + s.name);
        std::vector<scenario> mine = scenarios(s);
        for (int r = 0; r < reps; ++r) {
            for (auto& sc : mine) {
                // The same frames, in place or into a fresh -c folder, by one
                // tarvex run or by two at once over the two halves.
                auto tarvex_over = [&](const std::vector<std::string>& options, const std::vector<std::string>& frames,
                                       bool split) {
                    if (!split) return run(concat(concat({tarvex}, options), frames));
                    const auto middle = frames.begin() + long(frames.size() / 2);
                    return run_together({concat(concat({tarvex}, options), {frames.begin(), middle}),
                                         concat(concat({tarvex}, options), {middle, frames.end()})});
                };
                auto fresh_copy = [&] {
                    fresh(inplace);
                    shell("cp -t '" + inplace + "' '" + work + "/src/" + s.name + "'/*");
                    settle();
                    return files_in(inplace);
                };
                auto time_tarvex = [&] {
                    if (!sc.in_place) fresh(out);
                    const outcome o = sc.in_place ? tarvex_over(sc.options, fresh_copy(), sc.together)
                                                  : tarvex_over(concat(sc.options, {"-c", out}), src, sc.together);
                    sc.tarvex.push_back(o.seconds);
                    sc.peak_kib = std::max(sc.peak_kib, o.peak_kib);
                };
                auto time_baseline = [&] {
                    fresh(base);
                    if (sc.baseline_name == "one run over all") {
                        if (sc.in_place) sc.baseline.push_back(tarvex_over({}, fresh_copy(), false).seconds);
                        else sc.baseline.push_back(tarvex_over({"-c", base}, src, false).seconds);
                        return;
                    }
                    if (sc.baseline_name.rfind("copy, fdatasync, rename", 0) == 0) {
                        shell("cp -t '" + base + "' '" + work + "/src/" + s.name + "'/*");
                        settle();
                        const bool flush_folder = sc.baseline_name.find("folder") != std::string::npos;
                        sc.baseline.push_back(copy_flush_replace(files_in(base), flush_folder).seconds);
                        return;
                    }
                    outcome o = run(concat({"cp", "-t", base}, src));
                    double t = o.seconds;
                    if (sc.baseline_name == "cp + fdatasync") t += run(concat({"sync", "-d"}, files_in(base))).seconds;
                    sc.baseline.push_back(t);
                };
                // Alternate which goes first, so neither always meets a warmer cache.
                if (r % 2 == 0) {
                    time_tarvex();
                    time_baseline();
                } else {
                    time_baseline();
                    time_tarvex();
                }
            }
        }
        results.insert(results.end(), mine.begin(), mine.end());
    }
    shell("rm -rf '" + out + "' '" + base + "' '" + inplace + "'");

    std::printf("| run | frames | tarvex median | baseline | baseline median | ratio | tarvex peak RSS |\n");
    std::printf("|---|---:|---:|---|---:|---:|---:|\n");
    for (const auto& sc : results) {
        double t = median(sc.tarvex), b = median(sc.baseline);
        std::printf("| %s | %d | %.1f ms | %s | %.1f ms | %.2f | %.1f MiB |\n", sc.name.c_str(), sc.frames, t * 1000,
                    sc.baseline_name.c_str(), b * 1000, t / b, double(sc.peak_kib) / 1024);
    }
    // The cost of flushing each converted frame before it replaces its original.
    for (const auto& sc : results) {
        if (sc.baseline_name != "cp + fdatasync") continue;
        for (const auto& plain : results) {
            if (plain.name != "-c, " + sc.name.substr(std::string("in place, ").size())) continue;
            std::printf(
                "\nflush cost per frame, %s: cp + fdatasync - cp = %.2f ms; "
                "tarvex in place - tarvex -c = %.2f ms\n",
                plain.name.substr(4).c_str(), (median(sc.baseline) - median(plain.baseline)) * 1000 / sc.frames,
                (median(sc.tarvex) - median(plain.tarvex)) * 1000 / sc.frames);
        }
    }
    // The folder flush after each rename, on the rewrite pattern tarvex uses.
    for (const auto& sc : results) {
        if (sc.baseline_name != "copy, fdatasync, rename, folder flush") continue;
        for (const auto& plain : results)
            if (plain.name == sc.name && plain.baseline_name == "copy, fdatasync, rename over original")
                std::printf("\nfolder flush cost per frame, %s: %.2f ms\n", sc.name.substr(10).c_str(),
                            (median(sc.baseline) - median(plain.baseline)) * 1000 / sc.frames);
    }
    for (const auto& sc : results)
        if (sc.baseline_name == "one run over all")
            std::printf("\nthroughput of two runs at once over one run, %s: %.2f x\n", sc.name.c_str(),
                        median(sc.baseline) / median(sc.tarvex));
    std::printf("\nEvery run (ms), tarvex / baseline:\n");
    for (const auto& sc : results) {
        std::printf("  %s:", sc.name.c_str());
        for (size_t i = 0; i < sc.tarvex.size(); ++i)
            std::printf(" %.0f/%.0f", sc.tarvex[i] * 1000, sc.baseline[i] * 1000);
        std::printf("\n");
    }
    std::printf("\n%d repetitions of each run, alternating tarvex and the baseline.\n", reps);
    return 0;
}
