#include "driver/settings.h"

int32_t g_byteOffset = -1;
int32_t g_transfer = -1;
int32_t g_highData = -1;
int32_t g_lowData = -1;
byte_order g_byteOrder = byte_order::host;
bool g_allDepths = false;
bool g_firstReport = true;
bool g_firstProgress = true;
common::file g_outputDir;
int32_t g_listMode = 0;
std::string g_listFile;
std::vector<std::string> g_listEntries;
int32_t g_totalJobs = 0;
int32_t g_jobsDone = 0;
int32_t g_failedJobs = 0;
struct timeval g_startTime = {0, 0};

bool target_is_big_endian() {
    if (g_byteOrder == byte_order::big) return true;
    return g_byteOrder == byte_order::host && host_is_big_endian;
}
