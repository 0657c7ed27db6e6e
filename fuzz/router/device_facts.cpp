// Everything that is read about client devices, over the same bytes: the identity table, the DHCP
// facts and leases, the tables of attached devices, what the radio and ARP tools print, and the QoS
// service's report.
#include "fuzz/router/file_input.h"
#include "fuzz/target.h"

#include "support/platform_fake.h"
#include "sysutil/system_util.h"

#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// What the code under test prints goes nowhere.
class Quiet {
  public:
    Quiet() : output_(dup(STDOUT_FILENO)) { send_to(open("/dev/null", O_WRONLY)); }
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;
    ~Quiet() { send_to(output_); }

  private:
    static void send_to(int descriptor) {
        fflush(stdout);
        FUZZ_REQUIRE(dup2(descriptor, STDOUT_FILENO) == STDOUT_FILENO);
        close(descriptor);
    }
    int output_;
};

template <std::size_t Size>
void require_text(const char (&field)[Size], std::size_t longest = Size - 1) {
    FUZZ_REQUIRE(strnlen(field, Size) <= longest);
}

template <std::size_t Width>
std::string text_of(const char (&field)[Width]) {
    return {field, strnlen(field, Width)};
}

void check_record(devIdNode *head, const devIdNode *node) {
    const devDataStructure &record = node->data;
    devIdNode *found = head;
    FUZZ_REQUIRE(searchDevIdNodeByMac(&found, text_of(record.devMacAddr).c_str()) == 0);
    FUZZ_REQUIRE(text_of(found->data.devMacAddr) == text_of(record.devMacAddr));
    found = head;
    FUZZ_REQUIRE(searchDevIdNodeByIPaddr(&found, text_of(record.devIpAddr).c_str()) == 0);
    char name[64] = "";
    char model[32] = "";
    FUZZ_REQUIRE(getDeviceNameByPriority(record, name) == (*name != '\0' ? 0 : -1));
    FUZZ_REQUIRE(getDeviceModelByPriority(record, model) == (*model != '\0' ? 0 : -1));
    require_text(name);
    require_text(model);
}

void read_identities(std::size_t file_size) {
    devIdNode *head = nullptr;
    FUZZ_REQUIRE(readDevIdTablefromFile(&head) == 0);
    int count = -1;
    getCurrentDeviceCount(head, &count);
    FUZZ_REQUIRE(static_cast<std::size_t>(count) == file_size / sizeof(devDataStructure));
    for (const devIdNode *node = head; node != nullptr; node = node->next)
        check_record(head, node);
    print_dev_table(head);
    for (; count > 0; --count) {
        FUZZ_REQUIRE(head != nullptr);
        removeOldestNodeFromList(&head);
    }
    FUZZ_REQUIRE(head == nullptr);
}

void read_dhcp_facts() {
    dhcpInfo facts{};
    FUZZ_REQUIRE(getDhcpInfoByMac("aa:bb:cc:dd:ee:ff", &facts) == 0);
    require_text(facts.vendor, 30);
    require_text(facts.hostName, 30);
    require_text(facts.options, 126);
}

void read_attached_devices() {
    constexpr int kMax = 5;
    attach_dev devices[kMax];
    for (const auto list : {get_attach_dev, get_arp_dev}) {
        const int count = list(devices, kMax);
        FUZZ_REQUIRE(count >= 0 && count <= kMax);
        for (int i = 0; i < count; ++i) {
            require_text(devices[i].ifname);
            FUZZ_REQUIRE(devices[i].wired == 0 || devices[i].wired == 1);
        }
    }
    sta_dev stations[2]{};
    const int count = get_sta_dev(stations, 2);
    FUZZ_REQUIRE(count >= 0 && count <= 2);
    for (int i = 0; i < count; ++i) {
        require_text(stations[i].link_speed);
        require_text(stations[i].band);
        FUZZ_REQUIRE(strspn(stations[i].link_speed, "0123456789") ==
                     strlen(stations[i].link_speed));
        FUZZ_REQUIRE(stations[i].signal >= 0 && stations[i].signal <= 100);
    }
}

void read_report() {
    iqos_detail detail;
    memset(&detail, '#', sizeof detail);
    FUZZ_REQUIRE(getIQoSDetailBymac(&detail, "aa:bb:cc:dd:ee:ff") == 0);
    FUZZ_REQUIRE(detail.dev_type_id >= 0 && detail.dev_type_id <= 51);
    require_text(detail.dev_type_name);
    require_text(detail.trend_dev_name);
    require_text(detail.trend_dev_type_name);
    devAppNode *head = nullptr;
    FUZZ_REQUIRE(getIQoSAppListBymac(&head, "aa:bb:cc:dd:ee:ff") == 0);
    for (const devAppNode *node = head; node != nullptr; node = node->next)
        require_text(node->data.app_name);
    removeAllAppNodes(&head);
}

} // namespace

// Commands are not run and files not removed: the input is what every command left behind.
extern "C" int system(const char *) {
    return 0;
}
extern "C" int remove(const char *) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    rig::setSetting("dev_id_debug", "1");
    rig::setSetting("wl0_ifname", "eth1");
    const Quiet quiet;
    const fuzz::FileInput input(data, size);
    read_identities(size + 1); // the input comes with a newline
    read_dhcp_facts();
    read_attached_devices();
    read_report();
    return 0;
}
