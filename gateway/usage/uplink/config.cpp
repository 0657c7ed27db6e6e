#include "usage/uplink/config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <string_view>
#include <unistd.h>

namespace uplink {
namespace {

constexpr std::size_t kMaxTopicLevel = 64;
constexpr std::int64_t kSmallestOutbox = 512 << 10; // the largest report and another
constexpr std::int64_t kLargestOutbox = 1 << 30;
constexpr std::int64_t kLongestWait = 86'400;

std::string_view trimmed(std::string_view text) {
    constexpr const char *kBlanks = " \t\r";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// A number with what follows its digits.
struct Number {
    std::int64_t value = 0;
    std::string_view unit;
};

std::optional<Number> leadingNumber(std::string_view text) {
    Number number;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number.value);
    if (parsed.ec != std::errc{} || number.value < 0)
        return std::nullopt;
    number.unit = text.substr(static_cast<std::size_t>(parsed.ptr - text.data()));
    return number;
}

using Wrong = std::string; // what is wrong with a value; "" for nothing

Wrong readNumber(std::string_view text, std::int64_t least, std::int64_t most,
                 std::int64_t &number) {
    const auto read = leadingNumber(text);
    if (!read || !read->unit.empty() || read->value < least || read->value > most)
        return "needs a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    number = read->value;
    return "";
}

Wrong readSeconds(std::string_view text, std::int64_t least, std::chrono::seconds &seconds) {
    std::int64_t number = 0;
    Wrong wrong = readNumber(text, least, kLongestWait, number);
    if (wrong.empty())
        seconds = std::chrono::seconds(number);
    return wrong;
}

Wrong readSize(std::string_view text, std::int64_t &size) {
    const auto read = leadingNumber(text);
    const int shift = !read ? -1 : read->unit.empty() ? 0 : read->unit == "K" ? 10 : 20;
    const bool known = read && (shift < 20 || read->unit == "M");
    if (!known || read->value > kLargestOutbox >> shift || read->value << shift < kSmallestOutbox)
        return "needs a size from 512K to 1024M";
    size = read->value << shift;
    return "";
}

Wrong readTopicLevel(std::string_view text, std::string &level) {
    constexpr std::string_view kAllowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    if (text.size() > kMaxTopicLevel || text.find_first_not_of(kAllowed) != std::string_view::npos)
        return "may have letters, digits, - and _ only, and at most 64 of them";
    level = text;
    return "";
}

Wrong readText(std::string_view text, std::string &target) {
    target = text;
    return "";
}

Wrong readPort(std::string_view text, std::uint16_t &port) {
    std::int64_t number = 0;
    Wrong wrong = readNumber(text, 1, UINT16_MAX, number);
    if (wrong.empty())
        port = static_cast<std::uint16_t>(number);
    return wrong;
}

struct Setting {
    std::string_view key;
    Wrong (*read)(Config &config, std::string_view value);
};

constexpr std::array kSettings = {
    Setting{"broker", [](Config &c, std::string_view v) { return readText(v, c.broker); }},
    Setting{"port", [](Config &c, std::string_view v) { return readPort(v, c.port); }},
    Setting{"region", [](Config &c, std::string_view v) { return readTopicLevel(v, c.region); }},
    Setting{"router", [](Config &c, std::string_view v) { return readTopicLevel(v, c.router); }},
    Setting{"username", [](Config &c, std::string_view v) { return readText(v, c.username); }},
    Setting{"password_file", [](Config &c, std::string_view v) { return readText(v, c.password); }},
    Setting{"ca_file", [](Config &c, std::string_view v) { return readText(v, c.caFile); }},
    Setting{"certificate_file",
            [](Config &c, std::string_view v) { return readText(v, c.certificateFile); }},
    Setting{"key_file", [](Config &c, std::string_view v) { return readText(v, c.keyFile); }},
    Setting{"outbox_limit",
            [](Config &c, std::string_view v) { return readSize(v, c.outboxLimit); }},
    Setting{"spread", [](Config &c, std::string_view v) { return readSeconds(v, 0, c.spread); }},
    Setting{"retry_first",
            [](Config &c, std::string_view v) { return readSeconds(v, 1, c.retryFirst); }},
    Setting{"retry_longest",
            [](Config &c, std::string_view v) { return readSeconds(v, 1, c.retryLongest); }},
    Setting{"patience",
            [](Config &c, std::string_view v) { return readSeconds(v, 1, c.patience); }},
};

// What is wrong with one line that is neither empty nor a comment.
Wrong readLine(std::string_view line, Config &config, std::set<std::string_view> &seen) {
    const auto equals = line.find('=');
    if (equals == std::string_view::npos)
        return "is not 'key = value'";
    const std::string_view key = trimmed(line.substr(0, equals));
    const std::string_view value = trimmed(line.substr(equals + 1));
    const auto *setting = std::find_if(kSettings.begin(), kSettings.end(),
                                       [key](const Setting &one) { return one.key == key; });
    if (setting == kSettings.end())
        return "has the unknown key '" + std::string(key) + "'";
    if (!seen.insert(setting->key).second)
        return "repeats '" + std::string(key) + "'";
    if (value.empty())
        return "gives '" + std::string(key) + "' no value";
    const Wrong wrong = setting->read(config, value);
    return wrong.empty() ? "" : "'" + std::string(key) + "' " + wrong;
}

// What is wrong with the settings together.
Wrong checkTogether(const Config &config) {
    if (config.broker.empty())
        return "no broker is configured";
    if (config.region.empty() || config.router.empty())
        return "'region' and 'router' are needed";
    if (config.certificateFile.empty() != config.keyFile.empty())
        return "'certificate_file' and 'key_file' are given both or none";
    if (config.username.empty() && !config.password.empty())
        return "'password_file' needs a 'username'";
    if (config.retryLongest < config.retryFirst)
        return "'retry_longest' is below 'retry_first'";
    return "";
}

[[noreturn]] void refuseLine(const std::string &name, int number, const Wrong &wrong) {
    throw ConfigError(name + ":" + std::to_string(number) + ": the line " + wrong);
}

// Nothing to do for a file that is not named.
void requireReadable(const std::string &name, const std::string &file) {
    if (!file.empty() && access(file.c_str(), R_OK) != 0)
        throw ConfigError(name + ": cannot read " + file + ": " + strerror(errno));
}

std::string readPassword(const std::string &path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) || line.empty())
        throw ConfigError("cannot read a password from the first line of " + path);
    return line;
}

} // namespace

Config parseConfig(std::istream &text, const std::string &name) {
    Config config;
    std::set<std::string_view> seen;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        const std::string_view content = trimmed(line);
        if (content.empty() || content.front() == '#')
            continue;
        const Wrong wrong = readLine(content, config, seen);
        if (!wrong.empty())
            refuseLine(name, number, wrong);
    }
    if (const Wrong wrong = checkTogether(config); !wrong.empty())
        throw ConfigError(name + ": " + wrong);
    return config;
}

Config loadConfig(const std::string &path) {
    std::ifstream file(path);
    if (!file)
        throw ConfigError("no configuration: " + path + ": " + strerror(errno));
    Config config = parseConfig(file, path);
    for (const auto *needed : {&config.caFile, &config.certificateFile, &config.keyFile})
        requireReadable(path, *needed);
    if (!config.password.empty())
        config.password = readPassword(config.password);
    return config;
}

} // namespace uplink
