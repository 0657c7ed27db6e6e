#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <array>
#include <utility>

namespace {

// Reads a label into a buffer of just the promised size; the sanitizer sees anything beyond it.
template <std::size_t Size>
std::string labelOf(char *(*reader)(char *), const char *key, const std::string &value) {
    rig::setSetting(key, value);
    std::array<char, Size> out{};
    EXPECT_EQ(reader(out.data()), out.data());
    return out.data();
}

} // namespace

class FirmwareUpgrade : public rig::Fixture {};

TEST_F(FirmwareUpgrade, AReportIsFinishedOnceAndOnlyAfterAStart) {
    ra_set_check_fw_report(2);
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "");

    ra_report_fw_upgrade_start();
    EXPECT_EQ(ra_get_check_fw_report(), 1);
    EXPECT_EQ(rig::setting("aws_fw_report"), "0");

    ra_report_fw_upgrade_finish();
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(ra_get_check_fw_report(), 0);
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "1");
    EXPECT_EQ(rig::settingSaves(), 2); // one each
}

TEST_F(FirmwareUpgrade, AnEventTypeIsKnownByItsBeginningAndIsWeeklyOtherwise) {
    const std::pair<std::string, const char *> rows[] = {
        {"", "Weekly"},
        {"0x", "Weekly"},
        {"35", "New Install"},
        {"4" + std::string(5000, 'x'), "GUI upgrade"},
        {"5", "APP upgrade"},
        {"New Install!", "New Install"},
        {"GUI upgrade", "GUI upgrade"},
        {"GUI", "Weekly"},
        {std::string(5000, 'x'), "Weekly"},
    };
    for (const auto &[value, label] : rows)
        EXPECT_EQ(labelOf<12>(get_fw_upgarade_event_type, "aws_fw_event_type", value), label);
}

TEST_F(FirmwareUpgrade, TriggerAndCheckResultAreComparedWhole) {
    const auto triggered = [](const char *value) {
        return labelOf<12>(get_fw_upgarade_triggered, "aws_fw_upgarade_triggered", value);
    };
    EXPECT_EQ(triggered("Triggerd"), "Triggerd");
    for (const char *value : {"", "Triggered", "Triggerd "})
        EXPECT_EQ(triggered(value), "Not trigger");

    const auto result = [](const char *value) {
        return labelOf<23>(get_fw_check_result, "aws_fw_check_result", value);
    };
    for (const char *value :
         {"unknown error", "Fileinfo download fail", "Firmware download fail", "No internet"})
        EXPECT_EQ(result(value), value);
    for (const char *value : {"", "No internet ", "No"})
        EXPECT_EQ(result(value), "no error");
}
