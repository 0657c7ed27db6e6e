#include "common/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <strings.h>

inline namespace routerutil {

void copy_text(char *destination, std::size_t size, const char *source) {
    if (size == 0)
        return;
    const std::size_t length = strnlen(source, size - 1);
    memcpy(destination, source, length);
    destination[length] = '\0';
}

bool format_text(char *destination, std::size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool fitted = format_text_list(destination, size, format, arguments);
    va_end(arguments);
    return fitted;
}

bool format_text_list(char *destination, std::size_t size, const char *format, va_list arguments) {
    const int length = vsnprintf(destination, size, format, arguments);
    if (length < 0 && size > 0)
        destination[0] = '\0';
    return length >= 0 && static_cast<std::size_t>(length) < size;
}

namespace {

constexpr std::size_t kNoCharacter = 0;
constexpr std::size_t kCutCharacter = 5; // none has as many bytes

std::size_t utf8_length(const unsigned char *c) {
    if (*c < 0x80)
        return 1;
    if (*c < 0xC2 || *c > 0xF4)
        return kNoCharacter;
    const std::size_t length = *c >= 0xF0 ? 4 : *c >= 0xE0 ? 3 : 2;
    // No overlong form, no surrogate, nothing above U+10FFFF.
    unsigned char lowest = *c == 0xE0 ? 0xA0 : *c == 0xF0 ? 0x90 : 0x80;
    unsigned char highest = *c == 0xED ? 0x9F : *c == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t i = 1; i < length; ++i) {
        if (c[i] == '\0')
            return kCutCharacter;
        if (c[i] < lowest || c[i] > highest)
            return kNoCharacter;
        lowest = 0x80;
        highest = 0xBF;
    }
    return length;
}

} // namespace

void make_utf8(char *text) {
    while (*text != '\0') {
        const std::size_t length = utf8_length(reinterpret_cast<unsigned char *>(text));
        if (length == kCutCharacter) {
            *text = '\0';
            return;
        }
        if (length == kNoCharacter)
            *text = '?';
        text += length == kNoCharacter ? 1 : length;
    }
}

bool parse_mac(const char *text, unsigned char mac[6]) {
    unsigned int groups[6];
    if (sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x", &groups[0], &groups[1], &groups[2], &groups[3],
               &groups[4], &groups[5]) != 6)
        return false;
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<unsigned char>(groups[i]);
    return true;
}

int truncated_value(const char *text) {
    const double value = strtod(text, nullptr);
    // Written so that NaN fails it; both limits are exact in a double.
    const bool fits = value > std::numeric_limits<int>::min() - 1.0 &&
                      value < std::numeric_limits<int>::max() + 1.0;
    return fits ? static_cast<int>(value) : 0;
}

int decimal_value(const char *text) {
    if (text == nullptr)
        return 0;
    const long long value = strtoll(text, nullptr, 10); // saturates at its own, wider range
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

const char *stristr(const char *text, const char *part) {
    const std::size_t length = strlen(part);
    for (; strncasecmp(text, part, length) != 0; ++text) {
        if (*text == '\0')
            return nullptr;
    }
    return text;
}

} // namespace routerutil
