// What the updater leaves in settings about a firmware upgrade. The misspellings are the updater's
// own: it writes them, so they must stay.
#pragma once

inline namespace routerutil {

constexpr const char *kCheckResultSetting = "aws_fw_check_result";
constexpr const char *kNoError = "no error";

constexpr const char *kTriggeredSetting = "aws_fw_upgarade_triggered";
constexpr const char *kTriggered = "Triggerd";

} // namespace routerutil
