#include "support/fixture.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <cstdlib>
#include <ctime>

using testing::ElementsAre;

class DeviceFacts : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::setTime(1000);
        rig::setSetting("tud_dbg", "1");
    }
    char text[64] = "";
};

TEST_F(DeviceFacts, TheFirmwareVersionIsTheSecondFieldOfTheSecondLine) {
    rig::fakeCommand("version", "printf 'header\\nModel/V1.2.3/date\\n'");
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(collect_dev_fw_ver(text), 0); }),
              "current firmware version=[V1.2.3]\n");
    EXPECT_STREQ(text, "V1.2.3");
    EXPECT_FALSE(rig::fileExists("/tmp/version"));
    EXPECT_EQ(rig::sleptSeconds(), 0u);
}

TEST_F(DeviceFacts, TheSerialNumberComesFromStandardError) {
    rig::fakeCommand("burnsn", "printf 'header\\na/4XY123/b\\n' >&2");
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(collect_dev_sn(text), 0); }),
              "current serial number=[4XY123]\n");
    EXPECT_STREQ(text, "4XY123");
}

TEST_F(DeviceFacts, ThreeFailedTriesASecondApartAreTheEnd) {
    const std::string endless(100, 'x');
    const std::string bodies[] = {"", "echo one/two/three", "printf 'one\\nno field\\n'",
                                  "printf 'one\\n/x/y\\n'",
                                  "printf 'one\\n" + endless + "/field/z\\n'"};
    for (const auto &body : bodies) {
        rig::forgetCommands();
        rig::fakeCommand("version", body);
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(collect_dev_fw_ver(text), 1); }),
                  "Get firmware version fail[]\nGet firmware version fail[]\n"
                  "Get firmware version fail[]\nERROR: firmware version is NULL")
            << body;
        EXPECT_THAT(rig::recordedCommands(), ElementsAre("version", "version", "version"));
        EXPECT_FALSE(rig::fileExists("/tmp/version"));
    }
    EXPECT_EQ(rig::sleptSeconds(), 15u);
}

TEST_F(DeviceFacts, TheTimeStampIsLocalCalendarTime) {
    setenv("TZ", "GMT-1", 1);
    tzset();
    rig::setTime(1704433688); // 2024-01-05 05:48:08 UTC
    int date[3];
    int clock[3];
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(get_timestamp(date, clock), 0); }),
              "2024 1 5 6 48 8");
    EXPECT_THAT(date, ElementsAre(2024, 1, 5));
    EXPECT_THAT(clock, ElementsAre(6, 48, 8));
    unsetenv("TZ");
    tzset();
}
