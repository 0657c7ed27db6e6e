// The CUSE device against a libfuse of the test's own, on machines without /dev/cuse.
#include "engine/device/device_cuse.h"

#include "dpi/usr_ioctl.h"
#include "echo_source.h"
#include "engine/device/caller_header.h"
#include "fake_cuse.h"
#include "own_dev.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sys/mman.h>

namespace idpfwd {
namespace {

class CuseLogicTest : public testing::Test {
  protected:
    void SetUp() override {
        if (const std::string refusal = ownDev(); !refusal.empty() || geteuid() != 0)
            GTEST_SKIP() << "needs root: " << refusal;
        std::filesystem::current_path("/tmp");
        std::ofstream{"/dev/cuse"};
    }

    void start() {
        device_ = openCuseDevice(error_);
        ASSERT_NE(device_, nullptr) << error_;
        turn(0);
        ASSERT_TRUE(device_->ready());
    }

    void turn(short events) {
        std::vector<pollfd> watched;
        device_->watch(watched);
        watched[0].revents = events;
        device_->serve(watched, server_);
    }

    int call(void *header, bool narrow) {
        return FakeCuse::ioctl(IDPFW_REQUEST(IDPFW_NR_VP), header, narrow,
                               [this] { turn(POLLIN); });
    }

    std::string error_;
    Echo source_;
    RequestServer server_{source_};
    std::unique_ptr<Device> device_;
};

// Addresses that fit into 32 bits, for callers of either width.
std::uint8_t *lowMemory(std::size_t size) {
    void *made = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS
#ifdef MAP_32BIT
                          | MAP_32BIT
#endif
                      ,
                      -1, 0);
    return static_cast<std::uint8_t *>(made);
}

template <typename Number>
void put(std::uint8_t *bytes, std::size_t offset, const Number &value) {
    memcpy(bytes + offset, &value, sizeof value);
}

TEST_F(CuseLogicTest, CallersOfBothWidthsAreAnsweredWhole) {
#ifdef EMULATOR
    GTEST_SKIP() << "the emulator does not place the caller's memory where the kernel looks for it";
#endif
    start();
    constexpr std::uint32_t kUsed = 100, kIn = 4096, kOut = 2 << 20, kAll = 4 << 20;
    std::uint8_t *memory = lowMemory(kAll);
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    for (const bool narrow : {false, true})
        for (const std::uint32_t size : {1U, 131028U, 131069U, kMaxInput}) {
            std::iota(memory + kIn, memory + kIn + size, static_cast<std::uint8_t>(size));
            memset(memory + kOut, 0xEE, size + 1);
            put(memory, 0, std::uint32_t{IDPFW_MAGIC});
            put(memory, 4, std::uint32_t{IDPFW_NR_VP | 2U << 24});
            if (narrow || sizeof(void *) == 4) {
                const auto base = static_cast<std::uint32_t>(address);
                const std::uint32_t fields[] = {base + kIn, size, base + kOut, base + kUsed, kOut};
                put(memory, 8, fields);
            } else {
                const std::uint64_t fields[] = {address + kIn, size, address + kOut,
                                                address + kUsed, kOut};
                put(memory, 8, fields);
            }
            EXPECT_EQ(call(memory, narrow), 0) << size;
            EXPECT_EQ(memcmp(memory + kIn, memory + kOut, size), 0) << size;
            EXPECT_EQ(memory[kOut + size], 0xEE) << size;
            EXPECT_EQ(memcmp(memory + kUsed, &size, sizeof size), 0) << size;
        }
    put(memory, 0, std::uint32_t{0});
    EXPECT_EQ(call(memory, true), EINVAL);
    munmap(memory, kAll);
}

TEST_F(CuseLogicTest, TheDeviceIsThereAsLongAsItsEngineAndItsKernel) {
    start();
    EXPECT_EQ(std::filesystem::current_path(), "/tmp") << "relative paths keep their meaning";
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("is there already"));
    FakeCuse::hangUp();
    turn(POLLIN);
    EXPECT_THAT(device_->failure(), testing::HasSubstr("taken /dev/idpfw away"));
    device_.reset();
    std::filesystem::remove("/dev/cuse");
    EXPECT_FALSE(cuseUsable());
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("--device socket"));
}

} // namespace
} // namespace idpfwd
