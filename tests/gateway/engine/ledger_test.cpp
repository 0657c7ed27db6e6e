#include "engine/packets/ledger.h"

#include <gtest/gtest.h>

namespace idpfwd {
namespace {

TEST(Ledger, ADeviceThatWasForgottenIsSeenAnew) {
    Tables tables;
    Ledger ledger(tables);
    const Mac mac{2, 0, 0, 0, 0, 1};
    const Moment first{.seconds = 1, .milliseconds = 1000};
    const Moment later{.seconds = 500, .milliseconds = 500'000};
    const std::uint64_t stay = ledger.see(mac, 0, nullptr, first);
    ledger.flush(first);
    EXPECT_EQ(ledger.see(mac, 0, nullptr, first), stay);
    tables.forgetUnseen(later, 100);
    ledger.flush(later);
    EXPECT_NE(ledger.see(mac, 0, nullptr, later), stay);
    EXPECT_EQ(ledger.see(mac, 0, nullptr, later), tables.stay(mac));
}

TEST(Ledger, EveryPairOfDeviceAndApplicationKeepsItsOwnSum) {
    Tables tables;
    Ledger ledger(tables);
    const Moment now{.seconds = 1, .milliseconds = 1000};
    for (std::uint32_t times = 0; times < 2; ++times)
        for (std::uint32_t i = 0; i < 60 * 40; ++i) {
            const Mac mac{2, 0, 0, 0, 0, static_cast<std::uint8_t>(i % 60)};
            ledger.count({mac, ledger.see(mac, 0, nullptr, now), {1 + i, 0, 1, 0}},
                         {1, static_cast<std::uint16_t>(i / 60)});
        }
    ledger.flush(now);
    ASSERT_EQ(tables.rows().size(), 60U * 40);
    for (const devid_app_rate_entry &row : tables.rows()) {
        const devid_user_entry &user = tables.users()[row.uid - 1U];
        EXPECT_EQ(row.down_accl_byte, 2 * (1 + user.mac[5] + 60U * row.app_id));
    }
}

// A neighbour can choose addresses that share a place in what is known, here and of the refused.
TEST(Ledger, AFullTableRefusesEachDeviceOnceAndNobodyElse) {
    Tables tables;
    Ledger ledger(tables);
    const Moment now{.seconds = 1, .milliseconds = 1000};
    std::vector<Mac> sharing;
    for (std::uint64_t number = 2; sharing.size() < 6; number += 256) // six octets of a device
        if (spread(number) % 4096 == 0)
            sharing.push_back(macOf(number));
    for (int times = 0; times < 2; ++times)
        ledger.see(sharing[0], kHasEarned, nullptr, now);
    for (std::uint8_t i = 1; i < kMaxUsers; ++i)
        tables.seeUser({6, 0, 0, 0, 0, i}, now, kHasEarned);
    for (std::size_t i = 1; i < sharing.size(); ++i)
        ledger.see(sharing[i], kHasSent, nullptr, now);
    EXPECT_EQ(tables.overflow().users, sharing.size() - 1);
}

} // namespace
} // namespace idpfwd
