#include "engine/capture/reader.h"

#include <algorithm>
#include <ctime>

namespace idpfwd {

Moment presentMoment() {
    return {shownSeconds(static_cast<std::uint64_t>(time(nullptr))), steadyMilliseconds()};
}

std::unique_ptr<Reader> Reader::create(Tables &tables, std::size_t budget, std::mutex *lock) {
    std::unique_ptr<Classifier> classifier = Classifier::create();
    if (!classifier)
        return nullptr;
    return std::unique_ptr<Reader>(new Reader(tables, std::move(classifier), budget, lock));
}

void Reader::start(std::unique_ptr<Ring> ring, const std::string &interface,
                   const std::optional<Mac> &gateway) {
    ring_ = std::move(ring);
    followed_ = gateway ? "" : interface;
    looked_ = 0;
    accounting_.setGateway(gateway ? gateway : ownAddress(interface));
}

// A bridge may have another address whenever it gets or loses a port.
void Reader::followAddress() {
    constexpr std::uint64_t kLook = 1000;
    if (followed_.empty() || (looked_ != 0 && now_.milliseconds - looked_ < kLook))
        return;
    looked_ = now_.milliseconds;
    accounting_.setGateway(ownAddress(followed_));
}

bool Reader::work() {
    constexpr int kBatch = 512, kBatches = 8;
    const auto receive = [](u_char *self, const pcap_pkthdr *header, const u_char *bytes) {
        auto *reader = reinterpret_cast<Reader *>(self);
        reader->accounting_.add({bytes, header->caplen}, std::max(header->len, header->caplen),
                                reader->now_);
    };
    now_ = presentMoment();
    followAddress();
    int taken = kBatch;
    for (int batch = 0; batch < kBatches && taken == kBatch; batch++)
        taken = ring_->read(kBatch, receive, this);
    accounting_.advance(now_);
    return taken >= 0;
}

} // namespace idpfwd
