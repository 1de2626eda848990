// The fuzz targets, one a build of this file (TARVEX_FUZZ_TARGET names it):
//   dpx, cineon  load the bytes through the image holder and read the image
//                with expansion on and off: a direct read returns the file's
//                bytes, each word reversed in the other byte order;
//   repair_job   runs the whole job on the bytes as frame.dpx with the options
//                they pick (none, -o 4096, -t 300, -c out/, -a, -a -e big): the failures and
//                the files must be the model's.
// No allocation may outgrow the file (seen through a sanitizer's hooks, or
// without one through this program's malloc). Without libFuzzer
// (TARVEX_REPLAY), main() runs the target on each file of the folders it is given.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "cineon/cineon_reader.h"
#include "cineon/dpx_reader.h"
#include "cineon/image_holder.h"
#include "driver/repair_job.h"
#include "driver/settings.h"
#include "support/model.h"

#if defined(__SANITIZE_ADDRESS__)
#define TARVEX_WATCH_ALLOCATIONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARVEX_WATCH_ALLOCATIONS 1
#endif
#endif

namespace {

namespace fs = std::filesystem;
using testdata::bytes;

// Aborts with `what`, so the fuzzer keeps the input as a crash.
void check(bool condition, const char* what) {
    if (!condition) std::fprintf(stderr, "fuzz check failed: %s\n", what), std::abort();
}

bool g_watching = false;
size_t g_largest = 0;
#ifdef TARVEX_WATCH_ALLOCATIONS
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
const int g_hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t size) { g_largest = g_watching ? std::max(g_largest, size) : g_largest; },
    [](const volatile void*) {});
#endif

// Runs `body`: no allocation in it may outgrow the file, beyond the 64 KiB
// that paths and texts take whatever the file.
template <class Body>
void bounded(size_t size, Body body) {
    g_largest = 0, g_watching = true;
    body();
    g_watching = false;
    check(g_largest <= std::max<size_t>(size, 64 * 1024), "an allocation was larger than the file");
}

// A scratch folder with out/ in it, on a memory file system when there is one, removed at exit.
const std::string& folder() {
    static const struct scratch {
        std::string path = (::access("/dev/shm", W_OK) ? fs::temp_directory_path().string() : "/dev/shm") +
                           "/tarvex-fuzz-XXXXXX";
        scratch() { check(::mkdtemp(path.data()) && fs::create_directory(path + "/out"), "no scratch folder"); }
        ~scratch() { fs::remove_all(path); }
    } s;
    return s.path;
}

int read_every_way(const uint8_t* data, size_t size, bool dpx) {
    const std::string path = folder() + "/frame";
    testdata::write_file(path, bytes(data, data + size));
    bounded(size, [&] {
        image_holder holder;
        const bool loaded = holder.load(path.c_str(), size % 2) == codec_result::ok;  // half as with -a
        cineonreader* reader = dpx ? static_cast<cineonreader*>(holder.dpx_reader) : holder.cineon_reader;
        const uint32_t unit = !reader || !reader->swap_bytes ? 1 : dpx ? holder.dpx_reader->swap_unit : 4;
        check(loaded || (!holder.dpx_reader && !holder.cineon_reader), "a failed load left a reader behind");
        for (uint32_t expand = 0; reader && expand < 2; ++expand) {
            uint64_t wanted = 0;
            reader->expand_to_10bit = expand;
            // A buffer as large as the description asks, when the file could fill it.
            if (reader->image_bytes(wanted) != codec_result::ok || wanted > (size / 3 + 1) * 4) continue;
            std::vector<uint8_t> buffer(std::max<uint64_t>(wanted, 16));
            const codec_result r = reader->read_image(buffer.data(), buffer.size());
            check(r == codec_result::ok || r == codec_result::unsupported || r == codec_result::io, "unexpected read_image result");
            if (r != codec_result::ok || (dpx && expand && (reader->packed || reader->bit_depth != 10))) continue;
            check(reader->data_offset + buffer.size() <= size, "a read succeeded past the end of the file");
            for (size_t i = 0; i < buffer.size(); ++i) {
                const size_t from = i < buffer.size() / unit * unit ? i / unit * unit + unit - 1 - i % unit : i;
                check(buffer[i] == data[reader->data_offset + from], "a direct read returned other bytes");
            }
        }
    });
    return 0;
}

int repair(const uint8_t* data, size_t size) {
    uint32_t sum = 0;
    for (size_t i = 0; i < size; ++i) sum = sum * 31 + data[i];
    const uint32_t variant = sum % 6;  // none, -o 4096, -t 300, -c out/, -a, -a -e big
    const bytes input(data, data + size);
    const std::string frame = folder() + "/frame.dpx", out = folder() + "/out/";
    model::run run;
    g_byteOffset = run.offset = variant == 1 ? 4096 : -1;
    g_transfer = run.transfer = variant == 2 ? 300 : -1;
    g_highData = g_lowData = -1, g_firstReport = true, g_failedJobs = 0;
    g_allDepths = run.all = variant >= 4;
    g_byteOrder = variant == 5 ? byte_order::big : byte_order::host;
    run.big = variant == 5 || !testdata::host_little;
    g_outputDir = common::file();
    if (variant == 3) g_outputDir.assign(1, out.c_str()), g_outputDir.add_separator(1);
    const model::job want = model::convert(input, run, variant == 3);
    testdata::write_file(frame, input);
    bounded(size, [&] { (void)repair_job(common::file(frame.c_str())); });

    check(g_failedJobs == want.failures, "the failure count is not the model's");
    std::map<std::string, bytes> files;  // what the folder must hold
    files[want.renamed ? folder() + "/frame.cin" : frame] = want.written && variant != 3 ? want.output : input;
    if (want.written && variant == 3) files[out + "frame.dpx"] = want.output;
    for (const auto& entry : fs::recursive_directory_iterator(folder()))
        check(entry.is_directory() || files.count(entry.path()), "a file was left behind");
    for (const auto& [path, held] : files) check(testdata::read_file(path) == held, "a file is not the model's");
    for (const auto& [path, held] : files) fs::remove(path);
    return 0;
}

}  // namespace

#ifndef TARVEX_WATCH_ALLOCATIONS
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) { return g_largest = g_watching ? std::max(g_largest, size) : g_largest, __libc_malloc(size); }
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string target = TARVEX_FUZZ_TARGET;
    return target == "repair_job" ? repair(data, size) : read_every_way(data, size, target == "dpx");
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return ::dup2(::open("/dev/null", O_WRONLY), 1), 0;  // away with the job's messages and report
}

#ifdef TARVEX_REPLAY
int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : fs::is_directory(argv[i]) ? fs::directory_iterator(argv[i]) : fs::directory_iterator())
            if (entry.path().extension() != ".txt") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        const bytes data = testdata::read_file(path);
        std::fprintf(stderr, "replay: %s (%zu bytes)\n", path.c_str(), data.size());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::fprintf(stderr, "replay: %zu files, no failure\n", files.size());
    return files.empty();
}
#endif
