#include "common/file.h"

#include <cstring>

inline namespace routerutil {

bool read_line(FILE *file, char *line, int size) {
    return fgets(line, size, file) != nullptr;
}

void strip_newline(char *line) {
    const std::size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[length - 1] = '\0';
}

} // namespace routerutil
