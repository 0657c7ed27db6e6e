#include "usage/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace usage {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kUnits = "KMGTP";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool within(unsigned char byte, unsigned char low, unsigned char high) {
    return byte >= low && byte <= high;
}

// Of a character that is valid.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F ||
           (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

} // namespace

std::size_t characterLength(std::string_view text) {
    const auto at = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : '\0';
    };
    const unsigned char lead = at(0);
    if (lead < 0x80)
        return 1;
    if (within(lead, 0xC2, 0xDF))
        return within(at(1), 0x80, 0xBF) ? 2 : 0;
    if (within(lead, 0xE0, 0xEF)) {
        const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
        const unsigned char high = lead == 0xED ? 0x9F : 0xBF;
        return within(at(1), low, high) && within(at(2), 0x80, 0xBF) ? 3 : 0;
    }
    if (within(lead, 0xF0, 0xF4)) {
        const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
        const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;
        return within(at(1), low, high) && within(at(2), 0x80, 0xBF) && within(at(3), 0x80, 0xBF)
                   ? 4
                   : 0;
    }
    return 0;
}

std::string cleanText(std::string_view bytes, std::size_t atMost) {
    std::string clean;
    while (!bytes.empty()) {
        const std::size_t length = characterLength(bytes);
        const bool shown = length != 0 && !isControl(bytes);
        const std::string_view next = shown ? bytes.substr(0, length) : kReplacement;
        if (clean.size() + next.size() > atMost)
            break;
        clean += next;
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return clean;
}

std::string macText(const Mac &mac) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

std::optional<Mac> parseMac(std::string_view text) {
    Mac mac{};
    if (text.size() != 17)
        return std::nullopt;
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const char *group = text.data() + 3 * i;
        const auto parsed = std::from_chars(group, group + 2, mac[i], 16);
        const bool joined = i == 5 || ((group[2] == ':' || group[2] == '-') && group[2] == text[2]);
        if (parsed.ec != std::errc{} || parsed.ptr != group + 2 || !joined)
            return std::nullopt;
    }
    return mac;
}

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t atMost) {
    std::uint64_t value = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (text.empty() || parsed.ec != std::errc{} || parsed.ptr != end || value > atMost)
        return std::nullopt;
    return value;
}

std::optional<std::uint64_t> parseSize(std::string_view text) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string_view number = text.substr(0, digits);
    std::string_view unit = text.substr(digits);
    if (unit.empty())
        return parseNumber(number);
    const std::size_t power = kUnits.find(static_cast<char>(lower(unit[0]) - 'a' + 'A'));
    unit.remove_prefix(1);
    if (power == std::string_view::npos ||
        !(unit.empty() || sameText(unit, "b") || sameText(unit, "ib")))
        return std::nullopt;
    double value = 0;
    const auto parsed = std::from_chars(number.data(), number.data() + number.size(), value,
                                        std::chars_format::fixed);
    if (number.empty() || parsed.ec != std::errc{} || parsed.ptr != number.data() + number.size())
        return std::nullopt;
    value = std::ldexp(value, 10 * (static_cast<int>(power) + 1));
    if (value >= 0x1p63)
        return std::nullopt;
    return static_cast<std::uint64_t>(value);
}

std::string humanSize(std::uint64_t bytes) {
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    auto value = static_cast<double>(bytes);
    std::size_t power = 0;
    value /= 1024;
    while (value >= 999.95 && power + 1 < kUnits.size()) {
        value /= 1024;
        ++power;
    }
    char text[32];
    snprintf(text, sizeof text, "%.1f %ciB", value, kUnits[power]);
    return text;
}

std::string percentEncoded(std::string_view text) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~:,/";
    std::string result;
    for (const char c : text) {
        char escape[4] = {c, '\0'};
        if (kPlain.find(c) == std::string_view::npos)
            snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned char>(c));
        result += escape;
    }
    return result;
}

bool sameText(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

} // namespace usage
