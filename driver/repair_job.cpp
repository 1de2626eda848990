#include "driver/repair_job.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"
#include "cineon/image_holder.h"
#include "common/io.h"
#include "driver/console.h"
#include "driver/interrupt.h"
#include "driver/settings.h"
#include "driver/settings_report.h"

namespace {

const char kLoadFailed[] = "Could not load image or file was not a DPX file!";
const char kNot10Bit[] = "Could not swap DPX to local byte ordering because it was not a 10bit image file!";
const char kOpenFailed[] = "Could not swap DPX to local byte ordering because it could not open the file!";
const char kReadFailed[] = "Could not swap DPX to local byte ordering because it could not read the image file!";
const char kImageWriteFailed[] = "Could not swap DPX to local byte ordering because it could not write the image file!";
const char kHeaderWriteFailed[] = "Could not swap DPX to local byte ordering because it could not write the header!";
const char kReplaceFailed[] =
    "Could not swap DPX to local byte ordering because it could not replace the original file!";
const char kCineonRenameFailed[] =
    "Could not rename the Cineon file to its .cin name because that name is taken or could not be made!";

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

// The name a misnamed Cineon file is given: its extension replaced by
// "cin", or ".cin" appended when it has none or only a frame number there
// (scan.0001 becomes scan.0001.cin, so the frames of a sequence keep apart).
// Empty when the name already ends in ".cin".
std::string cineon_name(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || dot < start) return path + ".cin";
    const std::string extension = path.substr(dot + 1);
    if (extension == "cin") return std::string();
    const bool digits = !extension.empty() &&
                        std::all_of(extension.begin(), extension.end(), [](char c) { return c >= '0' && c <= '9'; });
    return digits ? path + ".cin" : path.substr(0, dot + 1) + "cin";
}

// clang-format off
enum class [[nodiscard]] copy_status { ok, read_failed, write_failed, interrupted };
// clang-format on

// One job's objects and the exits they share. Each step returns true when
// the job goes on; a step that ends the job has printed and counted its
// failure, or found nothing left to do, or seen an interruption.
class job {
public:
    explicit job(const common::file& input) : input_(input), given_(input.c_str() ? input.c_str() : "") {}
    // Runs the steps in order until one ends the job.
    job_result run();

private:
    [[nodiscard]] bool load();
    [[nodiscard]] bool check_cineon();
    [[nodiscard]] bool report_settings();
    [[nodiscard]] bool check_depth();
    [[nodiscard]] bool plan_output();
    [[nodiscard]] bool swap_pass();
    [[nodiscard]] bool settings_pass();
    [[nodiscard]] bool completion();

    [[nodiscard]] bool needs_settings() const;
    [[nodiscard]] bool copy_unchanged();
    [[nodiscard]] bool copy_user_data();
    [[nodiscard]] bool open_output();
    copy_status copy_image(uint64_t size);
    void fail(const char* message, int failures = 1);

    const common::file& input_;
    std::string given_;  // the path as the user gave it, for error lines
    image_holder holder_;
    smptedpx_reader* reader_ = nullptr;
    SMPTE268M_Header_t header_;
    std::string target_;        // where the converted frame goes when complete
    bool in_place_ = false;     // the target is the input itself
    bool swap_ = false;         // the frame is in the other byte order
    bool settings_ = false;     // the run's settings differ from the frame's
    uint64_t from_ = 0;         // where the image starts in the input
    uint64_t to_ = 0;           // where it starts in the output: the run's offset when settings are rewritten
    bool interrupted_ = false;  // an interruption stopped the job
    common::private_file out_;  // the converted frame while it is written
};

job_result job::run() {
    // Each step runs only when the one before went on; whichever step ended
    // the job has already said why.
    [[maybe_unused]] const bool completed = load() && check_cineon() && report_settings() && check_depth() &&
                                            plan_output() && swap_pass() && settings_pass() && completion();
    return interrupted_ ? job_result::interrupted : job_result::finished;
}

bool job::load() {
    if (holder_.load(input_.c_str(), g_allDepths) != codec_result::ok) {
        fail(kLoadFailed);
        return false;
    }
    reader_ = holder_.dpx_reader;
    if (!reader_ || reader_->read_header_bytes(&header_, sizeof header_) == codec_result::ok) return true;
    fail(kLoadFailed);
    return false;
}

// A Cineon file is not converted: it is renamed to its .cin name, never over
// another file, so a sequence of Cineon frames cannot collapse into one name.
// The reader's descriptor stays open; the file is untouched.
bool job::check_cineon() {
    if (!holder_.cineon_reader) return true;
    const std::string renamed = cineon_name(given_);
    // Where names are case-insensitive, the file given as scan.CIN may be
    // called scan.cin already: then it has its name.
    if (renamed.empty() || (!common::named_exactly(given_.c_str()) && common::named_exactly(renamed.c_str())))
        return false;
    if (common::rename_no_replace(given_.c_str(), renamed.c_str()) != common::io_result::ok) {
        fail(kCineonRenameFailed);
        return false;
    }
    common::console_out << "Renaming..." << renamed.c_str() << "\n";
    return false;
}

