#include "engine/packets/packet_source.h"

#include "engine/packets/application_names.h"
#include "engine/packets/ndpi_classifier.h"
#include "engine/packets/packet_accounting.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <ifaddrs.h>
#include <limits>
#include <net/ethernet.h>
#include <netpacket/packet.h>
#include <pcap/pcap.h>

namespace idpfwd {
namespace {

constexpr int kPoll = 1000; // milliseconds between two looks at what has become idle

struct PcapCloser {
    void operator()(pcap_t *pcap) const { pcap_close(pcap); }
};
using Pcap = std::unique_ptr<pcap_t, PcapCloser>;

std::uint64_t steadyMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::uint32_t shownSeconds(std::uint64_t seconds) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(seconds, 1, most));
}

std::uint64_t packetMilliseconds(const pcap_pkthdr &header) {
    const auto seconds = std::max<std::int64_t>(header.ts.tv_sec, 0);
    const auto micros = std::max<std::int64_t>(header.ts.tv_usec, 0);
    return static_cast<std::uint64_t>(seconds) * 1000 + static_cast<std::uint64_t>(micros) / 1000;
}

// What both sources share: the accounting, the names, and the way to the end.
class PacketSource : public Source {
  public:
    PacketSource(Pcap pcap, const PacketOptions &options, std::unique_ptr<Classifier> classifier,
                 NameTable names, std::optional<Mac> gateway)
        : pcap_(std::move(pcap)), name_(options.name),
          checksGateway_(options.gatewayMac.has_value()), names_(std::move(names)),
          classifier_(std::move(classifier)),
          accounting_(tables, *classifier_, gateway, options.forgetSeconds) {}

    [[nodiscard]] bool finished() const override { return finished_; }

    [[nodiscard]] std::string categoryName(std::uint8_t cat_id) const override {
        return names_.category(cat_id);
    }

    [[nodiscard]] std::string applicationName(std::uint8_t cat_id,
                                              std::uint16_t app_id) const override {
        return names_.application({cat_id, app_id});
    }

  protected:
    void account(const pcap_pkthdr &header, const std::uint8_t *bytes, const Moment &now) {
        accounting_.add({bytes, header.caplen}, std::max(header.len, header.caplen), now);
    }

    // Says once that the address that was given for the router is in none of these many frames.
    void checkGateway(std::uint64_t frames) {
        if (!checksGateway_ || !accounting_.missesGateway(frames))
            return;
        checksGateway_ = false;
        fprintf(stderr,
                "idpfwd: %s: no frame has the gateway's MAC that was given, so the router may "
                "count as a client\n",
                name_.c_str());
    }

    void finish() {
        checkGateway(1);
        accounting_.finish();
        finished_ = true;
    }

    Pcap pcap_;
    std::string name_;
    bool checksGateway_;
    NameTable names_;
    std::unique_ptr<Classifier> classifier_;
    PacketAccounting accounting_;

  private:
    bool finished_ = false;
};

class LiveSource : public PacketSource {
  public:
    using PacketSource::PacketSource;

    [[nodiscard]] int descriptor() const override {
        return finished() ? -1 : pcap_get_selectable_fd(pcap_.get());
    }

    [[nodiscard]] int timeout() const override { return finished() ? -1 : kPoll; }

    void work() override {
        constexpr int kBatch = 512, kBatches = 8;
        if (finished())
            return;
        now_ = {shownSeconds(static_cast<std::uint64_t>(time(nullptr))), steadyMilliseconds()};
        int taken = kBatch;
        for (int batch = 0; batch < kBatches && taken == kBatch; batch++)
            taken = pcap_dispatch(pcap_.get(), kBatch, receive, reinterpret_cast<u_char *>(this));
        accounting_.advance(now_);
        if (taken < 0) {
            fprintf(stderr, "idpfwd: %s: %s; no more packets are read\n", name_.c_str(),
                    pcap_geterr(pcap_.get()));
            finish();
            return;
        }
        sayDrops();
    }

