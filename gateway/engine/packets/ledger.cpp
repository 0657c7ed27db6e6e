#include "engine/packets/ledger.h"

#include "engine/packets/device_facts.h"

#include <algorithm>
#include <utility>

namespace idpfwd {
namespace {

bool sameRow(const Holding &a, const Holding &b) {
    return a.stay == b.stay && a.mac == b.mac;
}

} // namespace

Ledger::Ledger(Tables &tables, std::mutex *lock) : tables_(tables), lock_(lock) {
    counts_.reserve(kMostCounts);
}

std::unique_lock<std::mutex> Ledger::lockTables() const {
    return lock_ != nullptr ? std::unique_lock(*lock_) : std::unique_lock<std::mutex>();
}

// Whether the packet may say something of its sender that the last one did not.
bool Ledger::isNews(const Known &known, const Packet &packet) {
    switch (packet.version) {
    case 4:
        return packet.sourceAddress != known.ipv4 ||
               (packet.protocol == kProtocolUdp && packet.destinationPort == kDhcpServerPort);
    case 6:
        return packet.sourceAddress != known.ipv6;
    default:
        return true;
    }
}

void Ledger::touch(Known &known) {
    if (!known.touched)
        touched_.push_back(static_cast<std::size_t>(&known - known_.data()));
    known.touched = true;
}

std::uint64_t Ledger::see(const Mac &mac, unsigned evidence, const Packet *sent,
                          const Moment &now) {
    now_ = now;
    if (departures_ != tables_.departures())
        flush(now);
    const std::uint64_t number = macNumber(mac);
    Known &known = known_[spread(number) % kPlaces];
    if (known.mac != number || (known.evidence & evidence) != evidence ||
        (sent != nullptr && isNews(known, *sent)))
        lookUp(known, mac, evidence, sent);
    else
        touch(known);
    return known.mac == number ? known.stay : 0;
}

void Ledger::lookUp(Known &known, const Mac &mac, unsigned evidence, const Packet *sent) {
    const auto locked = lockTables();
    const std::uint64_t number = macNumber(mac);
    if (known.mac != number) {
        if (known.touched && known.mac != 0)
            tables_.seeUser(macOf(known.mac), now_);
        known = {.touched = known.touched};
    }
    devid_user_entry *user = tables_.seeUser(mac, now_, evidence);
    if (user == nullptr) {
        known = {.touched = known.touched};
        return;
    }
    known.mac = number;
    known.stay = tables_.stay(mac);
    known.evidence |= evidence;
    if (sent == nullptr)
        return;
    learn(*sent, *user, now_.seconds);
    if (sent->version != 0)
        (sent->version == 4 ? known.ipv4 : known.ipv6) = sent->sourceAddress;
}

void Ledger::count(const Holding &holding, const Application &application) {
    const std::uint64_t what = std::uint64_t{application.category} << 16 | application.id;
    const std::uint64_t who = macNumber(holding.mac) ^ holding.stay << 48;
    std::uint16_t &place = places_[spread(who ^ what << 20) % places_.size()];
    if (place != 0) {
        Count &known = counts_[place - 1u];
        if (known.application == application && sameRow(known.holding, holding)) {
            known.holding.traffic += holding.traffic;
            return;
        }
    }
    if (counts_.size() == kMostCounts)
        flush(now_);
    counts_.push_back({holding, application});
    place = static_cast<std::uint16_t>(counts_.size());
}

void Ledger::addCapped(std::uint64_t bytes) {
    const auto locked = lockTables();
    tables_.addCapped(bytes);
}

void Ledger::apply(const Count &count) {
    const auto &[mac, stay, traffic] = count.holding;
    if (stay == 0 || stay == tables_.stay(mac))
        tables_.addTraffic(mac, count.application.category, count.application.id, traffic, now_);
    else
        tables_.addForgotten(traffic);
}

void Ledger::flush(const Moment &now) {
    const auto locked = lockTables();
    for (const Count &count : counts_)
        apply(count);
    counts_.clear();
    places_.fill(0);
    now_ = now;
    for (const std::size_t place : touched_) {
        Known &known = known_[place];
        if (known.mac != 0)
            tables_.seeUser(macOf(known.mac), now_);
        known.touched = false;
    }
    touched_.clear();
    // Somebody has left: who is still there shows with the next packet.
    const std::uint64_t departures = tables_.departures();
    if (std::exchange(departures_, departures) != departures)
        std::ranges::fill(known_, Known{});
}

} // namespace idpfwd
