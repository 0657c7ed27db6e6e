// Who may use the network: the decision for one device, and the hand-over of the rules to the
// kernel.
#include "sysutil/access_control.h"

#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/device_table.h"
#include "sysutil/mac_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <net/if.h>
#include <sys/ioctl.h>

namespace {

constexpr char kModeSetting[] = "access_control_mode";
constexpr char kNewDevicesSetting[] = "access_all_new_devices";
constexpr char kAttachedDevices[] = "/proc/net/attadev";
constexpr char kLanBridge[] = "br0";

// Requests of the kernel's DNS-redirect module.
constexpr unsigned long kSetMode = 0x800464B5;
constexpr unsigned long kSetNewDevices = 0x800464B6;
constexpr unsigned long kSetTable = 0x800464B7;

// How the table is handed over; the pointer has 32 bits, as on the router.
struct TableDescriptor {
    std::int32_t valid;
    std::int32_t length;
    std::uint8_t reserved[124];
    std::uint32_t table;
};
static_assert(sizeof(TableDescriptor) == 136);
static_assert(offsetof(TableDescriptor, valid) == 0);
static_assert(offsetof(TableDescriptor, length) == 4);
static_assert(offsetof(TableDescriptor, reserved) == 8);
static_assert(offsetof(TableDescriptor, table) == 132);

bool access_control_is_on() {
    return kelpNvramConfig_match(kModeSetting, "1") != 0;
}

int status_of_new_devices() {
    return access_control_is_on() && kelpNvramConfig_match(kNewDevicesSetting, "0") != 0 ? 0 : 1;
}

void hand_over(int fd, unsigned long request, void *argument) {
    ioctl(fd, request, argument);
}

} // namespace

int get_mac_status(const unsigned char mac[6]) {
    const ac_mac_entry *const entry = find_used(ac_mac_list, mac);
    return entry != nullptr ? entry->status : status_of_new_devices();
}

int check_the_wan_type(const unsigned char mac[6]) {
    const File file(fopen(kAttachedDevices, "r"));
    if (!file)
        return -1;
    const MacText text = upper_mac(mac);
    char line[128];
    while (read_line(file.get(), line, sizeof line)) {
        if (strstr(line, text.text) == nullptr)
            continue;
        if (strstr(line, "vlan1") != nullptr)
            return 1;
        if (strstr(line, "eth1") != nullptr || strstr(line, "eth2") != nullptr)
            return 0;
    }
    return -1;
}

int accessCtrl_isAllowedDevice(int socket_fd) {
    printf("accessCtrl_isAllowedDevice");
    if (!access_control_is_on())
        return 1;
    load_ac_mac_list();
    ifreq request{};
    copy_text(request.ifr_name, kLanBridge);
    const bool answered = ioctl(socket_fd, SIOCGIFHWADDR, &request) == 0;
    unsigned char mac[kMacSize] = {};
    if (answered)
        memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    printf("device mac: %s\n", upper_mac(mac).text);
    return answered ? get_mac_status(mac) : status_of_new_devices();
}

int dnsRedirect_configAccessCtrl(int fd) {
    std::int32_t mode = decimal_value(kelpNvramConfig_get(kModeSetting));
    std::int32_t new_devices = decimal_value(kelpNvramConfig_get(kNewDevicesSetting));
    load_ac_mac_list();
    TableDescriptor descriptor{};
    descriptor.valid = 1;
    descriptor.length = sizeof ac_mac_list;
    descriptor.table = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ac_mac_list));
    hand_over(fd, kSetMode, &mode);
    hand_over(fd, kSetNewDevices, &new_devices);
    hand_over(fd, kSetTable, &descriptor);
    return 0;
}