    [[nodiscard]] std::optional<std::uint64_t> captureDrops() const override {
        pcap_stat statistics{};
        if (pcap_stats(pcap_.get(), &statistics) != 0)
            return std::nullopt;
        return statistics.ps_drop;
    }

  private:
    static void receive(u_char *self, const pcap_pkthdr *header, const u_char *bytes) {
        auto *source = reinterpret_cast<LiveSource *>(self);
        source->account(*header, bytes, source->now_);
    }

    void sayDrops() {
        constexpr std::uint64_t kPause = 10'000;
        constexpr std::uint64_t kTelling = 1000; // frames of a LAN, the router's among them
        if (now_.milliseconds - lastLook_ < kPause)
            return;
        lastLook_ = now_.milliseconds;
        checkGateway(kTelling);
        const std::uint64_t dropped = captureDrops().value_or(drops_);
        if (dropped == drops_)
            return;
        fprintf(stderr, "idpfwd: %s: the kernel dropped %llu packets, they are not counted\n",
                name_.c_str(), static_cast<unsigned long long>(dropped - drops_));
        drops_ = dropped;
    }

    Moment now_;
    std::uint64_t lastLook_ = 0;
    std::uint64_t drops_ = 0;
};

// The packets' own times are the clock: the first one starts it, and at its own pace it runs on
// between packets.
class CaptureSource : public PacketSource {
  public:
    CaptureSource(Pcap pcap, const PacketOptions &options, std::unique_ptr<Classifier> classifier,
                  NameTable names)
        : PacketSource(std::move(pcap), options, std::move(classifier), std::move(names),
                       options.gatewayMac),
          fast_(options.fast) {}

    [[nodiscard]] int descriptor() const override { return -1; }

    [[nodiscard]] int timeout() const override {
        if (finished())
            return -1;
        if (fast_ || bytes_ == nullptr || pendingTime() <= due())
            return 0;
        return static_cast<int>(std::min<std::uint64_t>(pendingTime() - due(), kPoll));
    }

    void work() override {
        constexpr int kBatch = 2000;
        for (int count = 0; count < kBatch && !finished(); count++) {
            if (bytes_ == nullptr && !readNext())
                return;
            if (!fast_ && pendingTime() > due()) {
                moveClock(due());
                return;
            }
            moveClock(pendingTime());
            account(*header_, bytes_, moment());
            bytes_ = nullptr;
        }
    }

  private:
    bool readNext() {
        const int result = pcap_next_ex(pcap_.get(), &header_, &bytes_);
        if (result == 1) {
            if (packets_++ == 0) {
                started_ = steadyMilliseconds();
                clock_ = firstTime_ = packetMilliseconds(*header_);
            }
            return true;
        }
        bytes_ = nullptr;
        if (result != PCAP_ERROR_BREAK)
            fprintf(stderr, "idpfwd: %s: %s; it ends after %llu packets\n", name_.c_str(),
                    pcap_geterr(pcap_.get()), static_cast<unsigned long long>(packets_));
        finish();
        return false;
    }

    [[nodiscard]] std::uint64_t pendingTime() const { return packetMilliseconds(*header_); }

    [[nodiscard]] std::uint64_t due() const {
        return firstTime_ + (steadyMilliseconds() - started_);
    }

    [[nodiscard]] Moment moment() const { return {shownSeconds(clock_ / 1000), clock_}; }

    // Times that run backwards stand still.
    void moveClock(std::uint64_t milliseconds) {
        clock_ = std::max(clock_, milliseconds);
        accounting_.advance(moment());
    }

    bool fast_;
    pcap_pkthdr *header_ = nullptr;
    const u_char *bytes_ = nullptr; // the packet that waits for its time, valid until the next read
    std::uint64_t packets_ = 0;
    std::uint64_t started_ = 0;
    std::uint64_t firstTime_ = 0;
    std::uint64_t clock_ = 0;
};

