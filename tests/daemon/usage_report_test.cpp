#include "trafficUsageDetailsD/usage_report.h"

#include "common/text.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/monitor.h"

#include <cstring>
#include <filesystem>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TrafficInfo record(std::uint32_t start) {
    TrafficInfo r{};
    const unsigned char mac[6] = {0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
    memcpy(r.macAddress, mac, sizeof mac);
    r.vendorId = 3;
    r.typeId = 4;
    copy_text(r.appType, "Media");
    copy_text(r.appName, "Video");
    r.trafficStartTime = start;
    r.trafficEndTime = 4000000000;
    r.duration = 40;
    r.uploadBandwidth = 12345678901.0;
    r.downloadBandwidth = -5;
    return r;
}

// cJSON's allocation that fails from the n-th on.
int allocationsLeft;
void *scarceMemory(std::size_t size) {
    return allocationsLeft-- > 0 ? malloc(size) : nullptr;
}

} // namespace

class UsageReport : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        memset(trafficBuffer, 0, sizeof trafficBuffer);
        rig::fakeCommand("killall");
        got_sigusr1 = 0;
    }
    void TearDown() override { cJSON_InitHooks(nullptr); }
};

TEST_F(UsageReport, AnEmptyBufferGivesADocumentWithoutRecords) {
    got_sigusr1 = 1;
    const std::string document = "{\n\t\"numOfTrafficRecrod\":\t0,\n\t\"trafficInfo\":\t[]\n}";
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(generateTudJson(), 0); }), document);
    EXPECT_EQ(rig::readFile(kReportFile), document);
    EXPECT_EQ(got_sigusr1, 0);
}

TEST_F(UsageReport, MembersStandInTheirOrderWithTheirTypes) {
    rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                   "3,0,0,4,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
    trafficBuffer[7] = record(100);
    rig::writeFile(kReportFile, std::string(5000, 'x')); // an earlier, longer report
    rig::standardOutput([] { generateTudJson(); });
    EXPECT_EQ(rig::readFile(kReportFile), "{\n"
                                          "\t\"numOfTrafficRecrod\":\t1,\n"
                                          "\t\"trafficInfo\":\t[{\n"
                                          "\t\t\t\"macAddress\":\t\"0A:1B:2C:3D:4E:5F\",\n"
                                          "\t\t\t\"devType\":\t\"Game console\",\n"
                                          "\t\t\t\"appType\":\t\"Media\",\n"
                                          "\t\t\t\"appName\":\t\"Video\",\n"
                                          "\t\t\t\"trafficStartTime\":\t100,\n"
                                          "\t\t\t\"trafficEndTime\":\t4000000000,\n"
                                          "\t\t\t\"duration\":\t40,\n"
                                          "\t\t\t\"uploadBandwidth\":\t12345678901,\n"
                                          "\t\t\t\"downloadBandwidth\":\t-5\n"
                                          "\t\t}]\n"
                                          "}");
}

TEST_F(UsageReport, TakesEveryRecordOnceInSlotOrder) {
    for (int i = 0; i < MAX_ENTRY; ++i)
        trafficBuffer[i] = record(1000 + i);
    for (const int expected : {MAX_ENTRY, 0}) {
        cJSON *document = createTrafficUsageDetailObj();
        const cJSON *records = cJSON_GetObjectItem(document, "trafficInfo");
        ASSERT_EQ(cJSON_GetArraySize(records), expected);
        int i = 0;
        for (const cJSON *r = records->child; r != nullptr; r = r->next)
            EXPECT_EQ(cJSON_GetObjectItem(r, "trafficStartTime")->valueint, 1000 + i++);
        cJSON_Delete(document);
    }
}

TEST_F(UsageReport, OddNamesAreReadBackByAnotherParserAsTheyWere) {
    TrafficInfo r = record(100);
    copy_text(r.appName, "a\"b\\c\td\x01%s\xc3\xa9");
    trafficBuffer[0] = r;
    rig::standardOutput([] { generateTudJson(); });
    EXPECT_THAT(rig::readFile(kReportFile),
                HasSubstr("\"appName\":\t\"a\\\"b\\\\c\\td\\u0001%s\xc3\xa9\""));
}

TEST_F(UsageReport, ARecordWithoutMemoryForItsObjectStaysForTheNextReport) {
    rig::writeFile("/tmp/trend/bwdpi.devdb.db", "");
    for (int i = 0; i < 3; ++i)
        trafficBuffer[i] = record(100 + i);
    cJSON_Hooks hooks = {scarceMemory, free};
    cJSON_InitHooks(&hooks);
    int records = 0;
    for (int allowance = 0; records < 3; ++allowance) {
        allocationsLeft = allowance;
        cJSON *document = createTrafficUsageDetailObj();
        int left = 0;
        for (const TrafficInfo &slot : trafficBuffer)
            left += slot.trafficStartTime != 0;
        records = 3 - left;
        cJSON_Delete(document);
        for (int i = 0; i < 3; ++i)
            trafficBuffer[i] = record(100 + i);
        ASSERT_LT(allowance, 1000);
    }
}

TEST_F(UsageReport, TheUploaderIsSignalledThoughTheFileCannotBeWrittenAndTheRecordsAreGone) {
    rig::setSetting("AWS_JSON_DBGP", "1");
    std::filesystem::remove_all("/tmp/aws_json_dir");
    trafficBuffer[0] = record(100);
    EXPECT_EQ(rig::standardOutput([] {
                  generateTudJson();
                  EXPECT_EQ(sendTUDReport2Cloud(), 0);
              }),
              "[AWS_JSON_DBGP] ra_output_json_to_file(470):\n## Can not create JSON file.");
    EXPECT_EQ(trafficBuffer[0].trafficStartTime, 0u);
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("killall -SIGUSR2 aws_json"));
}

TEST_F(UsageReport, LogsTheRequestAndTheDocumentBetweenBanners) {
    rig::setSetting("tud_dbg", "1");
    got_sigusr1 = 1;
    const std::string banner = "\n" + std::string(72, '=') + "\n";
    const std::string document = "{\n\t\"numOfTrafficRecrod\":\t0,\n\t\"trafficInfo\":\t[]\n}";
    EXPECT_EQ(rig::standardOutput([] { generateTudJson(); }),
              "generateTudJson(868) got_sigusr1=1\n" + document + banner + document + "\n" +
                  banner);
}

TEST_F(UsageReport, AReportLoadsTheDeviceDatabaseOnce) {
    for (int i = 0; i < MAX_ENTRY; ++i) {
        trafficBuffer[i] = record(100 + i);
        trafficBuffer[i].typeId = i;
    }
    std::filesystem::remove("/tmp/trend/bwdpi.devdb.db");
    const std::string errors = rig::standardError(
        [] { rig::standardOutput([] { generateTudJson(); }); }); // one complaint for each load
    EXPECT_EQ(errors, "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n");
}

TEST_F(UsageReport, ASingleRecordIsPrintedOnlyWhenItsFlagsAreSet) {
    const std::string line = "\n" + std::string(72, '=');
    TrafficInfo r = record(100);
    EXPECT_EQ(rig::standardOutput([&] { dumpAEntryToJson(&r); }), line + "[]" + line);
    EXPECT_EQ(r.trafficStartTime, 100u);
    r.flags = 2;
    EXPECT_THAT(rig::standardOutput([&] { dumpAEntryToJson(&r); }),
                HasSubstr("\"appName\":\t\"Video\""));
    EXPECT_EQ(r.trafficStartTime, 0u);
    EXPECT_EQ(dumpAEntryToJson(nullptr), -1);
}
