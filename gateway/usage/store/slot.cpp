#include "usage/store/slot.h"

#include <algorithm>

namespace usage {
namespace {

constexpr std::uint8_t kBaselineVersion = 1;

} // namespace

Packed packTraffic(const Traffic &traffic) {
    Packer into;
    into.byte(kTrafficVersion);
    std::map<DeviceId, std::uint64_t> entries;
    for (const auto &[pair, bytes] : traffic)
        ++entries[pair.device];
    into.number(entries.size());
    auto entry = traffic.begin();
    DeviceId lastDevice = 0;
    for (const auto &[device, count] : entries) {
        into.number(device - lastDevice);
        into.number(count);
        lastDevice = device;
        ApplicationId lastApplication = 0;
        for (std::uint64_t i = 0; i < count; ++i, ++entry) {
            into.number(entry->first.application - lastApplication);
            into.number(entry->second.down);
            into.number(entry->second.up);
            lastApplication = entry->first.application;
        }
    }
    return into.finish();
}

std::optional<Traffic> unpackTraffic(PackedView packed) {
    Traffic traffic;
    const auto keep = [&](Pair pair, const Bytes &bytes) {
        traffic.emplace_hint(traffic.end(), pair, bytes);
    };
    if (!visitTraffic(packed, keep))
        return std::nullopt;
    return traffic;
}

Packed packBaseline(const Baseline &baseline) {
    Packer into;
    into.byte(kBaselineVersion);
    into.number(baseline.life);
    into.number(baseline.stays.size());
    for (const auto &[stay, kept] : baseline.stays) {
        into.bytes(stay.mac);
        into.number(stay.created);
        into.number(static_cast<std::uint64_t>(kept.seen));
        into.number(kept.counters.size());
        for (const auto &[ids, bytes] : kept.counters) {
            into.byte(ids.category);
            into.number(ids.application);
            into.number(bytes.down);
            into.number(bytes.up);
        }
    }
    return into.finish();
}

std::optional<Baseline> unpackBaseline(PackedView packed) {
    Unpacker from(packed);
    Baseline baseline;
    if (from.byte() != kBaselineVersion)
        return std::nullopt;
    baseline.life = from.number();
    for (std::uint64_t stays = from.number(); stays > 0 && from.good(); --stays) {
        Stay stay;
        from.bytes(stay.mac);
        stay.created = from.number32();
        Baseline::StayCounters kept;
        kept.seen = static_cast<Seconds>(from.number() & INT64_MAX);
        for (std::uint64_t counters = from.number(); counters > 0 && from.good(); --counters) {
            EngineIds ids;
            ids.category = from.byte();
            ids.application = static_cast<std::uint16_t>(from.number());
            Bytes &bytes = kept.counters[ids];
            bytes.down = from.number();
            bytes.up = from.number();
        }
        baseline.stays.emplace(stay, std::move(kept));
    }
    if (!from.good() || !from.atEnd())
        return std::nullopt;
    return baseline;
}

} // namespace usage
