// An independent byte-level model of what tarvex does to one file: whether
// it loads, is refused or renamed, and the exact bytes of the converted frame.
// It follows the documented behaviour and shares no code with tarvex.
#pragma once

#include <string>

#include "support/dpx_bytes.h"

namespace model {

// The error lines' texts.
inline const char* const load_failed = "Could not load image or file was not a DPX file!";
inline const char* const not_10bit = "Could not swap DPX to local byte ordering because it was not a 10bit image file!";
inline const char* const open_failed = "Could not swap DPX to local byte ordering because it could not open the file!";
inline const char* const read_failed = "Could not swap DPX to local byte ordering because it could not read the image file!";
inline const char* const write_failed = "Could not swap DPX to local byte ordering because it could not write the image file!";
inline const char* const header_failed = "Could not swap DPX to local byte ordering because it could not write the header!";
inline const char* const replace_failed = "Could not swap DPX to local byte ordering because it could not replace the original file!";
inline const char* const cineon_taken = "Could not rename the Cineon file to its .cin name because that name is taken or could not be made!";

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
