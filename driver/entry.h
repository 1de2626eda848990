// The tarvex entry: banner, options, job list, jobs, summary.
#pragma once

// The option string handed to getopt.
extern const char kOptionString[];
// The version text shown by the banner and by -z.
extern const char kVersion[];

// Runs tarvex with the given arguments; always returns 0.
int tarvex_main(int argc, char** argv);

// Prints how the program is ending and exits with `code`. Nothing calls it:
// every path through the entry returns status 0.
[[noreturn]] void exit_program(int code);
