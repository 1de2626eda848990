// The "Cineon/DPX Settings" block printed for the first DPX file of a run.
#pragma once

#include "cineon/dpx_header.h"
#include "cineon/dpx_reader.h"

// Prints how `header` (the reader's copy, in host order) is laid out.
void print_settings_report(const smptedpx_reader& reader, const SMPTE268M_Header_t& header);

// The report's transfer line for a transfer characteristic code.
const char* transfer_line(unsigned code);
