// Fuzz target: the whole repair job run on the bytes as frame.dpx in a
// scratch folder, as the first file of a run, with one of four option sets
// picked by the bytes themselves (none, -o 4096, -t 300, -c out/). After each
// run the input must be untouched or a complete conversion of it, nothing
// else may be left in the folder, and no allocation may exceed the file.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/file.h"
#include "driver/repair_job.h"
#include "driver/settings.h"
#include "fuzz/fuzz_support.h"
#include "support/dpx_bytes.h"

using fuzzing::check;

namespace {

enum class variant { plain, new_offset, transfer_300, output_folder };

// Field offsets the job rewrites in the header.
constexpr size_t kImageOffset = 4;
constexpr size_t kDescriptor = 800;
constexpr size_t kTransfer = 801;
constexpr size_t kBitSize = 803;
constexpr size_t kPacking = 804;
constexpr size_t kDataOffset = 808;

constexpr bool kHostBig = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

variant pick(const uint8_t* data, size_t size) {
    uint32_t sum = 0;
    for (size_t i = 0; i < size; ++i) sum = sum * 31 + data[i];
    return variant(sum % 4);
}

testdata::bytes as_bytes(const std::string& text) { return testdata::bytes(text.begin(), text.end()); }

uint64_t field(const testdata::bytes& b, size_t at, int n, bool big) { return testdata::get(b, at, n, big); }

// Checks that `after` is `before` converted to host order with the run's
// settings: the header fields swapped and the job's fields set, the image
// moved to `target` with every word in host order.
void check_conversion(const testdata::bytes& before, const testdata::bytes& after, variant v) {
    check(before.size() >= 2048, "a file shorter than a header was converted");
    const bool big = before[0] == 'S';
    check(big || before[0] == 'X', "a file without the DPX magic was converted");
    check(before[kBitSize] == 10, "a file other than 10-bit was converted");

    uint64_t width = field(before, 772, 4, big), height = field(before, 776, 4, big);
    uint64_t x_orig = field(before, 1424, 4, big), y_orig = field(before, 1428, 4, big);
    if (x_orig != 0 && x_orig != 0xFFFFFFFF) width = x_orig;
    if (y_orig != 0 && y_orig != 0xFFFFFFFF) height = y_orig;
    const uint64_t source = field(before, kDataOffset, 4, big);
    const uint64_t target = v == variant::new_offset ? 4096 : source;
    unsigned __int128 image = (unsigned __int128)width * height * 4;
    check(source + image <= before.size(), "a file whose image lies past its end was converted");
    check(target + image <= after.size(), "the converted image is cut short");

    testdata::bytes header(before.begin(), before.begin() + 2048);
    for (auto [at, n] : testdata::dpx_swapped_fields()) testdata::put(header, at, field(before, at, n, big), n, kHostBig);
    testdata::put(header, kImageOffset, target, 4, kHostBig);
    testdata::put(header, kDataOffset, target, 4, kHostBig);
    header[kDescriptor] = 50;
    if (v == variant::transfer_300) header[kTransfer] = uint8_t(300 & 0xff);
    testdata::put(header, kPacking, 1, 2, kHostBig);
    // No header bytes are written at or past the image's offset.
    const size_t header_end = target < 2048 ? size_t(target) : 2048;
    check(std::equal(header.begin(), header.begin() + long(header_end), after.begin()),
          "the converted header is not the original's in host order with the run's settings");

    for (uint64_t i = 0; i < uint64_t(image); ++i) {
        uint64_t from = source + (big != kHostBig ? i / 4 * 4 + 3 - i % 4 : i);
        check(after[size_t(target + i)] == before[size_t(from)], "the converted image differs from the original's");
    }
}

// Whether the bytes start with a Cineon magic number in either byte order.
bool cineon_magic(const uint8_t* data, size_t size) {
    if (size < 4) return false;
    uint32_t m = uint32_t(data[0]) << 24 | uint32_t(data[1]) << 16 | uint32_t(data[2]) << 8 | data[3];
    return m == 0x802A5FD7 || m == 0xD75F2A80;
}

// Whether `folder` holds nothing but the names in `allowed`.
bool holds_only(const std::string& folder, const std::vector<std::string>& allowed) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return false;
    bool only = true;
    while (struct dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        bool known = false;
        for (const auto& a : allowed) known = known || a == name;
        only = only && known;
    }
    ::closedir(dir);
    return only;
}

void reset_settings(variant v, const std::string& folder) {
    g_byteOffset = v == variant::new_offset ? 4096 : -1;
    g_transfer = v == variant::transfer_300 ? 300 : -1;
    g_highData = -1;
    g_lowData = -1;
    g_firstReport = true;
    g_failedJobs = 0;
    g_outputDir = common::file();
    if (v == variant::output_folder) {
        g_outputDir.assign(1, (folder + "/out").c_str());
        g_outputDir.add_separator(1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The job's messages and the settings report go to standard output.
    int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) ::dup2(null, 1);
    check(::mkdir((fuzzing::scratch_folder() + "/out").c_str(), 0755) == 0, "could not make out/");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& folder = fuzzing::scratch_folder();
    const std::string input = folder + "/frame.dpx";
    const std::string renamed = folder + "/frame.cin";
    const std::string temporary = folder + "/~tmp.dpx";
    const std::string output = folder + "/out/frame.dpx";
    const variant v = pick(data, size);
    fuzzing::write_bytes(input, data, size);
    reset_settings(v, folder);

    fuzzing::allocation_watch watch;
    repair_job(common::file(input.c_str()));
    watch.check_bounded_by(size);

    const testdata::bytes before(data, data + size);
    std::string text;
    check(holds_only(folder, {"frame.dpx", "frame.cin", "out"}), "a file other than the frame was left behind");
    check(holds_only(folder + "/out", {"frame.dpx"}), "a file other than the frame was made in out/");
    check(g_failedJobs >= 0 && g_failedJobs <= 2, "one job counted more than two failures");
    if (cineon_magic(data, size) && fuzzing::read_bytes(renamed, text)) {
        check(as_bytes(text) == before, "a renamed Cineon file changed");
        check(::access(input.c_str(), F_OK) != 0, "a renamed Cineon file is still there");
    } else {
        check(fuzzing::read_bytes(input, text), "the input is gone");
        testdata::bytes now = as_bytes(text);
        if (v == variant::output_folder) {
            check(now == before, "the input changed although the output went to another folder");
            if (fuzzing::read_bytes(output, text)) {
                check(g_failedJobs == 0, "a failed job left its output in the folder");
                check_conversion(before, as_bytes(text), v);
            }
        } else if (now != before) {
            check(g_failedJobs == 0, "a failed job changed the input");
            check_conversion(before, now, v);
        }
    }

    ::unlink(input.c_str());
    ::unlink(renamed.c_str());
    ::unlink(temporary.c_str());
    ::unlink(output.c_str());
    return 0;
}
