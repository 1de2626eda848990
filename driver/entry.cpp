#include "driver/entry.h"

#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/file.h"
#include "common/io.h"
#include "driver/console.h"
#include "driver/interrupt.h"
#include "driver/progress.h"
#include "driver/repair_job.h"
#include "driver/settings.h"

const char kOptionString[] = "l:w:b:t:z:c:o:fe:ah";
const char kVersion[] = "v3.1 beta 1";

namespace {

const char kCopyright[] = "(c) 2026 Quillmoor Film Tools";

// The desktop application layer has nothing to start or stop on Linux.
void start_application_layer() {}
void teardown_application_layer() {}

// The blue banner bar, as wide as the terminal.
void print_banner() {
    char line[256];
    int n = std::snprintf(line, sizeof line, "\033[1;44m<tarvex %s %s ", kVersion, kCopyright);
    const int prefix = 7;  // the colour escape before "<"
    while (n < 250 && n - prefix < common::console_out.width() - 1) line[n++] = ' ';
    line[n] = '\0';
    common::console_out << line << '>' << "\033[0m" << '\n';
}

// The -o value: "-1", or decimal digits alone for 2048 to 2147483647. Any
// other text (a sign, a blank, a suffix, a value past 32 bits) gives 0, which
// the offset check refuses, so no value is ever silently wrapped.
int32_t parse_offset(const char* value) {
    if (std::strcmp(value, "-1") == 0) return -1;
    int64_t n = 0;
    for (const char* p = value; *p; ++p) {
        if (*p < '0' || *p > '9') return 0;
        n = n * 10 + (*p - '0');
        if (n > INT32_MAX) return 0;
    }
    return *value ? int32_t(n) : 0;
}

// What -h and --help print.
const char kUsage[] =
    "usage: tarvex [options] FRAME...\n"
    "       tarvex [options] -l LIST\n"
    "Rewrites DPX frames in this machine's byte order, or the one -e names.\n"
    "  -o OFFSET  image data offset for every frame: 2048 or more, or -1 for the first frame's\n"
    "  -t CODE    transfer characteristic of element 0\n"
    "  -w HIGH    reference high data code value of element 0\n"
    "  -b LOW     reference low data code value of element 0\n"
    "  -c DIR     write the frames into DIR under their names instead of replacing them\n"
    "  -l LIST    take the frames from LIST, one path a line\n"
    "  -e ORDER   byte order to write: host (the default), big or little\n"
    "  -a         every bit depth, packing and descriptor, not only 10-bit RGB\n"
    "  -f         accepted and ignored\n"
    "  -z ANY     print the version and exit (also --version)\n"
    "  -h         print this and exit (also --help)\n"
    "See the manual page: man tarvex\n";

// The byte order -e names; unknown for any other text.
byte_order parse_order(const char* value) {
    if (std::strcmp(value, "host") == 0) return byte_order::host;
    if (std::strcmp(value, "big") == 0) return byte_order::big;
    if (std::strcmp(value, "little") == 0) return byte_order::little;
    return byte_order::unknown;
}

// Applies one option; -z and -h end the process at once.
void handle_option(int option, const char* value) {
    switch (option) {
        case 'l':
            g_listMode = 1;
            g_listFile = value;
            break;
        case 'w': g_highData = std::atoi(value); break;
        case 'b': g_lowData = std::atoi(value); break;
        case 't': g_transfer = std::atoi(value); break;
        case 'o': g_byteOffset = parse_offset(value); break;
        case 'c':
            g_outputDir.assign(1, value);
            g_outputDir.add_separator(1);
            break;
        case 'e': g_byteOrder = parse_order(value); break;
        case 'a': g_allDepths = true; break;
        case 'z': common::console_out << kVersion << "\n"; std::exit(0);
        case 'h': common::console_out << kUsage; std::exit(0);
        default: break;  // -f is accepted and has no effect
    }
}

// How reading the options ended.
// clang-format off
enum class [[nodiscard]] options_result { ok, bad_option };
// clang-format on

// The only long options: --help is -h and --version is -z, each spelled out
// in full (getopt_long would take any unambiguous start of them).
const struct option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'z'}, {nullptr, 0, nullptr, 0}};

