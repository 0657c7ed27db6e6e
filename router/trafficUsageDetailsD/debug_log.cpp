#include "trafficUsageDetailsD/debug_log.h"

#include "platform/nvram.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kLogTextSize = 4096;

// The character behind one conversion: position, flags, width, precision, length and the letter.
const char *skipConversion(const char *c) {
    c += strspn(c, "0123456789$*.-+ #'hlqjztL");
    return *c == '\0' ? c : c + 1;
}

// Deliberate: the log interprets percent signs a second time. No argument is ever read, so "%s" or
// "%n" in an application's name can do no harm.
void printAsFormat(const char *text) {
    while (*text != '\0') {
        if (*text != '%') {
            const std::size_t plain = strcspn(text, "%");
            fwrite(text, 1, plain, stdout);
            text += plain;
        } else if (text[1] == '%') {
            fputc('%', stdout);
            text += 2;
        } else {
            text = skipConversion(text + 1);
        }
    }
}

} // namespace

void tud_dbg(const char *format, ...) {
    if (kelpNvramConfig_match("tud_dbg", "1") != 1)
        return;
    char text[kLogTextSize] = "";
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printAsFormat(text);
}
