// Wireless stations, by the router's radio tool.
#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/attached_devices.h"
#include "sysutil/mac_text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr const char *kStations = "/tmp/sta_info";
constexpr const char *kReading = "/tmp/wifi_rssi";
constexpr const char *kSecondReading = "/tmp/wifi_rssi2";
constexpr const char *kStationFacts = "/tmp/wifi_sta_info";
constexpr const char *kSecondRadio = "eth2";
constexpr std::size_t kCommandSize = 128;
constexpr int kLineSize = 512;
constexpr int kAttempts = 10;
constexpr int kBestQuality = 100;

// Guest networks of a band; the first is there in extender mode too.
constexpr const char *kGuests2g[] = {"wl0.1", "wl0.2", "wl0.3"};
constexpr const char *kGuests5g[] = {"wl1.1", "wl1.2", "wl1.3"};

// Six two-digit hexadecimal groups joined by colons, and nothing else.
bool is_mac_text(const char *text) {
    constexpr std::size_t kLength = sizeof(MacText::text) - 1;
    for (std::size_t i = 0; i < kLength; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (i % 3 == 2 ? c != ':' : isxdigit(c) == 0)
            return false;
    }
    return text[kLength] == '\0';
}

// The lines that were added since the last relabelling still say "assoclist".
void relabel(const char *label) {
    run_command(kCommandSize, "sed -i s'/assoclist/%s/'g %s", label, kStations);
}

void list_guests(std::span<const char *const> interfaces) {
    for (const char *interface : interfaces)
        run_command(kCommandSize, "wl -i %s assoclist 2>/dev/null >> %s", interface, kStations);
}

void list_stations() {
    const bool extender = kelpNvramConfig_match("enable_extender_mode", "1") == 1;
    const std::size_t guests = extender ? 1 : std::size(kGuests2g);
    run_command(kCommandSize, "wl assoclist > %s", kStations);
    relabel("2glist");
    if (!extender) {
        run_command(kCommandSize, "wl -i %s assoclist >> %s", kSecondRadio, kStations);
        relabel("5glist");
    }
    list_guests(std::span(kGuests2g).first(guests));
    relabel("2glist");
    list_guests(std::span(kGuests5g).first(guests));
    relabel("5glist");
}

void set_band(const char *label, sta_dev &station) {
    if (strstr(label, "2g") != nullptr)
        copy_text(station.band, "2g");
    else if (strstr(label, "5g") != nullptr)
        copy_text(station.band, "5g");
    else
        // The number is part of the message that log readers know.
        printf("%s %d: invalid wireless band!\n", "get_sta_dev", 445);
}

bool read_station(const char *line, sta_dev &station) {
    char label[kLineSize];
    int rest = -1;
    if (sscanf(line, "%511s %n", label, &rest) != 1 || rest < 0 ||
        !parse_mac(line + rest, station.mac))
        return false;
    set_band(label, station);
    const MacText mac = lower_mac(station.mac);
    get_sta_link_speed(mac.text, station.link_speed);
    station.signal = get_sta_signal_strength(mac.text);
    return true;
}

// The highest rate of a station's rate set, "[ 1(b) 5.5(b) 11(b) 54 ]", in whole Mbit/s.
int highest_rate(const char *rates) {
    int highest = 0;
    for (; *rates != '\0' && *rates != ']'; ++rates) {
        if (*rates == ' ')
            highest = std::max(highest, truncated_value(rates));
    }
    return highest;
}

// Mbit/s from what the radio tool says about a station: the rate of the last packet sent to it or,
// before there was one, the highest rate of its rate set. 0 when the text has neither.
int read_speed(FILE *facts) {
    int speed = 0;
    char line[kLineSize];
    while (read_line(facts, line, sizeof line)) {
        int kilobits = 0;
        if (sscanf(line, " rate of last tx pkt: %9d kbps", &kilobits) == 1 && kilobits >= 1000)
            return kilobits / 1000;
        const char *const rates = strstr(line, "rateset [");
        if (rates != nullptr)
            speed = highest_rate(strchr(rates, '[') + 1);
    }
    return speed;
}

void query_speed(const char *interface_setting, const char *mac_text, char *out) {
    const char *const interface = kelpNvramConfig_get(interface_setting);
    if (*interface == '\0')
        return;
    run_command(kCommandSize, "wl -i %s sta_info %s > %s 2>/dev/null", interface, mac_text,
                kStationFacts);
    int speed = 0;
    {
        const File facts(fopen(kStationFacts, "r"));
        if (facts)
            speed = read_speed(facts.get());
    }
    remove(kStationFacts);
    if (speed > 0)
        format_text(out, sizeof sta_dev::link_speed, "%d", speed);
}

// The number that a command left in its file; false when there is no text.
bool read_level(const char *path, int &level) {
    const File file(fopen(path, "r"));
    char text[10];
    if (!file || !read_line(file.get(), text, sizeof text))
        return false;
    level = truncated_value(text);
    return true;
}

// The station's signal in dBm, 0 when the radios do not tell.
int signal_level(const char *mac_text) {
    int level = 0;
    run_command(kCommandSize, "wl rssi %s > %s", mac_text, kReading);
    if (read_level(kReading, level))
        return level;
    run_command(kCommandSize, "wl -i %s rssi %s > %s", kSecondRadio, mac_text, kSecondReading);
    read_level(kSecondReading, level);
    return level;
}

int quality_of(int level) {
    level = std::clamp(level, -131, 0); // beyond these the quality is 0 or 100 anyway
    int quality = level + 131;
    if (level > -80)
        quality += (level + 80) * 35 / 100;
    return std::min(quality, kBestQuality);
}

} // namespace

int get_sta_dev(sta_dev *stations, int max) {
    list_stations();
    const File file(fopen(kStations, "r"));
    int count = 0;
    char line[kLineSize];
    while (file && count < max && read_line(file.get(), line, sizeof line)) {
        if (read_station(line, stations[count]))
            ++count;
    }
    return count;
}

void get_sta_link_speed(const char *mac_text, char *out) {
    memset(out, 0, 4);
    if (!is_mac_text(mac_text))
        return;
    query_speed("wl0_ifname", mac_text, out);
    if (*out == '\0')
        query_speed("wl1_ifname", mac_text, out);
}

int get_sta_signal_strength(const char *mac_text) {
    if (!is_mac_text(mac_text))
        return kBestQuality;
    int level = 0;
    for (int attempt = 0; attempt < kAttempts && level == 0; ++attempt)
        level = signal_level(mac_text);
    run_command(kCommandSize, "rm %s", kReading);
    run_command(kCommandSize, "rm %s", kSecondReading);
    return level == 0 ? kBestQuality : quality_of(level);
}
