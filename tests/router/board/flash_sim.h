// A flash partition behind "/dev/mtd4" and "/dev/mtdblock4": what is erased is 0xFF, a write wants
// erased bytes, an erase wants a whole block. Every call can be made to fail.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rig {

constexpr const char *kFlashDevice = "/dev/mtd4";
constexpr std::uint32_t kFlashSize = 0x40000;
// What a new flash holds.
inline const std::string kOldFlash(kFlashSize, 'o');

// Answers ioctl, write and the closing read of the flash device while it lives; one at a time.
struct FlashSim {
    // The geometry is what MEMGETINFO tells, right or wrong.
    explicit FlashSim(std::uint32_t eraseSize, std::uint32_t size = kFlashSize,
                      const std::string &contents = kOldFlash);
    ~FlashSim();

    [[nodiscard]] static std::string contents();

    // The n-th call (1 is the first) fails with EIO and nothing done, a write that is to be half
    // done by a short count.
    std::size_t failingCall = 0;
    bool halfDone = false;
    bool forGood = false; // and all that follow, as when the power is gone

    // NOR: each block is locked until it is unlocked.
    bool locks = false;
    // NAND: a write is of whole pages, and a bad block is not to be erased.
    std::uint32_t pageSize = 1;
    std::optional<std::uint32_t> badBlock;

    // "info", "unlock <start>", "erase <start>", "write <size>", "read 10".
    std::vector<std::string> calls;
    std::uint32_t lastErase = 0; // where it started

    // For the interposed calls.
    int answer(int descriptor, unsigned long request, void *argument);
    ssize_t write(const void *data, std::size_t size);
    bool failsNow(const std::string &call); // notes it, too
    int device = -1;                        // of the last MEMGETINFO, which goes before every write

  private:
    int erase(std::uint32_t start, std::uint32_t length);

    std::set<std::uint32_t> unlocked_;
    std::uint32_t eraseSize_;
    std::uint32_t size_;
};

} // namespace rig
