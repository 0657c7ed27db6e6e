// Fills a store with a made-up year of a household, the same one for every run: what pictures are
// taken of and answers are timed over.
#include "usage/store/store.h"
#include "usage/text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <numbers>
#include <random>

namespace usage {
namespace {

constexpr int kDays = 365;
constexpr Seconds kNewBefore = 3 * kDaySeconds; // the newest device came so long ago

struct MadeDevice {
    const char *name;
    double weight;   // of its traffic
    double evenings; // 1: in the evening only, 0: day and night
    int applications;
};
constexpr std::array<MadeDevice, 12> kDevices{{{"Living room TV", 9, 0.95, 3},
                                               {"Anna's laptop", 4, 0.6, 9},
                                               {"Ben's phone", 2, 0.5, 8},
                                               {"Work laptop", 3, 0.3, 7},
                                               {"Tablet", 1.5, 0.8, 5},
                                               {"Games console", 3.5, 0.9, 4},
                                               {"Kitchen radio", 0.4, 0.4, 2},
                                               {"Doorbell camera", 0.8, 0.0, 2},
                                               {"NAS", 1.2, 0.0, 3},
                                               {"Thermostat", 0.02, 0.0, 2},
                                               {"Printer", 0.05, 0.3, 2},
                                               {"Guest phone", 0.6, 0.7, 6}}};

struct MadeApplication {
    ApplicationName name;
    double down; // bytes in five busy minutes
    double up;
};
const std::array<MadeApplication, 12> kApplications{
    {{{.category = "Video", .name = "NetFlix"}, 9e7, 6e5},
     {{.category = "Media", .name = "YouTube"}, 6e7, 7e5},
     {{.category = "Web", .name = "TLS"}, 9e6, 9e5},
     {{.category = "Game", .name = "Steam"}, 3e7, 5e5},
     {{.category = "SocialNetwork", .name = "Instagram"}, 1.2e7, 8e5},
     {{.category = "VoIP", .name = "Zoom"}, 1.1e7, 9e6},
     {{.category = "Cloud", .name = "Dropbox"}, 4e6, 1.2e7},
     {{.category = "Music", .name = "Spotify"}, 4e6, 1e5},
     {{.category = "SoftwareUpdate", .name = "WindowsUpdate"}, 8e6, 1e5},
     {{.category = "Chat", .name = "WhatsApp"}, 9e5, 5e5},
     {{.category = "Network", .name = "DNS"}, 3e4, 2e4},
     {{.category = "Web", .name = "HTTP"}, 2e6, 1e5}}};

// How busy the hour is, from 0 to 1.
double activity(const MadeDevice &device, Seconds time) {
    const Seconds local = time + zoneOffset(time);
    const double hour = static_cast<double>(local % kDaySeconds) / kHourSeconds;
    const double evening = std::exp(-std::pow((hour - 20.5) / 2.6, 2));
    const double noon = 0.35 * std::exp(-std::pow((hour - 12.5) / 2.5, 2));
    const double season = 1 + 0.25 * std::cos(static_cast<double>(local) / (365.25 * kDaySeconds) *
                                              2 * std::numbers::pi);
    const bool weekend = (local / kDaySeconds + 4) % 7 % 6 == 0;
    return season * (weekend ? 1.4 : 1) *
           (device.evenings * (evening + noon) + (1 - device.evenings) * 0.35);
}

class Year {
  public:
    Year(const std::string &folder, Seconds end) : store_({.folder = folder}, present_), end_(end) {
        present_.lastSample = end;
        for (std::size_t at = 0; at < kDevices.size(); ++at)
            addDevice(at);
    }

    void write() {
        const Seconds first = periodAt(Level::kSlot, end_ - kDays * kDaySeconds).from;
        Seconds day = periodAt(Level::kDay, first).to;
        for (Seconds slot = first; slot < end_; slot += kSlotSeconds) {
            if (slot >= day) {
                commit(slot);
                day = periodAt(Level::kDay, slot).to;
            }
            fill(slot);
        }
        commit(end_);
    }

  private:
    void addDevice(std::size_t at) {
        const Mac mac{2, 0, 0x5e, 0, 0, static_cast<std::uint8_t>(0x11 + at)};
        Device &device = present_.directory.device(mac);
        device.hostName = kDevices[at].name;
        const bool newest = at + 1 == kDevices.size();
        device.firstSeen = newest ? end_ - kNewBefore : end_ - kDays * kDaySeconds;
        device.lastSeen = end_;
        ids_[at] = device.id;
    }

    double chance() { return static_cast<double>(random_() >> 11U) * 0x1p-53; }

    void fill(Seconds slot) {
        for (std::size_t at = 0; at < kDevices.size(); ++at) {
            const MadeDevice &device = kDevices[at];
            const double busy = activity(device, slot);
            for (int nth = 0; nth < device.applications; ++nth) {
                const auto &made = kApplications[(at * 5 + static_cast<std::size_t>(nth) * 7) % 12];
                const double draw = chance();
                const double amount = chance();
                const bool there = at + 1 < kDevices.size() || slot >= end_ - kNewBefore;
                if (!there || draw > 0.45 * busy)
                    continue;
                const double part = device.weight * amount * amount;
                present_.slots[slot][{ids_[at], present_.directory.application(made.name)}] = {
                    static_cast<std::uint64_t>(made.down * part),
                    static_cast<std::uint64_t>(made.up * part)};
            }
        }
    }

    void commit(Seconds now) {
        present_.lastSample = now;
        store_.commit(present_);
    }

    Present present_;
    Store store_;
    Seconds end_;
    std::array<DeviceId, kDevices.size()> ids_{};
    std::mt19937_64 random_{20260101};
};

} // namespace
} // namespace usage

int main(int argc, char **argv) {
    if (argc != 3) {
        std::cerr << "usage: usage_year FOLDER END (seconds since the epoch)\n";
        return 2;
    }
    usage::Seconds end = 0;
    std::from_chars(argv[2], argv[2] + strlen(argv[2]), end);
    try {
        std::filesystem::create_directories(argv[1]);
        usage::Year(argv[1], end).write();
    } catch (const std::exception &error) {
        std::cerr << "usage_year: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
