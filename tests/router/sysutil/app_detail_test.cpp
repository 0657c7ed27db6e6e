#include "sysutil/app_detail.h"

#include "support/faults.h"
#include "support/fixture.h"
#include "support/pattern.h"

#include <cstring>
#include <filesystem>

namespace {

using AppDetail = rig::Fixture;

const std::string kSection = "mac : aa:bb:cc:dd:ee:ff\n";
const std::string kOther = "mac : 00:00:00:00:00:01\ndefault_priority : 9\napp_name : Other\n"
                           "last_used_ts : 1\napp_count : 1\ntotal_diff_traffic : 1\n";

// What is printed of the device and its applications, less the "[function][line]".
std::string printed(const std::string &report) {
    rig::writeFile("/tmp/iqos_detail", report);
    const std::string output = rig::standardOutput([] {
        iqos_detail detail;
        memset(&detail, 'x', sizeof detail);
        EXPECT_EQ(getIQoSDetailBymac(&detail, "AA:BB:CC:DD:EE:FF"), 0);
        devAppNode *head = nullptr;
        EXPECT_EQ(getIQoSAppListBymac(&head, "AA:BB:CC:DD:EE:FF"), 0);
        removeAllAppNodes(&head);
    });
    return rig::replaceEach(output, "\\[[A-Za-z_]+\\]\\[[0-9]+\\]");
}

TEST_F(AppDetail, ADeviceAndItsApplicationsAreReadFromTheDevicesSection) {
    const std::string rule = "==============================================\n";
    EXPECT_EQ(
        printed(kOther + kSection +
                "default_priority : 2\ndefault_priority\ndev_type_id : 51\n"
                "dev_type_name : Smart TV\ntrend_dev_name : a@b\ntrend_dev_type_id :  9999999999\n"
                "trend_dev_type_nam : " +
                std::string(500, 't') +
                "\ntrend_dev_type_id\n  APP_NAME : First up_diff_pkt 8\ndown_diff_byte : "
                "1.5\nup_diff_byte : 2\n"
                "up_diff_pkt : 3\nlast_used_ts : 1700000000.9\napp_name : Second\n"
                "down_diff_pkt : 4\nlast_used_ts : 1e30\napp_name : never completed\n"
                "app_count : -9999999999\ntotal_diff_down_byt : 1e3\ntotal_diff_up_byt : 2.5\n"
                "total_diff_traffi : 3.5\n" +
                kOther),
        rule +
            "default_priority: 2\ndev_type_id: 51\ndev_type_name:  Smart TV\ntrend_dev_name:  a\n"
            "trend_dev_type_id: 2147483647\ntrend_dev_type_name:  " +
            std::string(30, 't') +
            "\napp_count: -2147483648\ntotal_diff_down_byte: 1000.000000\n"
            "total_diff_up_byte: 2.500000\ntotal_diff_traffic: 3.500000\n" +
            rule +
            "app_name:  First up_diff_pkt 8\ndown_diff_byte: 1.500000\ndown_diff_pkt: 0.000000\n"
            "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 1700000000\n"
            "app_name:  Second\ndown_diff_byte: 1.500000\ndown_diff_pkt: 4.000000\n"
            "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 0\n");
    // A section without its last line runs into the next.
    EXPECT_THAT(printed(kSection + "dev_type_id : 52\napp_count : 7\n" + kOther),
                testing::ContainsRegex(
                    "\ndev_type_id: 0\n(.*\n)*trend_dev_type_id: 0\n(.*\n)*app_count: 1\n"));
    devAppNode *none = nullptr;
    {
        const rig::Fault noMemory(rig::Call::kAllocate, 1);
        EXPECT_EQ(addDevAppNodeToList(&none, {}), -1);
    }
    EXPECT_EQ(removeAllAppNodes(&none), -1);
    std::filesystem::remove("/tmp/iqos_detail");
    EXPECT_EQ(getIQoSDetailBymac(nullptr, "") + getIQoSAppListBymac(nullptr, ""), 0);
}

} // namespace
