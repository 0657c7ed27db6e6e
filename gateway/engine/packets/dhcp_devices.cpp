#include "engine/packets/dhcp_devices.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace idpfwd {
namespace {

enum Kind {
    kWindowsPc,
    kXbox,
    kAndroid,
    kLinux,
    kEmbedded,
    kIphone,
    kIpad,
    kMac,
    kPlayStation,
    kPrinter,
    kIpPhone,
    kRoku,
    kKinds,
};

// Identifiers in the order vendor, OS, class, type, device, family; names in the same order.
constexpr std::array<DeviceKind, kKinds> kDevices = {{
    {{1, 1, 1, 1, 1, 1}, "Microsoft", "Windows", "Computer", "Windows PC", "PC", "Windows"},
    {{1, 2, 2, 2, 2, 2}, "Microsoft", "Xbox OS", "Game console", "Xbox", "Xbox", "Xbox"},
    {{2, 3, 3, 3, 3, 3}, "Google", "Android", "Phone", "Android phone", "Android", "Android"},
    {{3, 4, 1, 4, 4, 4}, "Linux", "Linux", "Computer", "Linux computer", "Linux", "Linux"},
    {{4, 5, 4, 5, 5, 5}, "Generic", "BusyBox", "Embedded", "Embedded device", "Device", "Embedded"},
    {{5, 6, 3, 6, 6, 6}, "Apple", "iOS", "Phone", "iPhone", "iPhone", "iOS"},
    {{5, 6, 5, 7, 7, 6}, "Apple", "iOS", "Tablet", "iPad", "iPad", "iOS"},
    {{5, 7, 1, 8, 8, 7}, "Apple", "macOS", "Computer", "Mac", "Mac", "macOS"},
    {{6, 8, 2, 9, 9, 8}, "Sony", "Orbis OS", "Game console", "PlayStation", "PlayStation", "Orbis"},
    {{7, 9, 6, 10, 10, 9}, "HP", "JetDirect", "Printer", "Network printer", "Printer", "JetDirect"},
    {{8, 10, 7, 11, 11, 10}, "Cisco", "Phone OS", "Telephone", "IP phone", "IP phone", "IP phone"},
    {{9, 11, 8, 12, 12, 11}, "Roku", "Roku OS", "Media player", "Streaming player", "Roku", "Roku"},
}};

struct Rule {
    std::string_view prefix; // in lower case
    Kind kind;
};

// The first that fits wins: longer ones stand before their beginnings.
constexpr Rule kVendorClasses[] = {
    {"msft 5.0 xbox", kXbox},
    {"msft", kWindowsPc},
    {"android-dhcp", kAndroid},
    {"dhcpcd", kLinux},
    {"systemd", kLinux},
    {"udhcp", kEmbedded},
    {"ps3", kPlayStation},
    {"ps4", kPlayStation},
    {"ps5", kPlayStation},
    {"hewlett-packard jetdirect", kPrinter},
    {"cisco systems, inc. ip phone", kIpPhone},
    {"roku", kRoku},
    {"aaplbsdpc", kMac},
};

constexpr Rule kHostNames[] = {
    {"iphone", kIphone},     {"ipad", kIpad},          {"macbook", kMac},
    {"imac", kMac},          {"android", kAndroid},    {"galaxy-", kAndroid},
    {"pixel-", kAndroid},    {"desktop-", kWindowsPc}, {"laptop-", kWindowsPc},
    {"raspberrypi", kLinux},
};

// What Apple's phones ask for, and what its computers ask for behind that.
constexpr std::uint8_t kAppleParameters[] = {1, 121, 3, 6, 15, 119, 252};

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

const DeviceKind *match(std::span<const Rule> rules, const std::string &text) {
    const std::string lower = lowerCase(text);
    for (const Rule &rule : rules)
        if (lower.starts_with(rule.prefix))
            return &kDevices[rule.kind];
    return nullptr;
}

const DeviceKind *matchParameters(std::span<const std::uint8_t> parameters) {
    const std::span<const std::uint8_t> apple(kAppleParameters);
    if (parameters.size() < apple.size() ||
        !std::equal(apple.begin(), apple.end(), parameters.begin()))
        return nullptr;
    return &kDevices[parameters.size() == apple.size() ? kIphone : kMac];
}

} // namespace

std::span<const DeviceKind> deviceKinds() {
    return kDevices;
}

Identification identify(const DhcpFacts &facts) {
    if (const DeviceKind *kind = match(kVendorClasses, facts.vendorClass))
        return {kind, 3};
    if (const DeviceKind *kind = match(kHostNames, facts.hostName))
        return {kind, 2};
    if (const DeviceKind *kind = matchParameters(facts.parameters))
        return {kind, 1};
    return {};
}

} // namespace idpfwd
