// An independent byte-level model of what tarvex does to one file: whether
// it loads, is refused or renamed, and the exact bytes of the converted frame.
// It follows the documented behaviour and shares no code with tarvex.
#pragma once

#include <string>

#include "support/dpx_bytes.h"

namespace model {

extern const char* const load_failed;  // the error lines' texts
extern const char* const not_10bit;
extern const char* const open_failed;
extern const char* const read_failed;
extern const char* const write_failed;
extern const char* const header_failed;
extern const char* const replace_failed;
extern const char* const cineon_taken;

// The run's settings: options, or what the first file that loads as DPX has; -1 is unset.
struct run {
    int32_t offset = -1, transfer = -1, low = -1, high = -1;
    bool big = !testdata::host_little;  // the order frames are written in (-e)
    bool all = false;                   // every depth and packing (-a)
    bool first = true;  // the next DPX file prints the report and fixes the unset settings
};

struct job {
    std::string error;     // its error line's text, if any
    int failures = 0;      // what the summary counts
    bool report = false;   // it printed the settings report
    bool renamed = false;  // a Cineon file: renamed to .cin when its name allows, never read
    bool written = false;  // `output` is written, and renamed over the input or into -c's folder
    bool works = false;    // it got as far as its output: dead runs' files go from the folder it writes in
    testdata::bytes output;
};

// Converting `input` in `r`; with `copy` (an output folder) a frame that
// needs nothing is written there as it is.
job convert(const testdata::bytes& input, run& r, bool copy = false);

// The name a misnamed Cineon file `name` takes: "cin" for its extension, or
// ".cin" added when it has none or an all-digit one; `name` when it ends in ".cin".
std::string cineon_name(const std::string& name);

}  // namespace model
