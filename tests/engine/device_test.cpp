// What every kind of device has to do for its callers.
#include "device_rig.h"

#include <numeric>

namespace idpfwd {
namespace {

// An address that belongs to nobody.
void *badAddress() {
    return reinterpret_cast<void *>(std::uintptr_t{0x1000});
}

TEST_F(DeviceTest, TablesArriveWholeWithTheirLength) {
    devid_user_entry user{};
    user.uid = 9;
    devid_app_rate_entry row{};
    row.uid = 7;
    source_.tables.replace(std::vector(63, user), std::vector(32256, row));
    start();
    forward_ioctl users = header(IDPFW_NR_USER, 1);
    EXPECT_EQ(call(&users, IDPFW_NR_USER), 0);
    EXPECT_EQ(used_, 63U * 90U);
    EXPECT_EQ(out_[62 * 90], 9);
    forward_ioctl rows = header(IDPFW_NR_APP, 1);
    EXPECT_EQ(call(&rows, IDPFW_NR_APP), 0);
    EXPECT_EQ(used_, 32256U * 36U);
    EXPECT_EQ(out_[32255 * 36], 7);

    rows.out_len = 37;
    rows.out_used_len = nullptr;
    out_.assign(out_.size(), 0xEE);
    EXPECT_EQ(call(&rows, IDPFW_NR_APP), 0);
    EXPECT_EQ(out_[36], 7);
    EXPECT_EQ(out_[37], 0xEE) << "nothing beyond the capacity";
}

TEST_F(DeviceTest, InputReachesTheEngineUpToItsLimit) {
    start();
    std::vector<std::uint8_t> input(kMaxInput);
    std::iota(input.begin(), input.end(), 0);
    forward_ioctl asked = withInput(input);
    EXPECT_EQ(call(&asked, IDPFW_NR_VP), 0);
    EXPECT_EQ(used_, kMaxInput);
    EXPECT_TRUE(std::equal(input.begin(), input.end(), out_.begin()));
    input.push_back(0);
    asked = withInput(input);
    EXPECT_EQ(call(&asked, IDPFW_NR_VP), EINVAL);
}

// Around what a kernel maps at most, with the header and with the counter.
TEST_F(DeviceTest, EverySizeAroundTheLimitsArrivesWhole) {
    start();
    for (const std::size_t size :
         {1, 4096, 131008, 131009, 131028, 131029, 131068, 131069, 131073}) {
        std::vector<std::uint8_t> input(size);
        std::iota(input.begin(), input.end(), static_cast<std::uint8_t>(size));
        out_.assign(size + 1, 0xEE);
        forward_ioctl asked = withInput(input);
        EXPECT_EQ(call(&asked, IDPFW_NR_VP), 0) << size;
        EXPECT_EQ(used_, size);
        EXPECT_TRUE(std::equal(input.begin(), input.end(), out_.begin())) << size;
        EXPECT_EQ(out_.back(), 0xEE) << size;
    }
}

TEST_F(DeviceTest, FailuresCarryTheirErrnoAndTouchNothing) {
    start();
    used_ = 77;
    forward_ioctl asked = header(99, 1);
    EXPECT_EQ(call(&asked, 99), ENOTTY);
    asked = header(IDPFW_NR_USER, 1);
    asked.magic = 0;
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), EINVAL);
    EXPECT_EQ(used_, 77U);
}

TEST_F(DeviceTest, BadAddressesFailAndTheEngineGoesOn) {
    source_.tables.seeUser({1, 2, 3, 4, 5, 6}, {});
    start();
    std::vector<std::uint8_t> input(100);
    forward_ioctl good = header(IDPFW_NR_USER, 1);
    forward_ioctl badOut = good, badUsed = good, badInput = withInput(input);
    badOut.out = badAddress();
    badUsed.out_used_len = static_cast<std::uint32_t *>(badAddress());
    badInput.in_raw = badAddress();
    EXPECT_EQ(call(nullptr, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(static_cast<forward_ioctl *>(badAddress()), IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badOut, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badUsed, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badInput, IDPFW_NR_VP), EFAULT);
    EXPECT_EQ(call(&good, IDPFW_NR_USER), 0);
}

TEST_F(DeviceTest, ManyThreadsEachGetTheirOwnAnswer) {
    start();
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::vector<std::uint8_t> input(5000, static_cast<std::uint8_t>(t)), output(5000);
            forward_ioctl asked = withInput(input);
            asked.out = output.data();
            asked.out_len = 5000;
            asked.out_used_len = nullptr;
            for (int i = 0; i < 25; ++i) {
                if (call(&asked, IDPFW_NR_VP) == 0 && output == input)
                    ++right;
                output.assign(5000, 0xFF);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 8 * 25);
}

} // namespace
} // namespace idpfwd