std::optional<Mac> ownAddress(const std::string &interface) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    std::optional<Mac> own;
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET ||
            interface != entry->ifa_name)
            continue;
        sockaddr_ll address{};
        std::memcpy(&address, entry->ifa_addr, sizeof address);
        if (address.sll_halen == ETH_ALEN)
            std::copy_n(address.sll_addr, ETH_ALEN, own.emplace().begin());
    }
    freeifaddrs(list);
    return own;
}

bool isEthernet(pcap_t *pcap, const std::string &name, std::string &error) {
    const int type = pcap_datalink(pcap);
    if (type == DLT_EN10MB)
        return true;
    const char *known = pcap_datalink_val_to_name(type);
    error = name + ": only Ethernet names the two devices of a frame, this is " +
            (known == nullptr ? "link type " + std::to_string(type) : std::string(known));
    return false;
}

Pcap activate(const std::string &name, std::string &error) {
    constexpr int kSnapLength = 2048; // applications show in the first bytes of a packet
    constexpr int kBuffer = 16 << 20;
    char reason[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(pcap_create(name.c_str(), reason));
    if (!pcap) {
        error = name + ": " + reason;
        return nullptr;
    }
    pcap_set_snaplen(pcap.get(), kSnapLength);
    pcap_set_promisc(pcap.get(), 1);
    pcap_set_immediate_mode(pcap.get(), 1);
    pcap_set_buffer_size(pcap.get(), kBuffer);
    const int result = pcap_activate(pcap.get());
    if (result < 0) {
        const std::string kind = pcap_statustostr(result), detail = pcap_geterr(pcap.get());
        error = name + ": " + kind + (detail.empty() || detail == kind ? "" : " (" + detail + ")");
        return nullptr;
    }
    if (result > 0)
        fprintf(stderr, "idpfwd: %s: %s\n", name.c_str(), pcap_statustostr(result));
    if (pcap_setnonblock(pcap.get(), 1, reason) != 0) {
        error = name + ": " + reason;
        return nullptr;
    }
    return pcap;
}

// Everything but the packets: the classifier and, in the files and in memory, its names.
std::unique_ptr<Classifier> prepare(const PacketOptions &options, std::optional<NameTable> &names,
                                    std::string &error) {
    std::unique_ptr<Classifier> classifier = Classifier::create();
    if (!classifier) {
        error = "the packet classifier cannot be used";
        return nullptr;
    }
    names.emplace(classifier->applications(), classifier->categories());
    if (!writeDatabases(options.databases, names->databases(), error))
        return nullptr;
    return classifier;
}

} // namespace

std::unique_ptr<Source> openInterface(const PacketOptions &options, std::string &error) {
    Pcap pcap = activate(options.name, error);
    if (!pcap || !isEthernet(pcap.get(), options.name, error))
        return nullptr;
    std::optional<NameTable> names;
    std::unique_ptr<Classifier> classifier = prepare(options, names, error);
    if (!classifier)
        return nullptr;
    const auto gateway = options.gatewayMac ? options.gatewayMac : ownAddress(options.name);
    return std::make_unique<LiveSource>(std::move(pcap), options, std::move(classifier),
                                        std::move(*names), gateway);
}

std::unique_ptr<Source> openCapture(const PacketOptions &options, std::string &error) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(pcap_open_offline(options.name.c_str(), reason));
    if (!pcap) {
        const std::string named = options.name + ": ";
        error = std::string_view(reason).starts_with(named) ? reason : named + reason;
        return nullptr;
    }
    std::optional<NameTable> names;
    if (!isEthernet(pcap.get(), options.name, error))
        return nullptr;
    std::unique_ptr<Classifier> classifier = prepare(options, names, error);
    if (!classifier)
        return nullptr;
    if (!options.gatewayMac)
        fprintf(stderr, "idpfwd: %s: without the gateway's MAC the router is a client too\n",
                options.name.c_str());
    return std::make_unique<CaptureSource>(std::move(pcap), options, std::move(classifier),
                                           std::move(*names));
}

} // namespace idpfwd
