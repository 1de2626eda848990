// What the run does on SIGINT, SIGTERM and SIGHUP: the running job stops and
// removes its output, no further job starts, the summary of the finished jobs
// is printed, and the process then ends by the same signal.
#pragma once

// Catches SIGINT, SIGTERM and SIGHUP, and ignores SIGPIPE so that a closed
// standard output never stops a conversion.
void catch_interruptions();
// True once one of the caught signals has arrived.
bool interrupted();
// Ends the process by the signal that arrived, as if it had not been caught.
[[noreturn]] void end_by_interruption();
