#include "common/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <strings.h>

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
