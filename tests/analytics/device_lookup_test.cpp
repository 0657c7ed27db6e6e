#include "analytics/device_lookup.h"

#include "support/engine_fake.h"
#include "support/fixture.h"

#include <cstring>
#include <filesystem>

namespace {

class DeviceLookup : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                       R"(1,2,3,4,5,6,"Vendor","OS","Class","Phone","Model","Family")"
                       "\n"
                       R"(1,2,3,4,7,6,"Vendor","OS","Class","Phone","Other","Family")"
                       "\n");
        engine.plugIn();
    }

    // What the look-up prints, and its result where that is not 0.
    std::string lookUp(unsigned char lastOctet) {
        const unsigned char mac[6] = {2, 0, 0, 0, 0, lastOctet};
        detail = {};
        int result = 1;
        const std::string printed =
            rig::standardOutput([&] { result = getQosDetailByMac(&detail, mac); });
        return result == 0 ? printed : printed + std::to_string(result);
    }

    rig::FakeEngine engine;
    QosDetail detail = {};
};

} // namespace

TEST_F(DeviceLookup, TheLastByteOfTheDestinationIsNeverWritten) {
    char text[] = "xxxxx";
    for (const int size : {0, -1}) {
        EXPECT_EQ(getDeviceTypeByDeviceId(1, 4, text, size), 0);
        EXPECT_STREQ(text, "xxxxx");
    }
    getDeviceTypeByDeviceId(1, 4, text, 4);
    EXPECT_STREQ(text, "Phoxx");
}

TEST_F(DeviceLookup, AClientsDetailComesFromItsUserRecord) {
    engine.addUser(1, 9, 9, 9);
    engine.addUser(2, 1, 4, 7);
    EXPECT_EQ(lookUp(1), "device_type: unknown, device_name: Unknown, vendor_name: unknown\n");
    EXPECT_EQ(lookUp(2), "device_type: Phone, device_name: Other, vendor_name: Vendor\n");
    EXPECT_EQ(detail.dev_id, 7u);
    EXPECT_STREQ(detail.device_name, "Other");
    EXPECT_STREQ(detail.device_type, "Phone");
    EXPECT_STREQ(detail.vendor_name, "Vendor");
}

TEST_F(DeviceLookup, AClientThatIsNotListedLeavesTheDetailUntouched) {
    for (int uid = 1; uid <= 64; ++uid)
        engine.addUser(uid, 1, 4, 5);
    EXPECT_NE(lookUp(63), "");
    EXPECT_EQ(lookUp(64), ""); // the last slot is never looked at
    const QosDetail untouched = {};
    EXPECT_EQ(memcmp(&detail, &untouched, sizeof detail), 0);
    engine.users[0].available = 0;
    EXPECT_EQ(lookUp(2), "");
    engine.refusesUsers = true;
    EXPECT_EQ(lookUp(2), "-2");
}

TEST_F(DeviceLookup, TheHardwareRevisionHasALabel) {
    const std::pair<const char *, const char *> rows[] = {{"B34K810A00", "V1"},
                                                          {"B34K810A51", "V1H2"},
                                                          {"B34K810A50", "QorvoCostDown"},
                                                          {"B34K810A5", ""},
                                                          {"", ""}};
    for (const auto &[revision, label] : rows) {
        rig::setSetting("hw_rev", revision);
        char out[14] = "x";
        EXPECT_EQ(get_hwRevision(out), out);
        EXPECT_STREQ(out, label);
    }
}

TEST_F(DeviceLookup, TheReportIsWantedOnlyWhereReportingAppliesAndRemovedWhenItIsOff) {
    struct {
        const char *enabled, *region;
        bool exists;
        int wanted;
        bool kept;
    } const rows[] = {
        {"1", "NA", true, 1, true},  {"1", "NA", false, 0, false}, {"1", "WW", true, 0, true},
        {"0", "NA", true, 0, false}, {"", "NA", false, 0, false},
    };
    for (const auto &row : rows) {
        std::filesystem::remove(TRAFFIC_USAGE_REPORT_FILE);
        if (row.exists)
            rig::writeFile(TRAFFIC_USAGE_REPORT_FILE, "{}");
        rig::setSetting("enable_trafficUsageDetails", row.enabled);
        rig::setSetting("sku_name", row.region);
        EXPECT_EQ(ra_need_update_traffic_usage_details(), row.wanted);
        EXPECT_EQ(rig::fileExists(TRAFFIC_USAGE_REPORT_FILE), row.kept);
    }
}
