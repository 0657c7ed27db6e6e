// The identification service's neighbours: the DHCP facts files and the detection daemon's socket.
#include "common/file.h"
#include "common/text.h"
#include "sysutil/device_identity.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

static_assert(sizeof(dhcpInfo) == 192 && offsetof(dhcpInfo, hostName) == 32 &&
              offsetof(dhcpInfo, options) == 64);
static_assert(sizeof(devIdMessage) == 460);

namespace {

constexpr const char *kFactsFolder = "/tmp/dhcp_info_for_fing";
constexpr const char *kDaemonSocket = "/tmp/dev_detect.sock";
constexpr const char *kBlanks = " \t\n\v\f\r";
constexpr int kLineSize = 100;

// Room of the facts, terminator included: a little less than their fields.
constexpr std::size_t kNameFact = 31;
constexpr std::size_t kOptionsFact = 127;

void skip_line(FILE *file) {
    char piece[kLineSize];
    while (read_line(file, piece, sizeof piece) && strchr(piece, '\n') == nullptr) {
    }
}

void take_fact(char *line, dhcpInfo *out) {
    char *const key = line + strspn(line, kBlanks);
    char *value = key + strcspn(key, kBlanks);
    if (value[strspn(value, kBlanks)] == '\0')
        return; // nothing after the key
    *value++ = '\0';
    // The line end; a last line without one loses its last character, deliberately.
    value[strlen(value) - 1] = '\0';
    if (strcmp(key, "vendor") == 0)
        copy_text(out->vendor, kNameFact, value);
    else if (strcmp(key, "hostname") == 0)
        copy_text(out->hostName, kNameFact, value);
    else if (strcmp(key, "params") == 0)
        copy_text(out->options, kOptionsFact, value);
}

// Whether a text names a file of the facts' folder, and no other.
bool is_file_name(const char *text) {
    return text != nullptr && *text != '\0' && *text != '.' && strchr(text, '/') == nullptr;
}

} // namespace

int getDhcpInfoByMac(const char *mac_text, dhcpInfo *out) {
    char path[128];
    const bool fits =
        is_file_name(mac_text) && format_text(path, sizeof path, "%s/%s", kFactsFolder, mac_text);
    const File file(fits ? fopen(path, "r") : nullptr);
    if (!file) {
        printf("File open fail!");
        return -1;
    }
    skip_line(file.get());
    char line[kLineSize];
    while (read_line(file.get(), line, sizeof line))
        take_fact(line, out);
    return 0;
}

void sendDataToDevIdApi(devIdMessage message) {
    // A raw local socket is a datagram socket to Linux.
    const Descriptor sender(socket(AF_UNIX, SOCK_RAW, 0));
    if (!sender) {
        printf("[%s][%d]\n", __func__, __LINE__);
        exit(1); // a hard stop: deliberate
    }
    sockaddr_un daemon{};
    daemon.sun_family = AF_UNIX;
    copy_text(daemon.sun_path, kDaemonSocket);
    // A daemon that hangs must not hang its callers.
    sendto(sender.get(), message.bytes, sizeof message.bytes, MSG_DONTWAIT,
           reinterpret_cast<const sockaddr *>(&daemon),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(kDaemonSocket)));
    printf("[%s][%d]\n", __func__, __LINE__);
}

void getMacByString(const char *mac_text, unsigned char mac[6]) {
    if (!parse_mac(mac_text, mac))
        memset(mac, 0, 6);
}
