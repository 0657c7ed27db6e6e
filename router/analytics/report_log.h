// The cumulative debug log of the reports.
#pragma once

inline namespace routerutil {

constexpr const char *kReportLog = "/tmp/ra_debug_log.txt";

// Appends the local time as "[2024/1/5 07:08:09]" and the text; skipped when the log cannot be
// opened.
[[gnu::format(printf, 1, 2)]] void append_report_log(const char *format, ...);

} // namespace routerutil