// The first DPX file of the run prints the settings report and fixes every
// setting not given as an option.
bool job::report_settings() {
    if (!g_firstReport) return true;
    const auto& element = header_.image_element[0];
    print_settings_report(*reader_, header_);
    g_firstReport = false;
    if (g_byteOffset == -1) g_byteOffset = int32_t(element.data_offset);
    if (g_lowData == -1) g_lowData = int32_t(element.ref_low_data);
    if (g_highData == -1) g_highData = int32_t(element.ref_high_data);
    if (g_transfer == -1) g_transfer = element.transfer;
    return true;
}

bool job::check_depth() {
    if (g_allDepths || reader_->bit_depth == 10) return true;
    fail(kNot10Bit);
    return false;
}

// Where the frame goes, and what it needs. A frame already right is left
// alone in place; into -c's folder it is copied as it is, so that folder
// holds the whole sequence.
bool job::plan_output() {
    // The frame's order is the host's unless the reader swapped its header.
    const bool big = host_is_big_endian != (reader_->swap_bytes != 0);
    swap_ = big != target_is_big_endian();
    settings_ = needs_settings();
    from_ = reader_->data_offset;
    to_ = settings_ ? uint32_t(g_byteOffset) : from_;
    if (g_outputDir.size > 0) {
        char name[256];
        input_.name(name, sizeof name);
        target_ = std::string(g_outputDir.c_str()) + name;
        // An output folder that is the input's own folder converts in place.
        // The resolved paths tell it too where a FUSE file system gives the
        // same file another inode number at the next lookup.
        in_place_ = common::same_file(reader_->fd, target_.c_str()) ||
                    common::resolved_path(target_) == common::resolved_path(given_);
        if (!in_place_) return common::sweep_private_files(common::folder_of(target_)), true;
    }
    // A frame given through a symbolic link is converted where the link
    // points; the link itself stays as it is.
    target_ = common::resolved_path(given_);
    in_place_ = true;
    // What killed runs left in the folder goes before this run adds its own.
    common::sweep_private_files(common::folder_of(target_));
    return swap_ || settings_;
}

bool job::needs_settings() const {
    const auto& element = header_.image_element[0];
    // The code values compare as the signed 16-bit numbers the reader holds
    // and the report prints; with -a, whose frames carry codes up to 65535
    // and beyond, as they are stored, so such a frame matches its own values.
    const int32_t low = g_allDepths ? int32_t(element.ref_low_data) : int32_t(int16_t(reader_->ref_low));
    const int32_t high = g_allDepths ? int32_t(element.ref_high_data) : int32_t(int16_t(reader_->ref_high));
    return low != g_lowData || high != g_highData || int32_t(element.transfer) != g_transfer ||
           header_.image_offset != uint32_t(g_byteOffset) || header_.image_offset != element.data_offset ||
           (!g_allDepths && element.packing != 1);
}

// Writes the image into the output: from its offset to the end of the input
// (so nothing the header does not count is lost), every whole unit (the
// reader's: a 32-bit word for 10-bit data) reversed when the byte order
// changes, at the run's offset when the settings are
// rewritten. A frame that needs nothing is copied whole by the kernel (on
// XFS and Btrfs by sharing its blocks).
bool job::swap_pass() {
    if (!swap_ && !settings_) return copy_unchanged();
    uint64_t file = 0;
    const uint64_t declared = reader_->image_size;
    // A header that declares no image, or more than the file holds from the
    // offset on, is a damaged frame: it is not converted.
    if (common::size_of(reader_->fd, file) != common::io_result::ok || from_ > file || declared == 0 ||
        declared > file - from_) {
        fail(kReadFailed);
        return false;
    }
    if (!open_output()) {
        // A frame that only needs its settings rewritten ends without a word
        // when its output cannot be made.
        if (swap_) fail(kOpenFailed);
        return false;
    }
    // A short settings-pass write counts twice, as it always has.
    const int failures = settings_ && !(swap_ && to_ == from_) ? 2 : 1;
    switch (copy_image(file - from_)) {
        case copy_status::read_failed: fail(kReadFailed); return false;
        case copy_status::write_failed: fail(kImageWriteFailed, failures); return false;
        case copy_status::interrupted: interrupted_ = true; return false;
        case copy_status::ok: return true;
    }
    return false;
}

// Writes the header in the run's byte order, with the run's settings when they
// differ; with -a the packing stays as it is, as the descriptor always does.
// Header bytes that were image data in the input (data starting inside the
// 2048-byte header) are written as an unset header area, never as pixels;
// no header byte goes where the image now starts.
bool job::settings_pass() {
    if (!swap_ && !settings_) return true;
    auto& element = header_.image_element[0];
    if (settings_) {
        header_.image_offset = uint32_t(g_byteOffset);
        element.data_offset = uint32_t(g_byteOffset);
        element.ref_low_data = uint32_t(g_lowData);
        element.ref_high_data = uint32_t(g_highData);
        element.transfer = uint8_t(g_transfer & 0xff);
        if (!g_allDepths) element.packing = 1;
    }
    // The header copy is in host order; the run's order is chosen here alone.
    if (target_is_big_endian() != host_is_big_endian) dpx_swap_header(header_);
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&header_);
    if (from_ < sizeof header_) std::memset(bytes + from_, 0, sizeof header_ - from_);
    const uint64_t header_bytes = std::min<uint64_t>(sizeof header_, to_);
    if (common::write_at(out_.get(), bytes, header_bytes, 0) == common::io_result::ok) return copy_user_data();
    fail(kHeaderWriteFailed);
    return false;
}

