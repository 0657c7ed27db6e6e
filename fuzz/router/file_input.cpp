#include "fuzz/router/file_input.h"

#include <cerrno>
#include <cstdio>
#include <vector>

namespace {
bool active;
std::vector<uint8_t> content;
} // namespace

namespace fuzz {

FileInput::FileInput(const uint8_t *data, std::size_t size) {
    content.assign(data, data + size);
    content.push_back('\n'); // a stream over no memory at all cannot be opened
    active = true;
}

FileInput::~FileInput() {
    active = false;
}

} // namespace fuzz

extern "C" {
// The linker sends every fopen here, and hands the real one out under the other name.
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode);

FILE *__wrap_fopen(const char *path, const char *mode) {
    if (!active)
        return __real_fopen(path, mode);
    if (mode[0] == 'r')
        return fmemopen(content.data(), content.size(), "r");
    errno = EROFS;
    return nullptr;
}
}
