#include "analytics/device_lookup.h"

#include "support/engine_fake.h"
#include "support/fixture.h"

#include <array>

class DeviceLookup : public rig::Fixture {};

TEST_F(DeviceLookup, AClientsDetailComesFromItsUserRecordUnlessThatIsInTheLastSlot) {
    rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                   "1,2,3,4,5,6,\"Vendor\",\"OS\",\"Class\",\"Phone\",\"Model\",\"Family\"\n"
                   "1,2,3,4,7,6,\"Vendor\",\"OS\",\"Class\",\"Phone\",\"Other\",\"Family\"\n");
    rig::FakeEngine engine;
    engine.plugIn();
    engine.addUser(1, 9, 9, 9);
    for (int uid = 2; uid <= 64; ++uid)
        engine.addUser(uid, 1, 4, 7);
    QosDetail detail = {};
    const auto lookUp = [&](unsigned char lastOctet) {
        const unsigned char mac[6] = {2, 0, 0, 0, 0, lastOctet};
        return rig::standardOutput([&] { EXPECT_EQ(getQosDetailByMac(&detail, mac), 0); });
    };
    EXPECT_EQ(lookUp(64), "");
    EXPECT_EQ(lookUp(1), "device_type: unknown, device_name: Unknown, vendor_name: unknown\n");
    EXPECT_EQ(lookUp(63), "device_type: Phone, device_name: Other, vendor_name: Vendor\n");
    EXPECT_EQ(detail.dev_id, 7u);
    EXPECT_EQ(std::string(detail.device_type) + detail.device_name + detail.vendor_name,
              "PhoneOtherVendor");
    engine.users[0].available = 0;
    EXPECT_EQ(lookUp(2), "");

    char text[] = "xxxxx"; // its last byte is never written
    for (const auto &[size, result] : {std::pair{0, "xxxxx"}, {4, "Phoxx"}}) {
        EXPECT_EQ(getDeviceTypeByDeviceId(1, 4, text, size), 0);
        EXPECT_STREQ(text, result);
    }
}

TEST_F(DeviceLookup, TheReportIsWantedOnlyWhereReportingAppliesAndRemovedWhenItIsOff) {
    const auto isWanted = [](const char *enabled, const char *region) {
        rig::setSetting("enable_trafficUsageDetails", enabled);
        rig::setSetting("sku_name", region);
        return ra_need_update_traffic_usage_details();
    };
    EXPECT_EQ(isWanted("1", "NA"), 0);
    rig::writeFile(TRAFFIC_USAGE_REPORT_FILE, "{}");
    EXPECT_EQ(isWanted("1", "NA"), 1);
    EXPECT_EQ(isWanted("1", "WW"), 0);
    EXPECT_TRUE(rig::fileExists(TRAFFIC_USAGE_REPORT_FILE));
    EXPECT_EQ(isWanted("0", "NA"), 0);
    EXPECT_FALSE(rig::fileExists(TRAFFIC_USAGE_REPORT_FILE));
    for (const auto &[board, revision] :
         {std::pair{"B34K810A00", "V1"}, {"B34K810A50", "QorvoCostDown"}, {"B34K810A5", ""}}) {
        rig::setSetting("hw_rev", board);
        EXPECT_STREQ(get_hwRevision(std::array<char, 14>().data()), revision);
    }
}
