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

// The run's settings: options, or what the first file that loads as DPX has; -1 is unset.
struct run {
    int32_t offset = -1, transfer = -1, low = -1, high = -1;
    bool first = true;  // the next DPX file prints the report and fixes the unset settings
};

struct job {
    std::string error;     // its error line's text, if any
    int failures = 0;      // what the summary counts
    bool report = false;   // it printed the settings report
    bool renamed = false;  // a Cineon file: renamed to .cin when its name allows, never read
    bool swapped = false;  // it converts the byte order, truncating its output
    bool opened = false;   // it opened its output, which a failure removes
    bool written = false;  // `output` is written, and renamed over the input unless -c
    testdata::bytes output;
};

// Converting `input` in `r`. A frame needing only its settings rewritten
// reuses the output file it finds, `prior`, without truncating it.
job convert(const testdata::bytes& input, run& r, const testdata::bytes& prior = {});

}  // namespace model
