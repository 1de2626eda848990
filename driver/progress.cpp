#include "driver/progress.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "driver/console.h"
#include "driver/settings.h"

namespace {

// Elapsed wall-clock time since start as hh:mm:ss; whole days wrap away.
std::string elapsed_text() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    time_t seconds = now.tv_sec - g_startTime.tv_sec;
    struct tm parts;
    gmtime_r(&seconds, &parts);
    char text[32];
    std::snprintf(text, sizeof text, "%.2d:%.2d:%.2d", parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

}  // namespace

void showProgress(int32_t done, int32_t total) {
    if (total == 0) {
        printError(1, "Total Jobs = 0!");
        return;
    }
    int w = common::console_out.width();
    if (w > 255) w = 255;
    // Not a terminal: a line redrawn in place would only litter a log.
    if (w <= 0) return;

    if (g_firstProgress) {
        g_firstProgress = false;
        std::string line = "Starting Process...";
        if (int(line.size()) < w) line.append(size_t(w) - line.size(), ' ');
        common::console_out << line.c_str();
        return;
    }

    std::string escape = "\033[" + std::to_string(w) + "D";
    float share = float(done) / float(total);
    std::string percent = std::to_string(int(share * 100.0f)) + "%";
    if (percent.size() < 5) percent.append(5 - percent.size(), ' ');

    std::string line = escape + percent;
    int bar = w - 24 - int(escape.size());
    if (bar < 1) {
        // Too narrow for a bar: the percentage and the time, cut to the width.
        std::string visible = percent + elapsed_text();
        line = escape + visible.substr(0, size_t(w));
    } else {
        int stars = int(share * float(bar));
        line += '|';
        line.append(size_t(stars), '*');
        // The closing bar sits 23 columns before the right edge whatever the
        // escape's length, so a shorter bar leaves a blank before it.
        line.append(size_t(w - 29 - stars), ' ');
        line += '|';
        line.append(14, ' ');
        line += elapsed_text();
    }
    common::console_out << line.c_str();
}