// Runs getopt over the arguments, handing each option to `handler`.
options_result parse_options(int argc, char** argv, void (*handler)(int, const char*)) {
    int option, index = -1;
    while ((option = getopt_long(argc, argv, kOptionString, kLongOptions, &index)) != -1) {
        // An unknown or shortened long option is reported as before, by its first letter after the dash.
        if ((index >= 0 && std::strcmp(argv[optind - 1] + 2, kLongOptions[index].name) != 0) ||
            (option == '?' && optopt == 0))
            option = '?', optopt = '-';
        index = -1;
        // An empty output folder would quietly mean "in place".
        if (option == ':' || (option == 'c' && optarg && *optarg == '\0')) {
            common::console_out << "Option needs a value" << '\n';
            return options_result::bad_option;
        }
        if (option == '?') {
            char text[32];
            std::snprintf(text, sizeof text, "Unrecognized option: %c\n", optopt);
            common::console_out << text;
            return options_result::bad_option;
        }
        if (handler) handler(option, optarg ? optarg : "");
    }
    return options_result::ok;
}

// Longest list line taken as a path; a longer line stays one job, cut to a
// length no path can have, so it fails to load instead of being mistaken
// for a shorter path, and memory stays bounded whatever the list holds.
constexpr size_t kMaxListLine = 4096;

// Reads the list: one job a line. A folder or a device gives no jobs, like
// a list that cannot be opened; a FIFO or a pipe is read.
void read_list_file() {
    common::descriptor list = common::open_file(g_listFile.c_str(), O_RDONLY);
    struct stat st;
    if (!list.valid() || common::status_of(list.get(), st) != common::io_result::ok ||
        !(S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)))
        return;
    std::string line;
    char block[1 << 16];
    size_t got = 0;
    while (common::read_some(list.get(), block, sizeof block, got) == common::io_result::ok && got > 0) {
        for (size_t i = 0; i < got; ++i) {
            if (block[i] == '\n') {
                g_listEntries.push_back(line);
                line.clear();
            } else if (line.size() <= kMaxListLine) {
                line += block[i];
            }
        }
        if (got < sizeof block) break;
    }
    if (!line.empty()) g_listEntries.push_back(line);
    g_totalJobs = int32_t(g_listEntries.size());
}

}  // namespace

void exit_program(int code) {
    if (code == 0) common::console_out << "Exiting normally" << '\n';
    else common::console_out << "Exiting unexpectedly (" << int32_t(code) << ")" << '\n';
    std::exit(code);
}

int tarvex_main(int argc, char** argv) {
    gettimeofday(&g_startTime, nullptr);
    catch_interruptions();
    print_banner();
    start_application_layer();
    // A mistyped option ends the run before any file is touched: taking the
    // rest as operands could convert originals meant for an output folder.
    if (parse_options(argc, argv, handle_option) != options_result::ok) {
        teardown_application_layer();
        return 0;
    }

    const int operands = argc - optind;
    if (operands <= 0 && g_listMode == 0) {
        printError(1, "No files entered!\nSee man pages for more information.");
        teardown_application_layer();
        return 0;
    }
    if (!(g_byteOffset > 2047 || g_byteOffset == -1)) {
        printError(1, "Byte offset was set below the minimum requestable range of 2048 bytes.");
        teardown_application_layer();
        return 0;
    }
    if (g_byteOrder == byte_order::unknown) {
        printError(1, "Byte order was set to something other than host, big or little.");
        teardown_application_layer();
        return 0;
    }

    if (g_listMode == 0) g_totalJobs = operands;
    else read_list_file();

    while (g_totalJobs > g_jobsDone && !interrupted()) {
        const char* path = g_listMode ? g_listEntries[size_t(g_jobsDone)].c_str() : argv[optind + g_jobsDone];
        common::file input(path);
        if (repair_job(input) == job_result::interrupted) break;  // this job is not done
        ++g_jobsDone;
        showProgress(g_jobsDone - 1, g_totalJobs);
    }
    if (!interrupted()) showProgress(g_jobsDone, g_totalJobs);

    common::console_out << '\n' << "Finished " << g_jobsDone << " of " << g_totalJobs;
    if (g_failedJobs == 0) common::console_out << ", none failed to convert." << '\n';
    else common::console_out << ", only " << g_failedJobs << " failed to convert." << '\n';
    if (interrupted()) end_by_interruption();

    teardown_application_layer();
    return 0;
}
