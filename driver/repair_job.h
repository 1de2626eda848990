// The byte-order repair job run once per file of the job list.
#pragma once

#include "common/file.h"

// Rewrites the DPX file `input` in host byte order with the run's settings
// (or renames a misnamed Cineon file), reporting and counting any failure.
void repair_job(const common::file& input);
