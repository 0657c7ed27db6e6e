// What every kind of device has to do for its callers.
#include "device_rig.h"

#include "engine/device/caller_header.h"

#include <numeric>

namespace idpfwd {
namespace {

// Around what a kernel maps at most, with the header and with the counter, and the engine's limit.
TEST_F(DeviceTest, InputOfEverySizeReachesTheEngineAndComesBackWhole) {
    start();
    std::vector<std::uint8_t> input;
    for (const std::uint32_t size : {1U, 131028U, 131029U, 131068U, 131069U, kMaxInput}) {
        input.resize(size);
        std::iota(input.begin(), input.end(), static_cast<std::uint8_t>(size));
        out_.assign(size + 1, 0xEE);
        forward_ioctl asked = request(input);
        EXPECT_EQ(call(&asked), 0) << size;
        EXPECT_EQ(used_, size);
        EXPECT_TRUE(std::equal(input.begin(), input.end(), out_.begin())) << size;
        EXPECT_EQ(out_.back(), 0xEE) << size;
    }
    input.push_back(0);
    forward_ioctl asked = request(input);
    EXPECT_EQ(call(&asked), EINVAL);
    EXPECT_EQ(used_, kMaxInput) << "untouched by a failure";
}

TEST_F(DeviceTest, BadAddressesFailAndTheEngineGoesOn) {
    start();
    auto *const nobodys = reinterpret_cast<void *>(std::uintptr_t{0x1000});
    std::vector<std::uint8_t> input(100, 7);
    forward_ioctl good = request(input);
    forward_ioctl badOut = good, badUsed = good, badInput = good;
    badOut.out = nobodys;
    badUsed.out_used_len = static_cast<std::uint32_t *>(nobodys);
    badInput.in_raw = nobodys;
    for (auto *bad : {static_cast<forward_ioctl *>(nobodys), &badOut, &badUsed, &badInput})
        EXPECT_EQ(call(bad), EFAULT) << bad;
    good.out_len = 37;
    good.out_used_len = nullptr;
    out_.assign(100, 0xEE);
    EXPECT_EQ(call(&good), 0);
    EXPECT_EQ(out_[36], 7);
    EXPECT_EQ(out_[37], 0xEE) << "nothing beyond the capacity";
}

TEST_F(DeviceTest, ManyThreadsEachGetTheirOwnAnswer) {
    start();
    std::vector<std::jthread> threads;
    for (std::uint8_t thread = 0; thread < 8; ++thread)
        threads.emplace_back([this, thread] {
            for (int i = 0; i < 25; ++i) {
                std::vector<std::uint8_t> input(5000, thread), output(5000);
                forward_ioctl asked = request(input);
                asked.out = output.data();
                asked.out_used_len = nullptr;
                EXPECT_EQ(call(&asked), 0);
                EXPECT_EQ(output, input);
            }
        });
}

} // namespace
} // namespace idpfwd