// With -a the user-defined data between the header and the image goes over
// as it is (only its writer knows what it holds), as far as it fits before
// the image's place, so a frame converted there and back is its bytes again.
bool job::copy_user_data() {
    const uint64_t end = std::min(from_, to_), start = sizeof header_;
    if (!g_allDepths || end <= start) return true;
    if (common::copy_range(reader_->fd, start, out_.get(), start, end - start) == common::io_result::ok) return true;
    fail(kHeaderWriteFailed);
    return false;
}

bool job::copy_unchanged() {
    uint64_t file = 0;
    if (common::size_of(reader_->fd, file) != common::io_result::ok) {
        fail(kReadFailed);
        return false;
    }
    if (!open_output()) {
        fail(kOpenFailed);
        return false;
    }
    if (common::copy_range(reader_->fd, 0, out_.get(), 0, file) == common::io_result::ok) return true;
    fail(kImageWriteFailed);
    return false;
}

bool job::open_output() {
    // The converted frame is written into a file of this job's own beside its
    // final place, so no other run and no earlier file can be mixed into it.
    // In place it takes the original's owner, mode and attributes when
    // complete; in -c's folder it is created with the input's permission
    // bits, less the umask, as cp does.
    struct stat st;
    const mode_t mode = common::status_of(reader_->fd, st) == common::io_result::ok ? st.st_mode & 0777 : 0664;
    return out_.create(common::folder_of(target_), in_place_ ? 0600 : mode) == common::io_result::ok;
}

copy_status job::copy_image(uint64_t size) {
    // Bytes already in the run's order, and 8-bit data, which has no order,
    // are copied by the kernel, not through here, a chunk at a time so that
    // write-back can start as for converted chunks.
    const bool reverse = swap_ && reader_->swap_unit > 1;
    for (uint64_t at = 0; !reverse && at < size; at += kChunkBytes) {
        if (interrupted()) return copy_status::interrupted;
        const uint64_t n = std::min(kChunkBytes, size - at);
        if (common::copy_range(reader_->fd, from_ + at, out_.get(), to_ + at, n) != common::io_result::ok)
            return copy_status::write_failed;
        if (in_place_) sync_file_range(out_.get(), off64_t(to_ + at), off64_t(n), SYNC_FILE_RANGE_WRITE);
    }
    if (!reverse) return copy_status::ok;
    const uint64_t chunk = std::min(size, kChunkBytes);
    buffer data(chunk);
    if (!data.get()) return copy_status::read_failed;
    for (uint64_t at = 0; at < size; at += chunk) {
        if (interrupted()) return copy_status::interrupted;
        const uint64_t n = std::min(chunk, size - at);
        if (reader_->read_at(data.get(), from_ + at, n) != codec_result::ok) return copy_status::read_failed;
        // Whole units are reversed; a tail shorter than a unit stays as it is.
        reverse_units(data.get(), n, reader_->swap_unit);
        if (common::write_at(out_.get(), data.get(), n, to_ + at) != common::io_result::ok)
            return copy_status::write_failed;
        // A frame that replaces its original is flushed before the rename:
        // starting its write-back now lets the disk work while the rest of
        // the frame is converted, so the flush has little left to wait for.
        if (in_place_) sync_file_range(out_.get(), off64_t(to_ + at), off64_t(n), SYNC_FILE_RANGE_WRITE);
    }
    return copy_status::ok;
}

void job::fail(const char* message, int failures) {
    g_failedJobs += failures;
    printError(4, message, " (", given_.c_str(), ")");
    out_.discard();
}

bool job::completion() {
    // The converted frame cannot take the original's place without its owner,
    // mode and attributes.
    if (in_place_ && common::copy_metadata(reader_->fd, out_.get()) != common::io_result::ok) {
        fail(kReplaceFailed);
        return false;
    }
    // Replacing the original: the converted frame reaches stable storage first,
    // so a crash or power loss leaves one whole version or the other.
    if (out_.seal(target_, in_place_) != common::io_result::ok) {
        fail(kImageWriteFailed);
        return false;
    }
    // Past this point an interruption no longer stops the job: the frame is
    // complete, and putting it in place is one rename. The input is read to
    // its end and closed first, so a FUSE file system has no open file to
    // hide under a .fuse_hidden name when the rename replaces it.
    (void)reader_->close();
    if (out_.install(target_, in_place_) != common::io_result::ok) {
        fail(in_place_ ? kReplaceFailed : kImageWriteFailed);
        return false;
    }
    return true;
}

}  // namespace

job_result repair_job(const common::file& input) { return job(input).run(); }
