// The byte-order repair job run once per file of the job list.
#pragma once

#include "common/file.h"

// How a job ended: finished (converted, copied, left alone, or failed with
// its error line printed and counted), or stopped by an interruption
// (SIGINT, SIGTERM, SIGHUP) before it finished, its output gone and nothing
// counted.
// clang-format off
enum class [[nodiscard]] job_result { finished, interrupted };
// clang-format on

// Rewrites the DPX file `input` in host byte order with the run's settings
// (or renames a misnamed Cineon file), reporting and counting any failure.
job_result repair_job(const common::file& input);
