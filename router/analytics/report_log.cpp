#include "analytics/report_log.h"

#include "common/file.h"

#include <cstdarg>
#include <ctime>

inline namespace routerutil {

void append_report_log(const char *format, ...) {
    const File log(fopen(kReportLog, "a+"));
    const time_t now = time(nullptr);
    const tm *local = localtime(&now); // looks the zone up each time: its settings may change
    if (!log || local == nullptr)
        return;
    fprintf(log.get(), "[%d/%d/%d %02d:%02d:%02d]", local->tm_year + 1900, local->tm_mon + 1,
            local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(log.get(), format, arguments);
    va_end(arguments);
}

} // namespace routerutil
