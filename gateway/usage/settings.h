// What an owner has set for an instance's page and messages: a small JSON file beside the program's
// other settings, written by `traffic-usage setup` and read when the service starts.
#pragma once

#include <cstdint>
#include <string>

namespace usage {

struct MessageSettings {
    std::string host; // of the broker; "" sends no messages and opens no connection
    std::uint16_t port = 1883;
    std::string user; // "" for none
    std::string password;
    bool operator==(const MessageSettings &) const = default;
};

struct Settings {
    std::string listen;       // ADDRESS:PORT; "" for what the service does by itself
    std::string passwordHash; // of crypt(3); "" for none
    MessageSettings messages;
    bool operator==(const Settings &) const = default;
};

// /etc/traffic-usage/INSTANCE.json
std::string settingsFile(const std::string &instance);

// Those of a file; without the file all as they are by themselves. Throws std::runtime_error, with
// the reason, for a file that can't be read or is damaged.
Settings readSettings(const std::string &file);

// Replaces the file whole, readable by its owner and group only: those of the file that was there,
// else the caller and the group traffic-usage, when there is one. Throws std::runtime_error.
void writeSettings(const std::string &file, const Settings &settings);

} // namespace usage
