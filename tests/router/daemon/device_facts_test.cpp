#include "support/fixture.h"
#include "trafficUsageDetailsD/usage_report.h"

class DeviceFacts : public rig::Fixture {};

TEST_F(DeviceFacts, AreTheSecondFieldOfTheSecondLineWithinThreeTriesASecondApart) {
    char text[64] = "";
    rig::fakeCommand("burnsn", "printf 'header\\na/4XY123/b\\n' >&2"); // on its standard error
    EXPECT_EQ(collect_dev_sn(text), 0);
    EXPECT_STREQ(text, "4XY123");
    EXPECT_FALSE(rig::fileExists("/tmp/serial_num.txt"));
    for (const char *answer : {"one/two/three", "one\\nno field", "one\\n%0100d/field/z"}) {
        rig::fakeCommand("version", std::string("printf '") + answer + "\\n'");
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(collect_dev_fw_ver(text), 1); }),
                  "Get firmware version fail[]\nGet firmware version fail[]\n"
                  "Get firmware version fail[]\nERROR: firmware version is NULL");
    }
    EXPECT_EQ(rig::sleptSeconds(), 9u); // the answer that was found cost none
    EXPECT_EQ(collect_dev_sn(nullptr) + collect_dev_fw_ver(nullptr), 2);
}

TEST_F(DeviceFacts, TheTimeIsThatOfTheZone) {
    setenv("TZ", "EET-2", 1);
    rig::setTime(1704438489);
    int date[3], clock[3];
    EXPECT_EQ(get_timestamp(date, clock), 0);
    EXPECT_THAT(date, testing::ElementsAre(2024, 1, 5));
    EXPECT_THAT(clock, testing::ElementsAre(9, 8, 9));
    EXPECT_EQ(get_timestamp(nullptr, clock) + get_timestamp(date, nullptr), -2);
}
