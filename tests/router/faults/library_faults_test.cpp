// A publication, the QoS configuration and the lists of devices with every call failing.
#include "analytics/awsjson_util.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "sysutil/system_util.h"

#include <cstring>

using LibraryFaults = rig::Fixture;

namespace {

constexpr unsigned char kMac[6] = {0xA0, 0x0B, 0, 0, 0, 1};
constexpr const char *kMacText = "A0:0B:00:00:00:01";

} // namespace

TEST_F(LibraryFaults, APublicationCountsNothingThatThePublisherDidNotSay) {
    constexpr const char *kReport = "/tmp/aws_json_dir/aws_Z5150_1.json";
    rig::fakeCommand("/opt/awsiotpub", "echo failed: timeout");
    strcpy(DRI_update_info.publish_method, "IoT");
    ra_set_root_dir("/opt");
    rig::setSetting("aws_json_backup", "1");
    const ra_device_info device{"client"};
    cJSON *document = cJSON_CreateNumber(7);
    int result = 0;
    const auto prepare = [&] {
        g_group_retry[1] = {};
        ra_set_internet_connection_info(1, 5);
        remove(kReport);
        remove("/tmp/ra_pub_log.txt");
    };
    const auto check = [&](rig::Call failed) {
        const group_retry &retry = g_group_retry[1];
        const bool unmade = failed == rig::Call::kOpen || failed == rig::Call::kAllocate;
        EXPECT_TRUE(result == 0 || (result == -3 && unmade)) << result;
        EXPECT_EQ(rig::fileExists(kReport), result == 0);
        EXPECT_LE(retry.fail_count, result == 0 ? 1U : 0U);
        EXPECT_EQ(retry.retry_due + retry.retry_mode, 0U);
        EXPECT_EQ(ra_get_internet_connection_info(1), 5U) << "settled although it was not sent";
    };
    const auto send = [&] { result = ra_send_json_to_cloud_by_group(&device, document, 1); };
    rig::failEveryCall(prepare, send, check);
    cJSON_Delete(document);
}

TEST_F(LibraryFaults, AQosConfigurationIsTheOldOneTheNewOneOrWithoutTheDevice) {
    constexpr const char *kConfig = "/tmp/trend/qos.conf";
    const std::string old = "{0}\nmac= A00B00000001\n{2}\n";
    int result = 0;
    const auto prepare = [&] { rig::writeFile(kConfig, old); };
    const auto check = [&](rig::Call) {
        const std::string found = rig::readFile(kConfig);
        const bool kept = result == -1 && (found == old || found == "{0}\n{2}\n");
        EXPECT_TRUE(kept || (result == 0 && found == "{0}\n{2}\nmac= A00B00000001\n")) << found;
    };
    rig::failEveryCall(
        prepare, [&] { result = iqos_set_priority_by_mac(1, kMac); }, check);
}

// What reads only: a result that says so, and no half-made list.
TEST_F(LibraryFaults, WhatOnlyReadsGivesTheTruthOrNothing) {
    rig::writeFile("/tmp/dhcp_info_for_fing/AA", "head\nvendor v\nhostname h\n");
    rig::writeFile("/tmp/image", "abc");
    rig::writeFile("/proc/net/arp", "IP address HW type Flags HW address Mask Device\n"
                                    "192.168.1.9 0x1 0x2 a0:0b:00:00:00:01 * br0\n");
    rig::setSetting("ac_mac_list0", "A00B000000011:00.");
    std::string said;
    const auto run = [&] {
        dhcpInfo facts{};
        said = getDhcpInfoByMac("AA", &facts) == 0 ? facts.vendor : "";
        devIdNode *identities = nullptr;
        readDevIdTablefromFile(&identities);
        removeAllDevIdNodes(&identities);
        attach_dev devices[4];
        EXPECT_LE(get_arp_dev(devices, 4), 1);
        sta_dev stations[4];
        EXPECT_EQ(get_sta_dev(stations, 4), 0);
        iqos_detail detail{};
        getIQoSDetailBymac(&detail, kMacText);
        devAppNode *applications = nullptr;
        getIQoSAppListBymac(&applications, kMacText);
        removeAllAppNodes(&applications);
        std::uint32_t size = 3;
        EXPECT_TRUE(getDownloadImageSize("/tmp/image", &size) == 1 || size == 3);
        EXPECT_LE(compare_two_binary_files("/tmp/image", "/tmp/image"), 3);
        load_ac_mac_list();
        save_ac_mac_list();
        QosDetail qos{};
        getQosDetailByMac(&qos, kMac);
    };
    const auto check = [&](rig::Call) { EXPECT_THAT(said, testing::AnyOf("v", "")); };
    rig::failEveryCall([] {}, run, check);
}
