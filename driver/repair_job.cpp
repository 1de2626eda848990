#include "driver/repair_job.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "cineon/codec.h"
#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"
#include "common/io.h"
#include "driver/console.h"
#include "driver/interrupt.h"
#include "driver/settings.h"
#include "driver/settings_report.h"

namespace {

const char kLoadFailed[] = "Could not load image or file was not a DPX file!";
const char kNot10Bit[] =
    "Could not swap DPX to local byte ordering because it was not a 10bit image file!";
const char kOpenFailed[] =
    "Could not swap DPX to local byte ordering because it could not open the file!";
const char kReadFailed[] =
    "Could not swap DPX to local byte ordering because it could not read the image file!";
const char kImageWriteFailed[] =
    "Could not swap DPX to local byte ordering because it could not write the image file!";
const char kHeaderWriteFailed[] =
    "Could not swap DPX to local byte ordering because it could not write the header!";

// Image data is moved through a buffer of at most this many bytes, so memory
// stays bounded whatever the frame size.
constexpr uint64_t kChunkBytes = uint64_t(1) << 20;

// Owns a malloc'ed buffer.
class buffer {
public:
    explicit buffer(uint64_t bytes) : data_(std::malloc(size_t(bytes))) {}
    buffer(const buffer&) = delete;
    buffer& operator=(const buffer&) = delete;
    ~buffer() { std::free(data_); }
    uint8_t* get() const { return static_cast<uint8_t*>(data_); }

private:
    void* data_;
};

// The image data size: the larger of the reader's width x height and the
// stored pixels-per-line x lines, four bytes a pixel, so a header whose
// original size is smaller than the stored image drops no pixels. A product
// beyond 64 bits gives the largest size, which no file can hold.
uint64_t image_data_size(const smptedpx_reader& reader, const SMPTE268M_Header_t& header) {
    auto product = [](uint64_t a, uint64_t b) {
        uint64_t n;
        if (__builtin_mul_overflow(a, b, &n) || __builtin_mul_overflow(n, uint64_t(4), &n)) return UINT64_MAX;
        return n;
    };
    return std::max(product(reader.width, reader.height),
                    product(header.pixels_per_line, header.lines_per_element));
}

// Where one copy of the image goes in the output file.
struct placement {
    uint64_t offset;
    int failures;  // failures a short write here counts
};

enum class copy_status { ok, read_failed, write_failed, interrupted };

// One job's objects and the exits they share.
class job {
public:
    explicit job(const common::file& input) : input_(input) {}
    // Runs the job; false when an interruption stopped it before it finished.
    bool run();

private:
    bool load();
    bool rename_cineon();
    void build_paths();
    bool needs_settings() const;
    bool image_lies_in_input(uint64_t size) const;
    copy_status copy_image(uint64_t size, const placement* places, int count, int* failures);
    bool open_output();
    void fail(const char* message, int failures = 1);
    bool complete();

    const common::file& input_;
    image_holder holder_;
    smptedpx_reader* reader_ = nullptr;
    SMPTE268M_Header_t header_;
    std::string target_;          // where the converted frame goes when complete
    bool in_place_ = false;       // the target is the input itself
    common::private_file out_;    // the converted frame while it is written
};

bool job::run() {
    if (!load()) return true;
    if (holder_.cineon_reader) {
        rename_cineon();
        return true;
    }
    reader_ = holder_.dpx_reader;
    if (reader_->read_header_bytes(&header_, sizeof header_) != 0) {
        ++g_failedJobs;
        printError(1, kLoadFailed);
        return true;
    }
    auto& element = header_.image_element[0];

    if (g_firstReport) {
        print_settings_report(*reader_, header_);
        g_firstReport = false;
        if (g_byteOffset == -1) g_byteOffset = int32_t(element.data_offset);
        if (g_lowData == -1) g_lowData = int32_t(element.ref_low_data);
        if (g_highData == -1) g_highData = int32_t(element.ref_high_data);
        if (g_transfer == -1) g_transfer = element.transfer;
    }

    if (reader_->bit_depth != 10) {
        ++g_failedJobs;
        printError(1, kNot10Bit);
        return true;
    }

    build_paths();
    bool swap = reader_->swap_bytes != 0;
    bool settings = needs_settings();
    if (!swap && !settings) return true;  // already right: nothing is written or renamed

    const uint64_t size = image_data_size(*reader_, header_);
    const uint64_t source = reader_->data_offset;
    // The settings pass moves the image to the run's offset.
    const uint64_t target = settings ? uint32_t(g_byteOffset) : source;
    // A pass writes no header bytes at or beyond the offset its image went to.
    const uint64_t swap_header_bytes = std::min<uint64_t>(sizeof header_, source);
    const uint64_t settings_header_bytes = std::min<uint64_t>(sizeof header_, target);

    if (!open_output()) {
        // A frame that only needs its settings rewritten ends without a word
        // when its output cannot be made.
        if (swap) fail(kOpenFailed);
        return true;
    }
    if (!image_lies_in_input(size)) {
        fail(kReadFailed);
        return true;
    }

    // Both passes are written in one go into the new, empty output: its final
    // bytes are the swap pass's image and header overlaid by the settings
    // pass's image and header. The swap header survives only where the
    // settings header is shorter and no image covers it.
    if (swap && settings && swap_header_bytes > settings_header_bytes) {
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&header_);
        if (common::write_at(out_.get(), bytes + settings_header_bytes, swap_header_bytes - settings_header_bytes,
                             settings_header_bytes) != common::io_result::ok) {
            fail(kHeaderWriteFailed);
            return true;
        }
    }

