// Comparison of two firmware images with a log of the differences.
#include "common/file.h"
#include "sysutil/firmware_update.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace {

constexpr const char *kConsole = "/dev/console";
constexpr const char *kLog = "/tmp/dbg_log";
constexpr std::size_t kChunk = 16384;

// To the console and to the log; one that cannot be opened is skipped.
[[gnu::format(printf, 1, 2)]] void announce(const char *format, ...) {
    const File outputs[] = {File(fopen(kConsole, "w")), File(fopen(kLog, "a+"))};
    for (const File &output : outputs) {
        if (!output)
            continue;
        va_list arguments;
        va_start(arguments, format);
        vfprintf(output.get(), format, arguments);
        va_end(arguments);
    }
}

// False when the file cannot be examined.
bool size_of(const char *path, long long &size) {
    struct stat facts {};
    if (stat(path, &facts) != 0)
        return false;
    size = facts.st_size;
    return true;
}

struct Image {
    const char *path;
    FILE *file;
    unsigned char chunk[kChunk];
};

// What cannot be read any more counts as 0xFF, so that an image cut short meanwhile differs.
void read_chunk(Image &image, std::size_t length) {
    const std::size_t got = fread(image.chunk, 1, length, image.file);
    memset(image.chunk + got, 0xFF, length - got);
}

void log_byte(FILE *log, const Image &image, std::size_t at) {
    fprintf(log, "\t%s:\t0x%02X\t%c\n", image.path, image.chunk[at], image.chunk[at]);
}

long long compare_chunks(const Image &a, const Image &b, long long position, std::size_t length,
                         FILE *log) {
    long long differences = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (a.chunk[i] == b.chunk[i])
            continue;
        ++differences;
        if (log == nullptr)
            continue;
        fprintf(log, "Difference at 0x%04llX.\n", static_cast<unsigned long long>(position) + i);
        log_byte(log, a, i);
        log_byte(log, b, i);
    }
    return differences;
}

long long count_differences(Image &a, Image &b, long long size) {
    const File log(fopen(kLog, "a+"));
    long long differences = 0;
    for (long long position = 0; position < size; position += kChunk) {
        const auto length = static_cast<std::size_t>(std::min<long long>(kChunk, size - position));
        read_chunk(a, length);
        read_chunk(b, length);
        if (memcmp(a.chunk, b.chunk, length) != 0)
            differences += compare_chunks(a, b, position, length, log.get());
    }
    return differences;
}

File open_image(const char *path) {
    File file(fopen(path, "rb"));
    if (!file)
        announce("\nError in opening file %s\r\n", path);
    return file;
}

} // namespace

// 0 for files that cannot be read and 1 for sizes that differ: callers tell them by the log.
int compare_two_binary_files(const char *path_a, const char *path_b) {
    announce("\n%s: %s vs %s\r\n", __func__, path_a, path_b);
    long long size = 0;
    long long size_b = 0;
    if (!size_of(path_a, size) || !size_of(path_b, size_b)) {
        announce("Stat file error in file %s, %s\r\n", path_a, path_b);
        return 0;
    }
    if (size != size_b) {
        announce("\nFile Compare Result: file size different %lld/%lld\n\n", size, size_b);
        return 1;
    }
    const File file_a = open_image(path_a);
    if (!file_a)
        return 0;
    const File file_b = open_image(path_b);
    if (!file_b)
        return 0;
    announce("File size = %lld\n", size);
    Image a{path_a, file_a.get(), {}};
    Image b{path_b, file_b.get(), {}};
    const long long differences = count_differences(a, b, size);
    announce("\nCount of diff= %lld\n\n", differences);
    return static_cast<int>(std::min<long long>(differences, std::numeric_limits<int>::max()));
}
