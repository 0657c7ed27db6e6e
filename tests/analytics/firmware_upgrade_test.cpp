#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <array>

namespace {

// Reads a label into a buffer of just the promised size; the sanitizer sees anything beyond it.
template <std::size_t Size>
std::string labelOf(char *(*reader)(char *), const char *key, const std::string &value) {
    rig::setSetting(key, value);
    std::array<char, Size> out{};
    EXPECT_EQ(reader(out.data()), out.data());
    return out.data();
}

std::string eventLabel(const std::string &value) {
    return labelOf<12>(get_fw_upgarade_event_type, "aws_fw_event_type", value);
}
std::string triggeredLabel(const std::string &value) {
    return labelOf<12>(get_fw_upgarade_triggered, "aws_fw_upgarade_triggered", value);
}
std::string checkResult(const std::string &value) {
    return labelOf<23>(get_fw_check_result, "aws_fw_check_result", value);
}

} // namespace

class FirmwareUpgrade : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        ra_set_check_fw_report(0);
    }
};

TEST_F(FirmwareUpgrade, AReportIsFinishedOnceAndOnlyAfterAStart) {
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "");
    EXPECT_EQ(rig::settingSaves(), 0);

    ra_report_fw_upgrade_start();
    EXPECT_EQ(ra_get_check_fw_report(), 1);
    EXPECT_EQ(rig::setting("aws_fw_report"), "0");
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "");
    EXPECT_EQ(rig::settingSaves(), 1);

    ra_report_fw_upgrade_finish();
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(ra_get_check_fw_report(), 0);
    EXPECT_EQ(rig::setting("aws_fw_report"), "0");
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "1");
    EXPECT_EQ(rig::settingSaves(), 2);

    ra_set_check_fw_report(2);
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(rig::settingSaves(), 2);
}

TEST_F(FirmwareUpgrade, AnEventTypeIsKnownByItsBeginningAndIsWeeklyOtherwise) {
    const struct {
        std::string value;
        const char *label;
    } rows[] = {
        {"", "Weekly"},
        {"0", "Weekly"},
        {"0x", "Weekly"},
        {"3", "New Install"},
        {"35", "New Install"},
        {"4", "GUI upgrade"},
        {"5", "APP upgrade"},
        {"New Install!", "New Install"},
        {"GUI upgrade", "GUI upgrade"},
        {"APP upgrade by phone", "APP upgrade"},
        {"GUI", "Weekly"},
        {" 4", "Weekly"},
        {"1", "Weekly"},
        {"4" + std::string(5000, 'x'), "GUI upgrade"},
        {std::string(5000, 'x'), "Weekly"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(eventLabel(row.value), row.label) << row.value;
}

TEST_F(FirmwareUpgrade, TriggerAndCheckResultAreComparedWhole) {
    EXPECT_EQ(triggeredLabel("Triggerd"), "Triggerd");
    for (const char *value : {"", "Triggered", "Triggerd "})
        EXPECT_EQ(triggeredLabel(value), "Not trigger");
    for (const char *value :
         {"unknown error", "Fileinfo download fail", "Firmware download fail", "No internet"})
        EXPECT_EQ(checkResult(value), value);
    for (const char *value : {"", "No internet ", "No", "anything at all, and long at that"})
        EXPECT_EQ(checkResult(value), "no error");
}
