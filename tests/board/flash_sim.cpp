#include "board/flash_sim.h"

#include "support/fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rig {
namespace {

FlashSim *current;

int failWith(int error) {
    errno = error;
    return -1;
}

} // namespace

FlashSim::FlashSim(std::uint32_t eraseSize, std::uint32_t size)
    : eraseSize_(eraseSize), size_(size) {
    unlink(kFlashDevice);
    unlink(kFlashBlockDevice);
    storage_ = open(kFlashDevice, O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(link(kFlashDevice, kFlashBlockDevice), 0);
    load(kOldFlash);
    rig::onIoctl([this](int descriptor, unsigned long request, void *argument) {
        return owns(descriptor) ? onIoctl(request, argument) : failWith(ENOTTY);
    });
    current = this;
}

FlashSim::~FlashSim() {
    current = nullptr;
    rig::onIoctl(nullptr);
    close(storage_);
}

std::string FlashSim::contents() const {
    std::string bytes(kFlashSize, '\0');
    EXPECT_EQ(pread(storage_, bytes.data(), bytes.size(), 0), static_cast<long>(bytes.size()));
    return bytes;
}

void FlashSim::load(const std::string &contents) const {
    EXPECT_EQ(pwrite(storage_, contents.data(), contents.size(), 0),
              static_cast<long>(contents.size()));
}

bool FlashSim::owns(int descriptor) const {
    struct stat ours {};
    struct stat theirs {};
    return fstat(storage_, &ours) == 0 && fstat(descriptor, &theirs) == 0 &&
           ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

bool FlashSim::failsNow(const std::string &call) {
    calls_.push_back(call);
    errno = EIO;
    return static_cast<int>(calls_.size()) == fault_.call;
}

int FlashSim::onIoctl(unsigned long request, void *argument) {
    if (request == MEMGETINFO) {
        if (failsNow("info"))
            return -1;
        static_cast<mtd_info_user *>(argument)->size = size_;
        static_cast<mtd_info_user *>(argument)->erasesize = eraseSize_;
        return 0;
    }
    const auto &block = *static_cast<const erase_info_user *>(argument);
    if (request == MEMUNLOCK)
        return failsNow("unlock " + std::to_string(block.start)) ? -1 : 0;
    return request == MEMERASE ? erase(block.start, block.length) : failWith(ENOTTY);
}

int FlashSim::erase(std::uint32_t start, std::uint32_t length) {
    const bool fails = failsNow("erase " + std::to_string(start));
    if (length == 0 || length != eraseSize_ || start % length != 0 || length > size_ - start) {
        ADD_FAILURE() << "erase of " << length << " at " << start;
        return failWith(EINVAL);
    }
    const std::string blank(fails ? (fault_.halfDone ? length / 2 : 0) : length, '\xff');
    EXPECT_EQ(pwrite(storage_, blank.data(), blank.size(), start), static_cast<long>(blank.size()));
    return fails ? failWith(EIO) : 0;
}

ssize_t FlashSim::onWrite(int descriptor, const void *data, std::size_t size) {
    const bool fails = failsNow("write " + std::to_string(size));
    const std::size_t done = fails ? (fault_.halfDone ? size / 2 : 0) : size;
    // A write only clears bits: what it finds must be erased.
    const auto at = static_cast<std::size_t>(lseek(descriptor, 0, SEEK_CUR));
    EXPECT_TRUE(contents().substr(at, done) == std::string(done, '\xff')) << "write at " << at;
    const long written = syscall(SYS_write, descriptor, data, done);
    return fails && !fault_.halfDone ? failWith(EIO) : written;
}

bool FlashSim::readFails(std::size_t size) {
    return failsNow("read " + std::to_string(size));
}

} // namespace rig

extern "C" {

ssize_t write(int descriptor, const void *data, std::size_t size) {
    if (rig::current != nullptr && rig::current->owns(descriptor))
        return rig::current->onWrite(descriptor, data, size);
    return syscall(SYS_write, descriptor, data, size);
}

ssize_t read(int descriptor, void *data, std::size_t size) {
    if (rig::current != nullptr && rig::current->owns(descriptor) && rig::current->readFails(size))
        return -1;
    return syscall(SYS_read, descriptor, data, size);
}
}
