#include "engine/refused_devices.h"

#include <algorithm>
#include <ranges>

namespace idpfwd {
namespace {

bool taken(const RefusedDevice &place) {
    return place.mac != Mac{};
}

} // namespace

std::size_t RefusedDevices::firstOfSet(const Mac &mac) const {
    return spread(macNumber(mac)) % kSets * kWays;
}

RefusedDevice *RefusedDevices::find(const Mac &mac) {
    if (known_ == 0)
        return nullptr;
    const auto set = std::span(places_).subspan(firstOfSet(mac), kWays);
    const auto found = std::ranges::find(set, mac, &RefusedDevice::mac);
    return found != set.end() ? &*found : nullptr;
}

RefusedDevice &RefusedDevices::see(const Mac &mac, std::uint64_t milliseconds, bool &newcomer) {
    RefusedDevice *device = find(mac);
    newcomer = device == nullptr;
    if (newcomer) {
        places_.resize(kSets * kWays);
        const auto set = std::span(places_).subspan(firstOfSet(mac), kWays);
        device = &*std::ranges::min_element(set, {}, [](const RefusedDevice &place) {
            return std::pair(taken(place), place.seen);
        });
        known_ += taken(*device) ? 0 : 1;
        *device = {.mac = mac};
    }
    device->seen = milliseconds;
    return *device;
}

void RefusedDevices::erase(const Mac &mac) {
    if (RefusedDevice *device = find(mac)) {
        *device = {};
        known_--;
    }
}

void RefusedDevices::clear() {
    places_.clear();
    known_ = 0;
}

void RefusedDevices::forgetBefore(std::uint64_t milliseconds) {
    if (known_ == 0)
        return;
    for (RefusedDevice &place : places_) {
        if (taken(place) && place.seen < milliseconds) {
            place = {};
            known_--;
        }
    }
}

std::vector<RefusedDevice> RefusedDevices::latest(std::size_t most) const {
    std::vector<RefusedDevice> list;
    std::ranges::copy_if(places_, std::back_inserter(list), taken);
    const std::size_t count = std::min(most, list.size());
    std::ranges::partial_sort(list, list.begin() + static_cast<std::ptrdiff_t>(count),
                              std::ranges::greater{}, &RefusedDevice::seen);
    list.resize(count);
    return list;
}

} // namespace idpfwd
