#include "analytics/firmware_upgrade.h"

#include "analytics/firmware_settings.h"
#include "analytics/report_file.h"
#include "common/text.h"
#include "platform/nvram.h"

#include <string_view>

namespace {

// What callers promise to have room for.
constexpr std::size_t kEventTypeSize = 12;
constexpr std::size_t kTriggeredSize = 12;
constexpr std::size_t kCheckResultSize = 23;

struct EventType {
    const char *code;
    const char *label;
};
constexpr EventType kEventTypes[] = {
    {"0", "Weekly"},
    {"3", "New Install"},
    {"4", "GUI upgrade"},
    {"5", "APP upgrade"},
};

constexpr const char *kCheckFailures[] = {
    "unknown error",
    "Fileinfo download fail",
    "Firmware download fail",
    "No internet",
};

// Only the beginning counts, deliberately: "35" is a "3", and a code wins over a label.
const char *event_label(std::string_view value) {
    for (const auto &type : kEventTypes) {
        if (value.starts_with(type.code))
            return type.label;
    }
    for (const auto &type : kEventTypes) {
        if (value.starts_with(type.label))
            return type.label;
    }
    return "Weekly";
}

const char *check_result() {
    for (const char *failure : kCheckFailures) {
        if (kelpNvramConfig_match(kCheckResultSetting, failure) == 1)
            return failure;
    }
    return kNoError;
}

} // namespace

void ra_report_fw_upgrade_start(void) {
    ra_set_check_fw_report(1);
    kelpNvramConfig_set("aws_fw_report", "0");
    kelpNvramConfig_save();
}

void ra_report_fw_upgrade_finish(void) {
    if (ra_get_check_fw_report() != 1)
        return;
    ra_set_check_fw_report(0);
    kelpNvramConfig_set("aws_fw_report_done", "1");
    kelpNvramConfig_save();
}

char *get_fw_upgarade_event_type(char *out) {
    copy_text(out, kEventTypeSize, event_label(kelpNvramConfig_get("aws_fw_event_type")));
    return out;
}

char *get_fw_upgarade_triggered(char *out) {
    const bool triggered = kelpNvramConfig_match(kTriggeredSetting, kTriggered) == 1;
    copy_text(out, kTriggeredSize, triggered ? kTriggered : "Not trigger");
    return out;
}

char *get_fw_check_result(char *out) {
    copy_text(out, kCheckResultSize, check_result());
    return out;
}
