#include "settings/store_file.h"

#include "common/file.h"
#include "settings/store.h"
#include "settings/store_check.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace store {
namespace {
constexpr const char *kDefaultDirectory = "/var/lib/router-nvram";
} // namespace

const char *directory() {
    const char *chosen = getenv("NVRAM_DIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : kDefaultDirectory;
}

int make_directory() {
    const char *const path = directory();
    char partial[PATH_MAX];
    const std::size_t length = strlen(path);
    if (length >= sizeof partial)
        return ENAMETOOLONG;
    for (std::size_t i = 1; i <= length; ++i) {
        if (path[i] != '/' && path[i] != '\0')
            continue;
        memcpy(partial, path, i);
        partial[i] = '\0';
        if (mkdir(partial, 0755) != 0 && errno != EEXIST)
            return errno;
    }
    return 0;
}

void fill_standard_descriptors() {
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor >= 0)
        close(descriptor);
}

int open_file(const char *name, int flags) {
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof path, "%s/%s", directory(), name);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return ::open(path, flags | O_CLOEXEC, 0600);
}

void drop_torn_beginning() {
    constexpr unsigned char kMagic[] = {0xDE, 0xC0, 0xEF, 0xBE};
    constexpr off_t kMagicAt = sizeof(std::size_t) + 8; // the header of a page goes before it
    unsigned char found[sizeof kMagic];
    const Descriptor data(open_file("data.mdb", O_RDWR));
    struct stat status {};
    if (!data || fstat(data.get(), &status) != 0 || status.st_size >= 2 * sysconf(_SC_PAGESIZE))
        return;
    if (pread(data.get(), found, sizeof found, kMagicAt) == sizeof found &&
        memcmp(found, kMagic, sizeof found) == 0)
        (void)!ftruncate(data.get(), 0);
}

int check_data() {
    const Descriptor data(open_file("data.mdb", O_RDONLY));
    if (!data)
        return errno == ENOENT ? 0 : errno;
    return check_file(data.get());
}

} // namespace store
