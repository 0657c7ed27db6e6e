// A flash partition behind "/dev/mtd4" and "/dev/mtdblock4": what is erased is 0xFF, a write wants
// erased bytes, an erase wants a whole block. Every call can be made to fail.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rig {

constexpr const char *kFlashDevice = "/dev/mtd4";
constexpr const char *kFlashBlockDevice = "/dev/mtdblock4";
constexpr std::uint32_t kFlashSize = 0x80000;
// What a new flash holds.
inline const std::string kOldFlash(kFlashSize, 'o');

// The n-th call on the flash device (1 is the first) fails: with EIO and nothing done, or after
// half of its work, which a write tells by a short count.
struct FlashFault {
    int call = 0;
    bool halfDone = false;
};

// Answers ioctl, write and read of the flash device while it lives; one at a time.
class FlashSim {
  public:
    // The geometry is what MEMGETINFO tells, right or wrong.
    explicit FlashSim(std::uint32_t eraseSize, std::uint32_t size = kFlashSize);
    ~FlashSim();
    FlashSim(const FlashSim &) = delete;
    FlashSim &operator=(const FlashSim &) = delete;

    [[nodiscard]] std::string contents() const;
    void load(const std::string &contents) const;
    void fail(FlashFault fault) { fault_ = fault; }

    // The calls since the last forget(): "info", "unlock <start>", "erase <start>",
    // "write <size>", "read <size>".
    [[nodiscard]] const std::vector<std::string> &calls() const { return calls_; }
    void forget() { calls_.clear(); }

    // For the interposed calls.
    [[nodiscard]] bool owns(int descriptor) const;
    ssize_t onWrite(int descriptor, const void *data, std::size_t size);
    bool readFails(std::size_t size);

  private:
    int onIoctl(unsigned long request, void *argument);
    int erase(std::uint32_t start, std::uint32_t length);
    bool failsNow(const std::string &call);

    std::uint32_t eraseSize_;
    std::uint32_t size_;
    int storage_; // reached by pread and pwrite, which are not interposed
    FlashFault fault_;
    std::vector<std::string> calls_;
};

} // namespace rig
