#include "support/fixture.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <cstdlib>
#include <ctime>

using testing::ElementsAre;

class DeviceFacts : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::setTime(1704433688); // 2024-01-05 05:48:08 UTC
        rig::setSetting("tud_dbg", "1");
    }
    char text[64] = "";
};

TEST_F(DeviceFacts, AreTheSecondFieldOfTheSecondLine) {
    rig::fakeCommand("version", "printf 'header\\nModel/V1.2.3/date\\n'");
    rig::fakeCommand("burnsn", "printf 'header\\na/4XY123/b\\n' >&2"); // on its standard error
    EXPECT_EQ(rig::standardOutput([&] {
                  EXPECT_EQ(collect_dev_fw_ver(text), 0);
                  EXPECT_STREQ(text, "V1.2.3");
                  EXPECT_EQ(collect_dev_sn(text), 0);
                  EXPECT_STREQ(text, "4XY123");
              }),
              "current firmware version=[V1.2.3]\ncurrent serial number=[4XY123]\n");
    EXPECT_FALSE(rig::fileExists("/tmp/version"));
    EXPECT_FALSE(rig::fileExists("/tmp/serial_num.txt"));
    EXPECT_EQ(rig::sleptSeconds(), 0u);
}

TEST_F(DeviceFacts, ThreeFailedTriesASecondApartAreTheEnd) {
    for (const char *answer : {"one/two/three", "one\\nno field", "one\\n%0100d/field/z"}) {
        rig::fakeCommand("version", std::string("printf '") + answer + "\\n'");
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(collect_dev_fw_ver(text), 1); }),
                  "Get firmware version fail[]\nGet firmware version fail[]\n"
                  "Get firmware version fail[]\nERROR: firmware version is NULL")
            << answer;
    }
    EXPECT_EQ(rig::recordedCommands().size(), 9u);
    EXPECT_EQ(rig::sleptSeconds(), 9u);
}

TEST_F(DeviceFacts, TheTimeStampIsLocalCalendarTime) {
    setenv("TZ", "GMT-1", 1);
    int date[3];
    int clock[3];
    EXPECT_EQ(rig::standardOutput([&] { get_timestamp(date, clock); }), "2024 1 5 6 48 8");
    EXPECT_THAT(date, ElementsAre(2024, 1, 5));
    EXPECT_THAT(clock, ElementsAre(6, 48, 8));
    unsetenv("TZ");
    tzset();
}