    // The swap pass writes the image where it was; the settings pass writes it
    // at the run's offset, and a short write there counts twice. Rewriting the
    // same bytes at the same place is skipped.
    placement places[2];
    int count = 0;
    if (swap) places[count++] = {source, 1};
    if (settings && !(swap && target == source)) places[count++] = {target, 2};
    int failures = 0;
    switch (copy_image(size, places, count, &failures)) {
        case copy_status::read_failed: fail(kReadFailed); return true;
        case copy_status::write_failed: fail(kImageWriteFailed, failures); return true;
        case copy_status::interrupted: return false;
        case copy_status::ok: break;
    }

    if (settings) {
        header_.image_offset = uint32_t(g_byteOffset);
        element.data_offset = uint32_t(g_byteOffset);
        element.ref_low_data = uint32_t(g_lowData);
        element.ref_high_data = uint32_t(g_highData);
        element.transfer = uint8_t(g_transfer & 0xff);
        element.descriptor = 50;
        element.packing = 1;
    }
    if (common::write_at(out_.get(), &header_, settings ? settings_header_bytes : swap_header_bytes, 0) !=
        common::io_result::ok) {
        fail(kHeaderWriteFailed);
        return true;
    }
    return complete();
}

bool job::load() {
    if (holder_.load(input_.c_str()) == 0) return true;
    ++g_failedJobs;
    printError(1, kLoadFailed);
    return false;
}

bool job::rename_cineon() {
    common::file renamed(input_);
    if (!renamed.change_extension("cin", 1)) return false;
    // The reader's descriptor stays open across the rename; the file is untouched.
    common::file(input_).rename_to(renamed);
    common::console_out << "Renaming..." << renamed << "\n";
    return true;
}

void job::build_paths() {
    if (g_outputDir.size > 0) {
        char name[256];
        input_.name(name, sizeof name);
        target_ = std::string(g_outputDir.c_str()) + name;
        return;
    }
    target_ = input_.c_str();
    in_place_ = true;
}

bool job::needs_settings() const {
    const auto& element = header_.image_element[0];
    return int32_t(int16_t(reader_->ref_low)) != g_lowData ||
           int32_t(int16_t(reader_->ref_high)) != g_highData ||
           int32_t(element.transfer) != g_transfer ||
           header_.image_offset != uint32_t(g_byteOffset) ||
           header_.image_offset != element.data_offset ||
           element.descriptor != 50 ||
           element.packing != 1;
}

bool job::image_lies_in_input(uint64_t size) const {
    uint64_t file = 0;
    if (size == 0 || common::size_of(reader_->fd, file) != common::io_result::ok) return false;
    const uint64_t offset = reader_->data_offset;
    return offset <= file && size <= file - offset;
}

copy_status job::copy_image(uint64_t size, const placement* places, int count, int* failures) {
    const uint64_t source = reader_->data_offset;
    // When the second copy lies above the first, walking the image from its
    // end makes every byte of the second copy land after any byte of the first
    // copy that overlaps it, as if the copies were written one after the other.
    const bool backwards = count == 2 && places[1].offset > places[0].offset;
    const uint64_t chunk = std::min(size, kChunkBytes);
    buffer data(chunk);
    if (!data.get()) return copy_status::read_failed;
    const uint64_t chunks = (size + chunk - 1) / chunk;
    for (uint64_t i = 0; i < chunks; ++i) {
        if (interrupted()) return copy_status::interrupted;
        uint64_t index = backwards ? chunks - 1 - i : i;
        uint64_t at = index * chunk;
        uint64_t n = std::min(chunk, size - at);
        if (reader_->read_at(data.get(), source + at, n) != 0) return copy_status::read_failed;
        if (reader_->swap_bytes) reverse_words(data.get(), n);
        for (int k = 0; k < count; ++k) {
            if (common::write_at(out_.get(), data.get(), n, places[k].offset + at) != common::io_result::ok) {
                *failures = places[k].failures;
                return copy_status::write_failed;
            }
            // A frame that replaces its original is flushed before the rename:
            // starting its write-back now lets the disk work while the rest
            // of the frame is converted, so the flush has little left to wait for.
            if (in_place_)
                sync_file_range(out_.get(), off64_t(places[k].offset + at), off64_t(n), SYNC_FILE_RANGE_WRITE);
        }
    }
    return copy_status::ok;
}

bool job::open_output() {
    // With -c naming the input's own folder the output would be the input
    // itself; that is refused rather than taken as a request to convert in place.
    if (!in_place_ && common::same_file(reader_->fd, target_.c_str())) return false;
    // The converted frame is written into a file of this job's own beside its
    // final place, so no other run and no earlier file can be mixed into it.
    return out_.create(common::folder_of(target_), 0664) == common::io_result::ok;
}

void job::fail(const char* message, int failures) {
    g_failedJobs += failures;
    printError(1, message);
    out_.discard();
}

bool job::complete() {
    // Replacing the original: the converted frame reaches stable storage first,
    // so a crash or power loss leaves one whole version or the other.
    if (out_.seal(in_place_) != common::io_result::ok) {
        fail(kImageWriteFailed);
        return true;
    }
    // Past this point an interruption no longer stops the job: the frame is
    // complete, and putting it in place is one rename.
    if (out_.install(target_, in_place_) != common::io_result::ok) out_.discard();
    return true;
}

}  // namespace

bool repair_job(const common::file& input) {
    return job(input).run();
}
