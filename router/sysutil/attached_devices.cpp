#include "sysutil/attached_devices.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/mac_text.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr const char *kAttachmentTable = "/proc/net/attadev";
constexpr const char *kArpTable = "/proc/net/arp";
constexpr const char *kLeases = "/tmp/udhcpd.leases";
constexpr const char *kAssociations = "/tmp/tmp_assoclist";
constexpr const char *kArpListing = "/tmp/arp";
constexpr const char *kBridge = "br0";
constexpr std::size_t kCommandSize = 128;
constexpr int kLineSize = 256;
constexpr int kLastRadio = 2; // radios are "eth1" and "eth2"

// A record of the DHCP server's binary lease file.
struct Lease {
    unsigned char hardware_address[16]; // the MAC first
    std::uint32_t address;              // network byte order
    std::uint32_t expiry;
    char host_name[64];
};
static_assert(sizeof(Lease) == 88);
static_assert(offsetof(Lease, hardware_address) == 0);
static_assert(offsetof(Lease, address) == 16);
static_assert(offsetof(Lease, expiry) == 20);
static_assert(offsetof(Lease, host_name) == 24);

// The caller's array and how much of it is filled.
class DeviceList {
  public:
    DeviceList(attach_dev *devices, int max) : devices_(devices), max_(max) {}

    [[nodiscard]] int count() const { return count_; }
    [[nodiscard]] bool full() const { return count_ >= max_; }

    void add(const attach_dev &device) {
        if (!full())
            devices_[count_++] = device;
    }
    [[nodiscard]] bool has_address(std::uint32_t ip) const {
        for (const attach_dev &device : filled()) {
            if (device.ip == ip)
                return true;
        }
        return false;
    }
    [[nodiscard]] bool has_mac(const unsigned char *mac) const {
        for (const attach_dev &device : filled()) {
            if (memcmp(device.mac, mac, sizeof device.mac) == 0)
                return true;
        }
        return false;
    }

  private:
    [[nodiscard]] std::span<const attach_dev> filled() const {
        return {devices_, static_cast<std::size_t>(count_)};
    }

    attach_dev *devices_;
    int max_;
    int count_ = 0;
};

bool is_wired(const char *interface) {
    return strcmp(interface, "vlan1") == 0 || strcmp(interface, "vlan2") == 0 ||
           strcmp(interface, "eth0") == 0 || strstr(interface, "tap") != nullptr ||
           (strncmp(interface, "vlan", 4) == 0 &&
            kelpNvramConfig_match("enable_vlan", "enable") == 1);
}

File open_table(const char *path) {
    File file(fopen(path, "r"));
    if (!file)
        perror(path);
    return file;
}

// A line of the attachment table: address, MAC and, empty when the line ends before it, interface.
bool parse_attachment(const char *line, attach_dev &device, char (&interface)[kLineSize]) {
    unsigned int address = 0;
    char mac[kLineSize];
    *interface = '\0';
    if (sscanf(line, "%8X %255s %255s", &address, mac, interface) < 2 ||
        !parse_mac(mac, device.mac))
        return false;
    device.ip = htonl(address);
    return true;
}

void add_attachments(FILE *table, DeviceList &list) {
    char line[kLineSize];
    char interface[kLineSize];
    while (!list.full() && read_line(table, line, sizeof line)) {
        attach_dev device{};
        if (!parse_attachment(line, device, interface) || *interface == '\0')
            continue;
        device.wired = is_wired(interface) ? 1 : 0;
        copy_text(device.ifname, interface);
        list.add(device);
    }
}

void add_associations(int radio, DeviceList &list) {
    const File file(fopen(kAssociations, "r"));
    char line[kLineSize];
    while (file && !list.full() && read_line(file.get(), line, sizeof line)) {
        attach_dev device{};
        int label = -1;
        sscanf(line, "assoclist %n", &label);
        if (label < 0 || !parse_mac(line + label, device.mac) || list.has_mac(device.mac))
            continue;
        device.ip = get_ip_from_arp(device.mac);
        format_text(device.ifname, sizeof device.ifname, "eth%d", radio);
        list.add(device);
    }
}

