#include "device_lists.h"

#include <cstdint>
#include <net/if.h>
#include <vector>

class AccessControlPolicy : public DeviceLists {};

TEST_F(AccessControlPolicy, TheBridgesAddressDecides) {
    const unsigned char *answer = macOf(2);
    rig::onIoctl([&](int, unsigned long, void *argument) {
        auto *const interface = static_cast<ifreq *>(argument);
        EXPECT_STREQ(interface->ifr_name, "br0");
        if (answer != nullptr)
            memcpy(interface->ifr_hwaddr.sa_data, answer, 6);
        return answer != nullptr ? 0 : -1;
    });
    rig::setSetting("access_all_new_devices", "0");
    rig::setSetting("ac_mac_list0", "A00B00000001:1:000000000000:1.");
    EXPECT_EQ(accessCtrl_isAllowedDevice(7), 1) << "nothing is controlled";
    EXPECT_EQ(get_mac_status(macOf(2)), 1);
    rig::setSetting("access_control_mode", "1");
    EXPECT_EQ(accessCtrl_isAllowedDevice(7), 0);
    answer = nullptr;
    EXPECT_EQ(accessCtrl_isAllowedDevice(7), 0) << "an unknown address is not listed";
    answer = macOf(1);
    EXPECT_EQ(accessCtrl_isAllowedDevice(7), 1);
}

TEST_F(AccessControlPolicy, TheInterfaceTellsWhetherADeviceIsWired) {
    EXPECT_EQ(check_the_wan_type(macOf(1)), -1);
    for (const auto &[interface, type] :
         {std::pair{"vlan1", 1}, {"eth1", 0}, {"eth2", 0}, {"br0", -1}}) {
        rig::writeFile("/proc/net/attadev", std::string("A0:0B:00:00:00:01 ") + interface + "\n");
        EXPECT_EQ(check_the_wan_type(macOf(1)), type);
    }
    EXPECT_EQ(check_the_wan_type(macOf(2)), -1);
}

TEST_F(AccessControlPolicy, TheKernelGetsModeDefaultAndTable) {
    rig::setSetting("access_control_mode", "1");
    rig::setSetting("access_all_new_devices", "-2");
    std::vector<std::pair<unsigned long, std::string>> requests;
    rig::onIoctl([&](int, unsigned long request, void *argument) {
        const std::size_t size = request == 0x800464B7 ? 136 : 4;
        requests.emplace_back(request, std::string(static_cast<char *>(argument), size));
        return -1; // not examined
    });
    EXPECT_EQ(dnsRedirect_configAccessCtrl(9), 0);
    std::string table(136, '\0');
    table[0] = 1;
    table[5] = 0x1A; // 6656
    const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ac_mac_list));
    memcpy(&table[132], &address, sizeof address);
    EXPECT_THAT(requests,
                testing::ElementsAre(std::pair(0x800464B5ul, std::string("\1\0\0\0", 4)),
                                     std::pair(0x800464B6ul, std::string("\xfe\xff\xff\xff", 4)),
                                     std::pair(0x800464B7ul, table)));
}
