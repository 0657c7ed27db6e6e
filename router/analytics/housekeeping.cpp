#include "analytics/housekeeping.h"

#include "analytics/report_log.h"
#include "common/command.h"
#include "common/file.h"

#include <cstdint>
#include <unistd.h>

namespace {
constexpr int64_t kMebibyte = 1048576;
}

void check_size(const char *path, int limit_mib) {
    const File file(fopen(path, "rb"));
    if (limit_mib < 0 || !file || fseeko(file.get(), 0, SEEK_END) != 0)
        return;
    if (static_cast<int64_t>(ftello(file.get())) < limit_mib * kMebibyte)
        return;
    run_command(1024, "rm %s", path);
    append_report_log("Remove %s log\n", path);
}

int check_event_file_exists_or_not(const char *path) {
    return access(path, F_OK) == 0 ? 1 : 0;
}

int create_event_file(const char *path) {
    return run_command(128, "echo 1 > %s", path);
}
