#include "trafficUsageDetailsD/usage_report.h"

#include "analytics/device_lookup.h"
#include "common/text.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/monitor.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

using testing::HasSubstr;

namespace {

constexpr const char *kDeviceTypes = "/tmp/trend/bwdpi.devdb.db";

TrafficInfo record(std::uint32_t start) {
    TrafficInfo r{};
    const unsigned char mac[6] = {0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
    memcpy(r.macAddress, mac, sizeof mac);
    r.vendorId = 3;
    r.typeId = 4;
    copy_text(r.appType, "Media");
    copy_text(r.appName, "a\"b\\c\td\x01%s\xc3\xa9");
    r.trafficStartTime = start;
    r.trafficEndTime = 4000000000;
    r.duration = 40;
    r.uploadBandwidth = 12345678901.0;
    r.downloadBandwidth = -5;
    return r;
}

void fillBuffer(int count) {
    for (int i = 0; i < count; ++i)
        trafficBuffer[i] = record(100 + i);
}

// cJSON's allocation, of which only the n-th fails.
int allocationsLeft;
void *scarceMemory(std::size_t size) {
    return allocationsLeft-- == 0 ? nullptr : malloc(size);
}

} // namespace

class UsageReport : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        memset(trafficBuffer, 0, sizeof trafficBuffer);
    }
    void TearDown() override { cJSON_InitHooks(nullptr); }
};

TEST_F(UsageReport, AnEmptyBufferGivesADocumentWithoutRecordsWhichIsLoggedBetweenBanners) {
    rig::setSetting("tud_dbg", "1");
    got_sigusr1 = 1;
    const std::string banner = "\n" + std::string(72, '=') + "\n";
    const std::string document = "{\n\t\"numOfTrafficRecrod\":\t0,\n\t\"trafficInfo\":\t[]\n}";
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(generateTudJson(), 0); }),
              "generateTudJson(868) got_sigusr1=1\n" + document + banner + document + "\n" +
                  banner);
    EXPECT_EQ(rig::readFile(TRAFFIC_USAGE_REPORT_FILE), document);
    EXPECT_EQ(got_sigusr1, 0);
}

TEST_F(UsageReport, MembersStandInTheirOrderWithTheirTypes) {
    rig::writeFile(kDeviceTypes, "3,0,0,4,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
    trafficBuffer[7] = record(100);
    rig::writeFile(TRAFFIC_USAGE_REPORT_FILE, std::string(5000, 'x')); // an earlier, longer report
    rig::standardOutput([] { generateTudJson(); });
    EXPECT_EQ(rig::readFile(TRAFFIC_USAGE_REPORT_FILE),
              "{\n"
              "\t\"numOfTrafficRecrod\":\t1,\n"
              "\t\"trafficInfo\":\t[{\n"
              "\t\t\t\"macAddress\":\t\"0A:1B:2C:3D:4E:5F\",\n"
              "\t\t\t\"devType\":\t\"Game console\",\n"
              "\t\t\t\"appType\":\t\"Media\",\n"
              "\t\t\t\"appName\":\t\"a\\\"b\\\\c\\td\\u0001%s\xc3\xa9\",\n"
              "\t\t\t\"trafficStartTime\":\t100,\n"
              "\t\t\t\"trafficEndTime\":\t4000000000,\n"
              "\t\t\t\"duration\":\t40,\n"
              "\t\t\t\"uploadBandwidth\":\t12345678901,\n"
              "\t\t\t\"downloadBandwidth\":\t-5\n"
              "\t\t}]\n"
              "}");
}

TEST_F(UsageReport, TakesEveryRecordOnceInSlotOrderAndLoadsTheDeviceTypesOnce) {
    fillBuffer(MAX_ENTRY);
    for (int i = 0; i < MAX_ENTRY; ++i)
        trafficBuffer[i].typeId = i;
    cJSON *document = nullptr;
    EXPECT_EQ(rig::standardError([&] { document = createTrafficUsageDetailObj(); }),
              "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n"); // once for each load
    const cJSON *records = cJSON_GetObjectItem(document, "trafficInfo");
    EXPECT_EQ(cJSON_GetArraySize(records), MAX_ENTRY);
    int start = 100;
    for (const cJSON *r = records->child; r != nullptr; r = r->next)
        EXPECT_EQ(cJSON_GetObjectItem(r, "trafficStartTime")->valueint, start++);
    cJSON_Delete(document);
    document = createTrafficUsageDetailObj();
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(document, "trafficInfo")), 0);
    cJSON_Delete(document);
}

TEST_F(UsageReport, ARecordWithoutMemoryForItsObjectStaysForTheNextReport) {
    rig::writeFile(kDeviceTypes, "");
    cJSON_Hooks hooks = {scarceMemory, free};
    cJSON_InitHooks(&hooks);
    int incomplete = 0;
    for (int n = 0; n < 60; ++n) {
        fillBuffer(3);
        allocationsLeft = n;
        cJSON *document = createTrafficUsageDetailObj();
        const int left = std::count_if(trafficBuffer, trafficBuffer + 3,
                                       [](auto &slot) { return slot.trafficStartTime != 0; });
        const cJSON *records = cJSON_GetObjectItem(document, "trafficInfo");
        EXPECT_TRUE(records == nullptr || cJSON_GetArraySize(records) == 3 - left) << n;
        EXPECT_TRUE(document != nullptr || left == 3) << n;
        incomplete += left == 1;
        cJSON_Delete(document);
    }
    EXPECT_GT(incomplete, 10);
}

TEST_F(UsageReport, TheRecordsAreGoneThoughTheFileCannotBeWritten) {
    std::filesystem::remove_all("/tmp/aws_json_dir");
    fillBuffer(1);
    generateTudJson();
    EXPECT_EQ(trafficBuffer[0].trafficStartTime, 0u);
}

TEST_F(UsageReport, ASingleRecordIsPrintedOnlyWhenItsFlagsAreSet) {
    const std::string line = "\n" + std::string(72, '=');
    TrafficInfo r = record(100);
    EXPECT_EQ(rig::standardOutput([&] { dumpAEntryToJson(&r); }), line + "[]" + line);
    EXPECT_EQ(r.trafficStartTime, 100u);
    r.flags = 2;
    EXPECT_THAT(rig::standardOutput([&] { dumpAEntryToJson(&r); }),
                HasSubstr("\"appType\":\t\"Media\""));
    EXPECT_EQ(r.trafficStartTime, 0u);
}
