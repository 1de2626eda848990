// The driver's run-wide settings and counters.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/file.h"

// Image data offset for every file (-o); -1 takes it from the first DPX file.
extern int32_t g_byteOffset;
// Transfer characteristic code for element 0 (-t); -1 takes it from the first file.
extern int32_t g_transfer;
// Reference high data code value for element 0 (-w); -1 takes it from the first file.
extern int32_t g_highData;
// Reference low data code value for element 0 (-b); -1 takes it from the first file.
extern int32_t g_lowData;
// The byte order converted frames are written in (-e); `unknown` for a value
// that names none, which ends the run before any job.
// clang-format off
enum class byte_order { host, big, little, unknown };
// clang-format on
extern byte_order g_byteOrder;
// Frames of every bit depth, packing and descriptor are converted (-a), and
// the settings pass keeps their packing.
extern bool g_allDepths;
// The next loaded DPX file prints the settings report and fills unset settings.
extern bool g_firstReport;
// The next progress call prints the start line instead of a bar.
extern bool g_firstProgress;
// Directory converted files are written into (-c); empty converts in place.
extern common::file g_outputDir;
// 1 when the jobs are the lines of a list file (-l).
extern int32_t g_listMode;
// Path of the list file.
extern std::string g_listFile;
// One entry per line of the list file.
extern std::vector<std::string> g_listEntries;
// Number of jobs in the run.
extern int32_t g_totalJobs;
// Jobs run so far; also the index of the next job.
extern int32_t g_jobsDone;
// Failures counted (one failure can count twice).
extern int32_t g_failedJobs;
// Wall-clock time at start, for the elapsed-time display.
extern struct timeval g_startTime;

// True on a big-endian machine.
constexpr bool host_is_big_endian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
// True when converted frames are to be big-endian: -e big, or -e host on a
// big-endian machine.
bool target_is_big_endian();
