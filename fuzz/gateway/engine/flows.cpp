// Conversations: every byte of every frame is counted once, whatever is in the frames, and what is
// remembered keeps to its budget. The input is frames, each behind its length (two bytes) and the
// time since the one before it (one byte, in units of 100 ms).
#include "fuzz/target.h"

#include "engine/packets/packet_accounting.h"

#include <memory>

namespace {

using namespace idpfwd;

constexpr std::size_t kBudget = std::size_t{32} << 10;
constexpr Mac kRouter = {2, 0, 0, 0, 0, 1};

// Made once: that takes longer than thousands of inputs.
Classifier &classifier() {
    static const std::unique_ptr<Classifier> made = Classifier::create();
    return *made;
}

std::uint64_t counted(const Tables &tables) {
    std::uint64_t sum = tables.overflow().bytes + tables.forgotten().bytes;
    for (const devid_app_rate_entry &row : tables.rows())
        sum += row.up_accl_byte + row.down_accl_byte;
    return sum;
}

bool concerns(const Mac &mac) {
    return isDevice(mac) && mac != kRouter;
}

// What the frame is to be counted as: its length for each of the two devices.
std::uint64_t expected(Packet::Bytes frame) {
    Packet packet;
    if (!parseFrame(frame, packet))
        return 0;
    return frame.size() *
           ((concerns(packet.source) ? 1U : 0U) + (concerns(packet.destination) ? 1U : 0U));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    Tables tables;
    PacketAccounting accounting(tables, classifier(), kRouter, kBudget);
    Moment now{1000, 1'000'000};
    std::uint64_t sum = 0;
    Packet::Bytes rest(data, size);
    while (rest.size() > 3) {
        const std::size_t length = std::min<std::size_t>(rest[0] << 8 | rest[1], rest.size() - 3);
        now.milliseconds += rest[2] * 100U;
        now.seconds = static_cast<std::uint32_t>(now.milliseconds / 1000);
        const Packet::Bytes frame = rest.subspan(3, length);
        sum += expected(frame);
        accounting.add(frame, static_cast<std::uint32_t>(length), now);
        accounting.advance(now);
        FUZZ_REQUIRE(accounting.flows().memory() <= kBudget);
        rest = rest.subspan(3 + length);
    }
    accounting.finish();
    FUZZ_REQUIRE(counted(tables) == sum);
    return 0;
}