// A line of the ARP table: address, hardware type, flags, MAC, mask, device.
bool parse_neighbour(const char *line, attach_dev &device) {
    char address[kLineSize];
    char mac[kLineSize];
    char interface[kLineSize];
    in_addr parsed{};
    if (sscanf(line, "%255s %*s %*s %255s %*s %255s", address, mac, interface) != 3 ||
        strcmp(interface, kBridge) != 0 || !parse_mac(mac, device.mac) ||
        inet_pton(AF_INET, address, &parsed) != 1)
        return false;
    device.ip = parsed.s_addr;
    return true;
}

void add_neighbours(FILE *table, DeviceList &list) {
    char line[kLineSize];
    read_line(table, line, sizeof line); // the header
    while (!list.full() && read_line(table, line, sizeof line)) {
        attach_dev device{};
        if (parse_neighbour(line, device))
            list.add(device);
    }
}

void add_leases(DeviceList &list) {
    const File file(fopen(kLeases, "rb"));
    Lease lease;
    while (file && !list.full() && fread(&lease, sizeof lease, 1, file.get()) == 1) {
        // The first device of all is taken even from a lease that has expired: deliberate.
        const bool expired = lease.expiry == 0 && list.count() > 0;
        if (expired || list.has_address(lease.address))
            continue;
        attach_dev device{};
        device.ip = lease.address;
        memcpy(device.mac, lease.hardware_address, sizeof device.mac);
        list.add(device);
    }
}

void add_attached_addresses(FILE *table, DeviceList &list) {
    char line[kLineSize];
    char interface[kLineSize];
    while (!list.full() && read_line(table, line, sizeof line)) {
        attach_dev device{};
        if (parse_attachment(line, device, interface) && !list.has_address(device.ip))
            list.add(device);
    }
}

// The dotted address between the first pair of parentheses; 0 when there is none.
std::uint32_t address_in_parentheses(const char *line) {
    char text[INET_ADDRSTRLEN];
    in_addr address{};
    const char *const open = strchr(line, '(');
    if (open == nullptr || sscanf(open, "(%15[^)])", text) != 1 || open[1 + strlen(text)] != ')' ||
        inet_pton(AF_INET, text, &address) != 1)
        return 0;
    return address.s_addr;
}

std::uint32_t find_in_arp_listing(const char *mac_text) {
    const File file(fopen(kArpListing, "r"));
    char line[kLineSize];
    while (file && read_line(file.get(), line, sizeof line)) {
        if (strstr(line, mac_text) != nullptr)
            return address_in_parentheses(line);
    }
    return 0;
}

} // namespace

int get_attach_dev(attach_dev *devices, int max) {
    DeviceList list(devices, max);
    {
        const File table = open_table(kAttachmentTable);
        if (!table)
            return 0;
        add_attachments(table.get(), list);
    }
    for (int radio = 1; radio <= kLastRadio; ++radio) {
        run_command(kCommandSize, "wl -i eth%d assoclist >> %s", radio, kAssociations);
        add_associations(radio, list);
        run_command(kCommandSize, "rm -r -f %s", kAssociations);
    }
    return list.count();
}

int get_arp_dev2(attach_dev *devices, int max, int skip) {
    DeviceList list(devices, max);
    if (skip == 0) {
        const File table = open_table(kArpTable);
        if (!table)
            return 0;
        add_neighbours(table.get(), list);
        add_leases(list);
    }
    const File table = open_table(kAttachmentTable);
    if (!table)
        return 0; // even when there are devices already: deliberate
    add_attached_addresses(table.get(), list);
    return list.count();
}

int get_arp_dev(attach_dev *devices, int max) {
    return get_arp_dev2(devices, max, 0);
}

std::uint32_t get_ip_from_arp(const unsigned char mac[6]) {
    run_command(kCommandSize, "arp -an > %s", kArpListing);
    const std::uint32_t address = find_in_arp_listing(lower_mac(mac).text);
    if (address == 0) // after a success the listing is left in place: deliberate
        run_command(kCommandSize, "rm -r -f %s", kArpListing);
    return address;
}
