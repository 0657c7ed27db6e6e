// An object of its own: a program may bring its own fmtValloc.
#include "common/quill_util.h"

#include "common/text.h"

#include <cstdio>
#include <cstdlib>

int fmtValloc(char **out, int limit, const char *format, va_list args) {
    *out = nullptr;
    va_list measured;
    va_copy(measured, args);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0 || limit < 1)
        return length;
    const auto size = static_cast<std::size_t>(length < limit ? length + 1 : limit);
    *out = static_cast<char *>(malloc(size));
    if (*out != nullptr)
        format_text_list(*out, size, format, args);
    return length;
}
