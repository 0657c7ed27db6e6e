#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <array>

class FirmwareUpgrade : public rig::Fixture {};

TEST_F(FirmwareUpgrade, AReportIsFinishedOnceAndOnlyAfterAStart) {
    EXPECT_EQ(ra_set_check_fw_report(2), 0);
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "");
    ra_report_fw_upgrade_start();
    EXPECT_EQ(rig::setting("aws_fw_report"), "0");
    ra_report_fw_upgrade_finish();
    ra_report_fw_upgrade_finish();
    EXPECT_EQ(rig::setting("aws_fw_report_done"), "1");
    EXPECT_EQ(rig::settingSaves(), 2); // one each
}

// The buffers have just the promised sizes: the sanitizer sees anything beyond them.
TEST_F(FirmwareUpgrade, AnEventTypeIsKnownByItsBeginningAndAResultWhole) {
    const std::pair<std::string, const char *> rows[] = {
        {"", "Weekly"},
        {"35", "New Install"},
        {"4" + std::string(5000, 'x'), "GUI upgrade"},
        {"APP upgrade!", "APP upgrade"},
    };
    for (const auto &[value, label] : rows) {
        rig::setSetting("aws_fw_event_type", value);
        EXPECT_STREQ(get_fw_upgarade_event_type(std::array<char, 12>().data()), label);
    }
    for (const auto &[setting, text] : {std::pair{"Triggerd", "Triggerd"}, {"x", "Not trigger"}}) {
        rig::setSetting("aws_fw_upgarade_triggered", setting);
        EXPECT_STREQ(get_fw_upgarade_triggered(std::array<char, 12>().data()), text);
    }
    for (const char *value : {"Fileinfo download fail", "no error"}) {
        rig::setSetting("aws_fw_check_result", value);
        EXPECT_STREQ(get_fw_check_result(std::array<char, 23>().data()), value);
    }
}
