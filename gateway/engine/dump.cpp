#include "engine/dump.h"

#include "engine/options.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace idpfwd {
namespace {

// Length of the UTF-8 character that the text begins with; 0 when it begins with none.
std::size_t utf8Length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    // Overlong forms, surrogates, and what is above the last character.
    const bool outside =
        length > 2 && ((lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) >= 0xA0) ||
                       (lead == 0xF0 && byte(1) < 0x90) || (lead == 0xF4 && byte(1) >= 0x90));
    return outside ? 0 : length;
}

void appendEscaped(std::string &json, unsigned code) {
    char escape[8];
    snprintf(escape, sizeof escape, "\\u%04x", code);
    json += escape;
}

std::string quoted(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text[0]);
        const std::size_t length = utf8Length(text);
        if (length == 0 || first < 0x20)
            appendEscaped(json, first);
        else if (first == '"' || first == '\\')
            json += {'\\', text[0]};
        else
            json += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return json + "\"";
}

std::string member(const char *name, const std::string &value) {
    return quoted(name) + ": " + value;
}

std::string member(const char *name, std::uint64_t value) {
    return member(name, std::to_string(value));
}

std::string dumpRow(const devid_app_rate_entry &row, const Source &source) {
    return "{" + member("cat_id", row.cat_id) + ", " + member("app_id", row.app_id) + ", " +
           member("category", quoted(source.categoryName(row.cat_id))) + ", " +
           member("application", quoted(source.applicationName(row.cat_id, row.app_id))) + ", " +
           member("down_bytes", row.down_accl_byte) + ", " + member("up_bytes", row.up_accl_byte) +
           ", " + member("down_packets", row.down_accl_pkt) + ", " +
           member("up_packets", row.up_accl_pkt) + ", " + member("last", row.last_elapsed_ts) + "}";
}

// "" when the device has not shown one.
std::string addressText(int family, const std::uint8_t *address, std::size_t size) {
    char text[INET6_ADDRSTRLEN] = "";
    if (std::any_of(address, address + size, [](auto octet) { return octet != 0; }))
        inet_ntop(family, address, text, sizeof text);
    return quoted(text);
}

std::string dumpUser(const devid_user_entry &user, const Source &source) {
    const std::string_view name(user.host_name, strnlen(user.host_name, sizeof user.host_name));
    std::string rows;
    for (const auto &row : source.tables.rows()) {
        if (row.uid == user.uid)
            rows += (rows.empty() ? "\n    " : ",\n    ") + dumpRow(row, source);
    }
    return "{" + member("uid", user.uid) + ", " + member("mac", quoted(formatMac(user.mac))) +
           ", " + member("host_name", quoted(name)) + ", " +
           member("ipv4", addressText(AF_INET, user.ipv4, sizeof user.ipv4)) + ", " +
           member("ipv6", addressText(AF_INET6, user.ipv6, sizeof user.ipv6)) + ", " +
           member("rows", "[" + rows + "]") + "}";
}

std::string dumpRefused(const Tables &tables) {
    constexpr std::size_t kMost = 64;
    std::string devices;
    for (const RefusedDevice &device : tables.refused().latest(kMost))
        devices += (devices.empty() ? "\n  {" : ",\n  {") +
                   member("mac", quoted(formatMac(device.mac.data()))) + ", " +
                   member("packets", device.packets) + ", " + member("bytes", device.bytes) + "}";
    return "[" + devices + "]";
}

// What Overflow and Forgotten have in common.
template <typename Lost>
std::string dumpLost(const Lost &lost) {
    return "{" + member("users", lost.users) + ", " + member("rows", lost.rows) + ", " +
           member("packets", lost.packets) + ", " + member("bytes", lost.bytes) + "}";
}

} // namespace

std::string dumpTables(const Source &source) {
    const Tables &tables = source.tables;
    std::string users;
    for (const auto &user : tables.users())
        users += (users.empty() ? "\n  " : ",\n  ") + dumpUser(user, source);
    const auto drops = source.captureDrops();
    const std::string capped = "{" + member("packets", tables.capped().packets) + ", " +
                               member("bytes", tables.capped().bytes) + "}";
    return "{" + member("users", "[" + users + "]") + ",\n " +
           member("overflow", dumpLost(tables.overflow())) + ",\n " +
           member("refused", dumpRefused(tables)) + ",\n " +
           member("forgotten", dumpLost(tables.forgotten())) + ",\n " + member("capped", capped) +
           ",\n " + member("capture_drops", drops ? std::to_string(*drops) : "null") + "}\n";
}

} // namespace idpfwd
