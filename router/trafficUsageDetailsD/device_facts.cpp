// Facts about the router itself that a report could carry; offered, not used by the daemon's flow.
#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

constexpr int kTries = 3;
constexpr int kFieldSize = 64;

struct Fact {
    const char *name;
    const char *command; // leaves its answer in file
    const char *file;
};

constexpr Fact kFirmwareVersion = {"firmware version", "version > /tmp/version", "/tmp/version"};
// Deliberate: the serial number comes from what the command writes to its standard error.
constexpr Fact kSerialNumber = {"serial number", "burnsn 2>/tmp/serial_num.txt",
                                "/tmp/serial_num.txt"};

// The second "/"-separated field of the file's second line.
bool readField(const char *path, char *text) {
    const File file(fopen(path, "r"));
    char line[256];
    if (file == nullptr || !read_line(file.get(), line, sizeof line) ||
        !read_line(file.get(), line, sizeof line))
        return false;
    char first[kFieldSize];
    char second[kFieldSize];
    char third[kFieldSize];
    if (sscanf(line, "%63[^/]/%63[^/]/%63[^/]", first, second, third) < 2)
        return false;
    copy_text(text, kFieldSize, second);
    return true;
}

int collect(const Fact &fact, char *text) {
    text[0] = '\0';
    for (int i = 0; i < kTries; ++i) {
        run_shell(fact.command);
        const bool found = readField(fact.file, text);
        unlink(fact.file);
        if (found) {
            tud_dbg("current %s=[%s]\n", fact.name, text);
            return 0;
        }
        printf("Get %s fail[%s]\n", fact.name, text);
        sleep(1);
    }
    printf("ERROR: %s is NULL", fact.name);
    return 1;
}

} // namespace

int collect_dev_fw_ver(char *text) {
    return text == nullptr ? 1 : collect(kFirmwareVersion, text);
}

int collect_dev_sn(char *text) {
    return text == nullptr ? 1 : collect(kSerialNumber, text);
}

int get_timestamp(int *date, int *clock) {
    if (date == nullptr || clock == nullptr)
        return -1;
    const time_t now = time(nullptr);
    tm local{};
    tzset(); // the zone may have been set since the last conversion
    localtime_r(&now, &local);
    date[0] = local.tm_year + 1900;
    date[1] = local.tm_mon + 1;
    date[2] = local.tm_mday;
    clock[0] = local.tm_hour;
    clock[1] = local.tm_min;
    clock[2] = local.tm_sec;
    tud_dbg("%d %d %d %d %d %d", date[0], date[1], date[2], clock[0], clock[1], clock[2]);
    return 0;
}
