#include "engine/packets/flow_keys.h"

#include <gtest/gtest.h>

#include <set>

namespace idpfwd {
namespace {

constexpr std::uint64_t kBuckets = 1024;

FlowKey scanned(std::uint32_t number) {
    FlowKey key{.vlan = 0, .version = 4, .protocol = 17, .ends = {}};
    key.ends[0].address[0] = number >> 16;
    key.ends[1].port = static_cast<std::uint16_t>(number);
    return key;
}

TEST(FlowKeys, ThatWereChosenToShareABucketDoNotShareItInAnotherTable) {
    const FlowHash known, hidden;
    std::set<std::uint64_t> spread;
    for (std::uint32_t number = 0; number < kBuckets; ++number)
        spread.insert(known(scanned(number)) % kBuckets);
    EXPECT_GT(spread.size(), kBuckets / 2) << "as by chance";

    spread.clear();
    std::size_t chosen = 0;
    for (std::uint32_t number = 0; chosen < 100; ++number) {
        if (known(scanned(number)) % kBuckets != 0)
            continue;
        ++chosen;
        spread.insert(hidden(scanned(number)) % kBuckets);
    }
    EXPECT_GT(spread.size(), chosen / 2);
}

} // namespace
} // namespace idpfwd
