#include "device_lists.h"

#include <cstdint>
#include <net/if.h>
#include <sys/ioctl.h>
#include <vector>

class AccessControlPolicy : public DeviceLists {};

TEST_F(AccessControlPolicy, TheBridgesAddressDecides) {
    int answer = 1;
    int result = 0;
    rig::onIoctl([&](int descriptor, unsigned long request, void *argument) {
        auto *const interface = static_cast<ifreq *>(argument);
        EXPECT_EQ(descriptor, 7);
        EXPECT_EQ(request, static_cast<unsigned long>(SIOCGIFHWADDR));
        EXPECT_STREQ(interface->ifr_name, "br0");
        memcpy(interface->ifr_hwaddr.sa_data, macOf(answer), 6);
        return result;
    });
    const auto allowed = [](int expected) {
        return rig::standardOutput([=] { EXPECT_EQ(accessCtrl_isAllowedDevice(7), expected); });
    };
    EXPECT_EQ(allowed(1), "accessCtrl_isAllowedDevice");
    rig::setSetting("access_control_mode", "1");
    rig::setSetting("access_all_new_devices", "0");
    rig::setSetting("ac_mac_order0", "00000:");
    rig::setSetting("ac_mac_list0", "A00B00000001:1:000000000000:1.");
    EXPECT_EQ(allowed(1), "accessCtrl_isAllowedDevicedevice mac: A0:0B:00:00:00:01\n");
    answer = 2;
    EXPECT_EQ(allowed(0), "accessCtrl_isAllowedDevicedevice mac: A0:0B:00:00:00:02\n");
    rig::setSetting("access_all_new_devices", "1");
    EXPECT_EQ(get_mac_status(macOf(2)), 1);
    rig::setSetting("access_all_new_devices", "0");
    result = -1; // an address that is not known is not listed either
    EXPECT_EQ(allowed(0), "accessCtrl_isAllowedDevicedevice mac: 00:00:00:00:00:00\n");
}

TEST_F(AccessControlPolicy, TheKernelGetsModeDefaultAndTable) {
    rig::setSetting("access_control_mode", "1");
    rig::setSetting("access_all_new_devices", "-2");
    rig::setSetting("ac_mac_list0", "A00B00000001:3.");
    rig::setSetting("ac_dev_name0", "6:Laptop.");
    rig::setSetting("ac_mac_order0", "00258:");
    std::vector<std::pair<unsigned long, std::string>> requests;
    rig::onIoctl([&](int descriptor, unsigned long request, void *argument) {
        const std::size_t size = request == 0x800464B7 ? 136 : 4;
        requests.emplace_back(request, std::string(static_cast<char *>(argument), size));
        return descriptor == 9 ? -1 : 0; // not examined
    });
    EXPECT_EQ(dnsRedirect_configAccessCtrl(9), 0);
    std::string descriptor(136, '\0');
    descriptor[0] = 1;
    descriptor[5] = 0x1A; // 6656
    const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ac_mac_list));
    memcpy(&descriptor[132], &address, sizeof address);
    EXPECT_THAT(requests,
                testing::ElementsAre(std::pair(0x800464B5ul, std::string("\1\0\0\0", 4)),
                                     std::pair(0x800464B6ul, std::string("\xfe\xff\xff\xff", 4)),
                                     std::pair(0x800464B7ul, descriptor)));

    const std::string table = std::string("\xa0\x0b\0\0\0\x01\0\0\1\0\0\0Laptop", 18) +
                              std::string(26, '\0') + std::string("\1\0\0\0\2\1\0\0", 8);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(ac_mac_list), 52), table);
}
