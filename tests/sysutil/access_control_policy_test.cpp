#include "device_lists.h"

#include "support/fixture.h"

#include <cstdint>
#include <net/if.h>
#include <sys/ioctl.h>

using testing::HasSubstr;

class AccessControlPolicy : public rig::Fixture {};

TEST_F(AccessControlPolicy, AnUnlistedDeviceIsBlockedOnlyWhereNewDevicesAre) {
    struct {
        const char *mode, *newDevices;
        int status;
    } const rows[] = {{"", "", 1},   {"0", "0", 1}, {"1", "0", 0},
                      {"1", "1", 1}, {"1", "", 1},  {"2", "0", 1}};
    rig::standardOutput([] { load_ac_mac_list(); });
    for (const auto &row : rows) {
        rig::setSetting("access_control_mode", row.mode);
        rig::setSetting("access_all_new_devices", row.newDevices);
        EXPECT_EQ(get_mac_status(macOf(1).data()), row.status) << row.mode << row.newDevices;
    }
}

TEST_F(AccessControlPolicy, TheConnectionIsThatOfTheFirstLineThatTells) {
    struct {
        const char *devices;
        int type;
    } const rows[] = {
        {"", -1},
        {"A0:0B:00:00:00:02 vlan1\n", -1},
        {"a0:0b:00:00:00:01 vlan1\n", -1},
        {"A0:0B:00:00:00:01 br0\nA0:0B:00:00:00:01 eth1\nA0:0B:00:00:00:01 vlan1\n", 0},
        {"A0:0B:00:00:00:01 eth2\n", 0},
        {"x A0:0B:00:00:00:01 eth1 vlan1\n", 1},
    };
    EXPECT_EQ(check_the_wan_type(macOf(1).data()), -1);
    for (const auto &row : rows) {
        rig::writeFile("/proc/net/attadev", row.devices);
        EXPECT_EQ(check_the_wan_type(macOf(1).data()), row.type) << row.devices;
    }
}

TEST_F(AccessControlPolicy, TheBridgesAddressDecides) {
    std::vector<std::string> asked;
    Mac answer = macOf(1);
    int result = 0;
    rig::onIoctl([&](int descriptor, unsigned long request, void *argument) {
        auto *const interface = static_cast<ifreq *>(argument);
        asked.push_back(std::to_string(descriptor) + " " + interface->ifr_name);
        EXPECT_EQ(request, static_cast<unsigned long>(SIOCGIFHWADDR));
        memcpy(interface->ifr_hwaddr.sa_data, answer.data(), 6);
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
    answer = macOf(2);
    EXPECT_THAT(allowed(0), HasSubstr("device mac: A0:0B:00:00:00:02\n"));
    result = -1; // an address that is not known is not listed either
    EXPECT_THAT(allowed(0), HasSubstr("device mac: 00:00:00:00:00:00\n"));
    EXPECT_THAT(asked, testing::Each("7 br0"));
    EXPECT_EQ(asked.size(), 3u);
}

TEST_F(AccessControlPolicy, TheKernelGetsModeDefaultAndTable) {
    rig::setSetting("access_control_mode", "1");
    rig::setSetting("access_all_new_devices", "-2");
    rig::setSetting("ac_mac_list0", "A00B00000001:3:A00B00000002:0.");
    rig::setSetting("ac_dev_name0", "6:Laptop:32:" + std::string(32, 'n') + ".");
    rig::setSetting("ac_mac_order0", "00258:00001:");
    std::vector<std::pair<unsigned long, std::string>> requests;
    std::string table;
    rig::onIoctl([&](int descriptor, unsigned long request, void *argument) {
        EXPECT_EQ(descriptor, 9);
        const std::size_t size = request == 0x800464B7 ? 136 : 4;
        requests.emplace_back(request, std::string(static_cast<char *>(argument), size));
        table.assign(reinterpret_cast<const char *>(ac_mac_list), 6656);
        errno = EIO;
        return -1; // not examined
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

    const std::string unused(32, '\0');
    const std::string free = std::string(8, '\0') + "\xff\xff\xff\xff" + unused +
                             "\xff\xff\xff\xff" + std::string(4, '\0');
    EXPECT_EQ(table.substr(0, 52), std::string("\xa0\x0b\0\0\0\x01\0\0\1\0\0\0Laptop", 18) +
                                       unused.substr(6) + std::string("\1\0\0\0\2\1\0\0", 8));
    EXPECT_EQ(table.substr(52, 52), std::string("\xa0\x0b\0\0\0\x02\0\0\0\0\0\0", 12) +
                                        std::string(32, 'n') + std::string("\0\0\0\0\1\0\0\0", 8));
    for (std::size_t slot = 2; slot < 128; ++slot)
        EXPECT_EQ(table.substr(slot * 52, 52), free) << slot;
}
