#include "board/mtd_util.h"

#include "common/file.h"
#include "common/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char kPartitionList[] = "/proc/mtd";
constexpr int kLineSize = 4096;
constexpr std::size_t kClosingRead = 10;
constexpr ssize_t kPieceSize = 4096;

// The partition that a line "mtd<N>: ..." is about.
std::optional<unsigned int> partition_number(const char *line) {
    constexpr char prefix[] = "mtd";
    constexpr std::size_t prefix_length = sizeof prefix - 1;
    if (strncmp(line, prefix, prefix_length) != 0)
        return std::nullopt;
    unsigned int number = 0;
    const char *end = line + strlen(line);
    const auto [after, error] = std::from_chars(line + prefix_length, end, number);
    if (error != std::errc{} || *after != ':')
        return std::nullopt;
    return number;
}

std::optional<unsigned int> find_partition(const char *name) {
    const File list(fopen(kPartitionList, "r"));
    // The empty name is part of every line: taken literally it would select the first partition,
    // which is the boot loader's.
    if (!list || *name == '\0')
        return std::nullopt;
    char line[kLineSize];
    while (read_line(list.get(), line, sizeof line)) {
        const auto number = partition_number(line);
        // Deliberate: the name may stand anywhere in the line.
        if (number && strstr(line, name) != nullptr)
            return number;
    }
    return std::nullopt;
}

// Prints the system's error and hands on its number.
int report(const char *name) {
    const int error = errno;
    perror(name);
    return error;
}

bool refuse(int error) {
    errno = error;
    return false;
}

// Whether the erase blocks that length bytes cover lie within the partition.
bool covers(const mtd_info_user &info, uint32_t length) {
    if (info.erasesize == 0)
        return false;
    const uint64_t blocks = (uint64_t{length} + info.erasesize - 1) / info.erasesize;
    return blocks * info.erasesize <= info.size;
}

bool erase_block(int device, const mtd_info_user &info, uint32_t start) {
    erase_info_user block{};
    block.start = start;
    block.length = info.erasesize;
    ioctl(device, MEMUNLOCK, &block); // fails on chips without locks: the erase tells what counts
    return ioctl(device, MEMERASE, &block) == 0;
}

bool write_chunk(int device, const unsigned char *data, uint32_t size) {
    const ssize_t written = write(device, data, size);
    if (written >= 0 && static_cast<std::size_t>(written) != size)
        return refuse(EIO);
    return written >= 0;
}

// A chunk that begins with data and is filled up with what erased flash holds.
Allocated<unsigned char> padded_chunk(const unsigned char *data, uint32_t length, uint32_t size) {
    Allocated<unsigned char> chunk(static_cast<unsigned char *>(malloc(size)));
    if (chunk) {
        memcpy(chunk.get(), data, length);
        memset(chunk.get() + length, 0xFF, size - length);
    }
    return chunk;
}

bool write_blocks(int device, const mtd_info_user &info, const unsigned char *buffer,
                  uint32_t length) {
    const uint32_t chunk = std::min(length, info.erasesize);
    const uint32_t rest = length % chunk;
    // Made before the first erase: flash must not be left half written for want of memory.
    Allocated<unsigned char> last;
    if (rest != 0) {
        last = padded_chunk(buffer + (length - rest), rest, chunk);
        if (!last)
            return refuse(ENOMEM);
    }
    for (uint32_t start = 0; start < length; start += chunk) {
        const unsigned char *data = length - start < chunk ? last.get() : buffer + start;
        if (!erase_block(device, info, start) || !write_chunk(device, data, chunk))
            return false;
    }
    return true;
}

bool write_partition(int device, const mtd_info_user &info, const unsigned char *buffer,
                     int length) {
    if (length == 0)
        return true;
    if (length < 0 || buffer == nullptr || !covers(info, static_cast<uint32_t>(length)))
        return refuse(EINVAL);
    return write_blocks(device, info, buffer, static_cast<uint32_t>(length));
}

// A page that can't be read would kill whoever touches it through a mapping: read as a file it is
// an error, and is then in memory for the mapping.
bool every_page_is_readable(int device) {
    char piece[kPieceSize];
    for (off_t at = 0; at < MTD_IMAGE_SIZE; at += kPieceSize) {
        const ssize_t got = pread(device, piece, sizeof piece, at);
        if (got != kPieceSize)
            return got < 0 ? false : refuse(EIO);
    }
    return true;
}

// The image is read as a whole from flash, not from pages that another program's open descriptor
// keeps: the kernel does not renew those when flash is written past the block device.
bool copy_image(int device, unsigned char *buffer) {
    // Past the end of a shorter device the mapping has no pages: touching them would be fatal.
    if (lseek(device, 0, SEEK_END) < MTD_IMAGE_SIZE)
        return refuse(EINVAL);
    posix_fadvise(device, 0, MTD_IMAGE_SIZE, POSIX_FADV_DONTNEED);
    if (!every_page_is_readable(device))
        return false;
    void *image = mmap(nullptr, MTD_IMAGE_SIZE, PROT_READ, MAP_SHARED, device, 0);
    if (image == MAP_FAILED)
        return false;
    memcpy(buffer, image, MTD_IMAGE_SIZE);
    munmap(image, MTD_IMAGE_SIZE);
    return true;
}

} // namespace

int mtd_open(const char *name, int flags) {
    if (name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const auto number = find_partition(name);
    if (!number)
        return open(name, flags);
    char device[32];
    format_text(device, sizeof device, "/dev/mtd%u", *number);
    return open(device, flags);
}

int mtd_erase(const char *name) {
    const Descriptor device(mtd_open(name, O_RDWR));
    if (!device)
        return report(name);
    mtd_info_user info{};
    if (ioctl(device.get(), MEMGETINFO, &info) != 0)
        return report(name);
    if (info.size == 0)
        return 0;
    if (!covers(info, info.size)) {
        errno = EINVAL;
        return report(name);
    }
    for (uint32_t start = 0; start < info.size; start += info.erasesize) {
        if (!erase_block(device.get(), info, start))
            return report(name);
    }
    return 0;
}

int mtd_write(const char *path, const unsigned char *buffer, int length) {
    if (path == nullptr)
        return -1;
    const Descriptor device(open(path, O_RDWR));
    mtd_info_user info{};
    if (!device || ioctl(device.get(), MEMGETINFO, &info) != 0) {
        perror(path);
        return -1;
    }
    const bool written = write_partition(device.get(), info, buffer, length);
    if (!written)
        perror(path);
    // Deliberate: a short read ends every write; neither its data nor its result matter.
    char unused[kClosingRead];
    [[maybe_unused]] const ssize_t ignored = read(device.get(), unused, sizeof unused);
    return written ? 0 : -1;
}

int read_mtd_data(unsigned char *buffer, const char *path) {
    if (buffer == nullptr || path == nullptr)
        return -1;
    const Descriptor device(open(path, O_RDONLY));
    if (!device) {
        perror("open");
        return -1;
    }
    if (!copy_image(device.get(), buffer)) {
        perror(path);
        return -1;
    }
    return 0;
}
