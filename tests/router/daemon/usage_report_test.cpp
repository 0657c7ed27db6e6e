#include "trafficUsageDetailsD/usage_report.h"

#include "analytics/device_lookup.h"
#include "daemon_fixture.h"
#include "trafficUsageDetailsD/monitor.h"

class UsageReport : public rig::DaemonFixture {};

TEST_F(UsageReport, AnEmptyBufferGivesADocumentWithoutRecordsWhichIsLoggedBetweenBanners) {
    rig::setSetting("tud_dbg", "1");
    got_sigusr1 = 1;
    const std::string banner = "\n" + std::string(72, '=') + "\n";
    const std::string document = "{\n\t\"numOfTrafficRecrod\":\t0,\n\t\"trafficInfo\":\t[]\n}";
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(generateTudJson(), 0); }),
              "generateTudJson(868) got_sigusr1=1\n" + document + banner + document + "\n" +
                  banner);
    EXPECT_EQ(got_sigusr1, 0);
    rig::fakeCommand("killall");
    EXPECT_EQ(sendTUDReport2Cloud(), 0);
}

TEST_F(UsageReport, MembersStandInTheirOrderWithTheirTypes) {
    rig::writeDeviceTypes();
    trafficBuffer[7] = rig::record(100, "a\"b\\c\td\x01%s\xc3\xa9");
    trafficBuffer[7].trafficEndTime = 4000000000;
    trafficBuffer[7].uploadBandwidth = 12345678901.0;
    trafficBuffer[7].downloadBandwidth = -5;
    rig::writeFile(TRAFFIC_USAGE_REPORT_FILE, std::string(5000, 'x')); // an earlier, longer report
    rig::setSetting("tud_dbg", "1");
    const std::string printed = rig::standardOutput([] { generateTudJson(); });
    EXPECT_EQ(rig::readFile(TRAFFIC_USAGE_REPORT_FILE),
              "{\n"
              "\t\"numOfTrafficRecrod\":\t1,\n"
              "\t\"trafficInfo\":\t[{\n"
              "\t\t\t\"macAddress\":\t\"0A:0B:0C:0D:0E:0F\",\n"
              "\t\t\t\"devType\":\t\"Game console\",\n"
              "\t\t\t\"appType\":\t\"Media\",\n"
              "\t\t\t\"appName\":\t\"a\\\"b\\\\c\\td\\u0001%s\xc3\xa9\",\n"
              "\t\t\t\"trafficStartTime\":\t100,\n"
              "\t\t\t\"trafficEndTime\":\t4000000000,\n"
              "\t\t\t\"duration\":\t10,\n"
              "\t\t\t\"uploadBandwidth\":\t12345678901,\n"
              "\t\t\t\"downloadBandwidth\":\t-5\n"
              "\t\t}]\n"
              "}");
    EXPECT_EQ(trafficBuffer[7].trafficStartTime, 0u);
    EXPECT_THAT(printed,
                testing::HasSubstr("\tflags=0x0\n\tmacAddress=0a:0b:0c:0d:0e:0f\n\typeId:4\n"
                                   "\tappType=Media\n\tappName=a\"b\\c\td\x01\xc3\xa9\n"
                                   "\ttrafficStartTime=100\n\ttrafficEndTime=4000000000\n"
                                   "\tduration=10\n\tuploadBandWidth=12345678901\n"
                                   "\tdownloadBandWidth=-5\n\n"));
}

TEST_F(UsageReport, ATypeIsAnotherOneForAnotherVendor) {
    rig::writeDeviceTypes();
    rig::fillBuffer(2);
    trafficBuffer[1].vendorId = 9;
    cJSON *document = createTrafficUsageDetailObj();
    std::string types;
    const cJSON *record;
    cJSON_ArrayForEach(record, cJSON_GetObjectItem(document, "trafficInfo")) types +=
        std::string(cJSON_GetObjectItem(record, "devType")->valuestring) + ",";
    EXPECT_EQ(types, "Game console,unknown,");
    cJSON_Delete(document);
}

TEST_F(UsageReport, TakesEveryRecordOnceInSlotOrderAndLoadsTheDeviceTypesOnce) {
    rig::fillBuffer(MAX_ENTRY);
    for (int i = 0; i < MAX_ENTRY; ++i)
        trafficBuffer[i].typeId = i;
    // No room for a terminator, and half a character in what there is room for.
    memcpy(trafficBuffer[0].appName, (std::string(61, 'n') + "\xe2\x82\xac").c_str(), 64);
    cJSON *document = nullptr;
    EXPECT_EQ(rig::standardError([&] { document = createTrafficUsageDetailObj(); }),
              "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n"); // once for each load
    int start = 100;
    const cJSON *record;
    cJSON_ArrayForEach(record, cJSON_GetObjectItem(document, "trafficInfo"))
        EXPECT_EQ(cJSON_GetObjectItem(record, "trafficStartTime")->valueint, start++);
    EXPECT_EQ(start, 100 + MAX_ENTRY);
    const cJSON *oldest = cJSON_GetArrayItem(cJSON_GetObjectItem(document, "trafficInfo"), 0);
    EXPECT_EQ(cJSON_GetObjectItem(oldest, "appName")->valuestring, std::string(61, 'n'));
    cJSON_Delete(document);
}

TEST_F(UsageReport, ARecordByItselfIsClosedAndPrinted) {
    rig::setTime(1000);
    TrafficInfo record = rig::record(100);
    const auto print = [&] { EXPECT_EQ(dumpAEntryToJson(&record), 0); };
    const std::string rule = "\n" + std::string(72, '=');
    EXPECT_EQ(rig::standardOutput(print), rule + "[]" + rule) << "it is open";
    record.flags = 1;
    rig::setSetting("tud_max_idle_time", "89"); // its end, at 110, moves on to now at the most
    EXPECT_THAT(rig::standardOutput(print),
                testing::AllOf(testing::HasSubstr("\"trafficEndTime\":\t1000,"),
                               testing::HasSubstr("\"duration\":\t900,")));
    EXPECT_EQ(record.trafficStartTime, 0u);
    record = rig::record(100);
    record.flags = 1;
    rig::setSetting("tud_max_idle_time", "88");
    EXPECT_EQ(finalizeTrafficInfo(&record), 0);
    EXPECT_EQ(record.trafficEndTime, 990u);
    EXPECT_EQ(record.flags, 2u);
    EXPECT_EQ(finalizeTrafficInfo(nullptr) - dumpAEntryToJson(nullptr), 2);
    EXPECT_EQ(trafficInfoToJson(nullptr), nullptr);
}
