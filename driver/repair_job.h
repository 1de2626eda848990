// The byte-order repair job run once per file of the job list.
#pragma once

#include "common/file.h"

// Rewrites the DPX file `input` in host byte order with the run's settings
// (or renames a misnamed Cineon file), reporting and counting any failure.
// False when an interruption (SIGINT, SIGTERM, SIGHUP) stopped it before it
// finished; its output is then gone and nothing is counted.
bool repair_job(const common::file& input);
