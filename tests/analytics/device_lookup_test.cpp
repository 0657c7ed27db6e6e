#include "analytics/device_lookup.h"

#include "dpi/usr_ioctl.h"
#include "support/fixture.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

constexpr const char *kReportFile = "/tmp/aws_json_dir/aws_traffic_usage_details.json";

class DeviceLookup : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        if (IsSkipped())
            return;
        rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                       R"(1,2,3,4,5,6,"Vendor","OS","Class","Phone","Model","Family")"
                       "\n"
                       R"(1,2,3,4,7,6,"Vendor","OS","Class","Phone","Other","Family")"
                       "\n");
        rig::writeFile("/dev/idpfw", "");
        rig::onIoctl([this](int, unsigned long, void *argument) {
            if (refuses) {
                errno = EPERM;
                return -1;
            }
            const auto *header = static_cast<forward_ioctl *>(argument);
            memcpy(header->out, users, sizeof users);
            *header->out_used_len = sizeof users;
            return 0;
        });
    }

    void addUser(int slot, unsigned char lastOctet, uint16_t vendor, uint16_t type, uint16_t dev) {
        users[slot].mac[5] = lastOctet;
        users[slot].os.detail.vendor_id = vendor;
        users[slot].os.detail.type_id = type;
        users[slot].os.detail.dev_id = dev;
        users[slot].available = 1;
    }

    int lookUp(unsigned char lastOctet) {
        const unsigned char mac[6] = {0, 0, 0, 0, 0, lastOctet};
        detail = {};
        output = rig::standardOutput([&] { result = getQosDetailByMac(&detail, mac); });
        return result;
    }

    bool refuses = false;
    devid_user_entry users[64] = {};
    QosDetail detail = {};
    std::string output;
    int result = 1;
};

} // namespace

TEST_F(DeviceLookup, IdentifiersGiveTextsAndDifferentFallbacks) {
    char type[64] = "";
    char vendor[64] = "";
    char name[64] = "";
    EXPECT_EQ(getDeviceTypeByDeviceId(1, 4, type, sizeof type), 0);
    EXPECT_EQ(getVendorTypeByDeviceId(1, 4, vendor, sizeof vendor), 0);
    EXPECT_EQ(getDeviceNameByDeviceId(1, 4, 7, name, sizeof name), 0);
    EXPECT_STREQ(type, "Phone");
    EXPECT_STREQ(vendor, "Vendor");
    EXPECT_STREQ(name, "Other");
    getDeviceTypeByDeviceId(2, 4, type, sizeof type);
    getVendorTypeByDeviceId(-1, 4, vendor, sizeof vendor);
    getDeviceNameByDeviceId(2, 4, 5, name, sizeof name);
    EXPECT_STREQ(type, "unknown");
    EXPECT_STREQ(vendor, "unknown");
    EXPECT_STREQ(name, "Unknown");
}

TEST_F(DeviceLookup, TheLastByteOfTheDestinationIsNeverWritten) {
    char text[5] = {'x', 'x', 'x', 'x', 'x'};
    getDeviceTypeByDeviceId(1, 4, text, 0);
    getDeviceTypeByDeviceId(1, 4, text, -1);
    EXPECT_EQ(std::string(text, sizeof text), "xxxxx");
    getDeviceTypeByDeviceId(1, 4, text, 4);
    EXPECT_EQ(std::string(text, sizeof text), "Phoxx");
}

TEST_F(DeviceLookup, AClientsDetailComesFromItsUserRecord) {
    addUser(0, 1, 9, 9, 9);
    addUser(1, 2, 1, 4, 7);
    EXPECT_EQ(lookUp(2), 0);
    EXPECT_EQ(detail.dev_id, 7u);
    EXPECT_STREQ(detail.device_name, "Other");
    EXPECT_STREQ(detail.device_type, "Phone");
    EXPECT_STREQ(detail.vendor_name, "Vendor");
    EXPECT_EQ(output, "device_type: Phone, device_name: Other, vendor_name: Vendor\n");
    EXPECT_EQ(lookUp(1), 0);
    EXPECT_EQ(output, "device_type: unknown, device_name: Unknown, vendor_name: unknown\n");
}

TEST_F(DeviceLookup, AClientThatIsNotListedLeavesTheDetailUntouched) {
    const QosDetail untouched = {};
    for (int slot = 0; slot < 64; ++slot)
        addUser(slot, static_cast<unsigned char>(slot + 1), 1, 4, 5);
    EXPECT_EQ(lookUp(63), 0);
    EXPECT_STREQ(detail.device_name, "Model");
    for (const unsigned char absent : {64, 99}) { // the last slot is never looked at
        EXPECT_EQ(lookUp(absent), 0);
        EXPECT_EQ(memcmp(&detail, &untouched, sizeof detail), 0);
        EXPECT_EQ(output, "");
    }
    users[0].available = 0;
    EXPECT_EQ(lookUp(2), 0);
    EXPECT_EQ(output, "");
    refuses = true;
    EXPECT_EQ(lookUp(1), -2);
    EXPECT_EQ(output, "");
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
        const char *enabled;
        const char *region;
        bool exists;
        int wanted;
        bool kept;
    } const rows[] = {
        {"1", "NA", true, 1, true},  {"1", "NA", false, 0, false}, {"1", "WW", true, 0, true},
        {"0", "NA", true, 0, false}, {"", "NA", false, 0, false},
    };
    for (const auto &row : rows) {
        std::filesystem::remove(kReportFile);
        if (row.exists)
            rig::writeFile(kReportFile, "{}");
        rig::setSetting("enable_trafficUsageDetails", row.enabled);
        rig::setSetting("sku_name", row.region);
        EXPECT_EQ(ra_need_update_traffic_usage_details(), row.wanted);
        EXPECT_EQ(rig::fileExists(kReportFile), row.kept);
    }
}
