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

bool continues(std::string_view bytes, std::size_t at) {
    return at < bytes.size() && (static_cast<unsigned char>(bytes[at]) & 0xC0U) == 0x80U;
}

// Length of the character that a first byte promises, and the smallest code point that may take it.
struct Promise {
    std::size_t length;
    std::uint32_t first;
    std::uint32_t bits;
};

Promise promiseOf(unsigned char c) {
    if (c < 0x80)
        return {1, 0, c};
    if (c >= 0xC2 && c < 0xE0)
        return {2, 0x80, c & 0x1FU};
    if (c >= 0xE0 && c < 0xF0)
        return {3, 0x800, c & 0x0FU};
    if (c >= 0xF0 && c < 0xF5)
        return {4, 0x10000, c & 0x07U};
    return {0, 0, 0};
}

// Length of the printable character at the beginning, 0 when there is none.
std::size_t characterLength(std::string_view bytes) {
    const Promise promise = promiseOf(static_cast<unsigned char>(bytes[0]));
    std::uint32_t point = promise.bits;
    for (std::size_t i = 1; i < promise.length; ++i) {
        if (!continues(bytes, i))
            return 0;
        point = point << 6U | (static_cast<unsigned char>(bytes[i]) & 0x3FU);
    }
    const bool surrogate = point >= 0xD800 && point < 0xE000;
    const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
    if (point < promise.first || point > 0x10FFFF || surrogate || control)
        return 0;
    return promise.length;
}

} // namespace

std::string cleanText(std::string_view bytes, std::size_t atMost) {
    std::string clean;
    while (!bytes.empty()) {
        const std::size_t length = characterLength(bytes);
        const std::string_view next = length == 0 ? kReplacement : bytes.substr(0, length);
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

bool sameText(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

} // namespace usage
