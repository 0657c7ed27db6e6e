#include "router/board/flash_sim.h"

#include "support/fixture.h"

#include <cerrno>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rig {

static FlashSim *current;

FlashSim::FlashSim(std::uint32_t eraseSize, std::uint32_t size, const std::string &contents)
    : eraseSize_(eraseSize), size_(size) {
    unlink("/dev/mtdblock4");
    writeFile(kFlashDevice, contents);
    EXPECT_EQ(link(kFlashDevice, "/dev/mtdblock4"), 0);
    onIoctl([this](auto... arguments) { return answer(arguments...); });
    current = this;
}

FlashSim::~FlashSim() {
    current = nullptr;
    onIoctl(nullptr);
}

std::string FlashSim::contents() {
    return readFile(kFlashDevice);
}

bool FlashSim::failsNow(const std::string &call) {
    calls.push_back(call);
    errno = EIO;
    return forGood ? failingCall != 0 && calls.size() >= failingCall : calls.size() == failingCall;
}

int FlashSim::answer(int descriptor, unsigned long request, void *argument) {
    device = descriptor;
    if (request == MEMGETINFO) {
        static_cast<mtd_info_user *>(argument)->size = size_;
        static_cast<mtd_info_user *>(argument)->erasesize = eraseSize_;
        return failsNow("info") ? -1 : 0;
    }
    const auto &block = *static_cast<const erase_info_user *>(argument);
    if (request == MEMUNLOCK) {
        if (failsNow("unlock " + std::to_string(block.start)))
            return -1;
        unlocked_.insert(block.start);
        return 0;
    }
    return request == MEMERASE ? erase(block.start, block.length) : -1;
}

int FlashSim::erase(std::uint32_t start, std::uint32_t length) {
    if (length == 0 || length != eraseSize_ || start % length != 0 || length > size_ - start) {
        ADD_FAILURE() << "erase of " << length << " at " << start;
        return -1;
    }
    lastErase = start;
    if (failsNow("erase " + std::to_string(start)) || start == badBlock ||
        (locks && !unlocked_.contains(start)))
        return -1;
    const std::string blank(length, '\xff');
    return pwrite(device, blank.data(), length, start) == static_cast<ssize_t>(length) ? 0 : -1;
}

ssize_t FlashSim::write(const void *data, std::size_t size) {
    const bool fails = failsNow("write " + std::to_string(size));
    if (size % pageSize != 0)
        errno = EINVAL;
    if ((fails && !halfDone) || size % pageSize != 0)
        return -1;
    const std::size_t done = fails ? size / 2 : size;
    // A write only clears bits: what it finds must be erased.
    const auto at = static_cast<std::size_t>(lseek(device, 0, SEEK_CUR));
    EXPECT_TRUE(contents().substr(at, done) == std::string(done, '\xff')) << "write at " << at;
    return syscall(SYS_write, device, data, done);
}

} // namespace rig

extern "C" ssize_t write(int descriptor, const void *data, std::size_t size) {
    if (rig::current != nullptr && rig::current->device == descriptor)
        return rig::current->write(data, size);
    return syscall(SYS_write, descriptor, data, size);
}

// The short read that ends a write.
extern "C" ssize_t read(int descriptor, void *data, std::size_t size) {
    if (size == 10 && rig::current != nullptr && rig::current->device == descriptor &&
        rig::current->failsNow("read 10"))
        return -1;
    return syscall(SYS_read, descriptor, data, size);
}
