#include "engine/capture/capture_source.h"

#include "engine/packets/packet_accounting.h"
#include "engine/packets/packet_names.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdio_ext.h>

namespace idpfwd {
namespace {

constexpr int kPoll = 1000; // milliseconds between two looks at what has become idle

std::uint64_t packetMilliseconds(const pcap_pkthdr &header) {
    const auto seconds = std::max<std::int64_t>(header.ts.tv_sec, 0);
    const auto micros = std::max<std::int64_t>(header.ts.tv_usec, 0);
    return static_cast<std::uint64_t>(seconds) * 1000 + static_cast<std::uint64_t>(micros) / 1000;
}

// A capture and the block of it that was read last.
struct CaptureFile {
    std::unique_ptr<char[]> block;
    Pcap pcap;
};

// In large blocks, because it is read from one end to the other, and without a lock for each
// packet.
CaptureFile openPcap(FILE *file, char *reason) {
    constexpr std::size_t kBlock = std::size_t{512} << 10;
    CaptureFile opened{.block = std::make_unique_for_overwrite<char[]>(kBlock), .pcap = nullptr};
    setvbuf(file, opened.block.get(), _IOFBF, kBlock);
    __fsetlocking(file, FSETLOCKING_BYCALLER);
    opened.pcap.reset(pcap_fopen_offline(file, reason));
    return opened;
}

// The packets' own times are the clock: the first one starts it, and at its own pace it runs on
// between packets.
class CaptureSource : public PacketSource {
  public:
    CaptureSource(CaptureFile file, const PacketOptions &options,
                  std::shared_ptr<Classifier> classifier, std::shared_ptr<const NameTable> names)
        : PacketSource(std::move(names)), file_(std::move(file)), options_(options),
          classifier_(std::move(classifier)),
          accounting_(tables, *classifier_, options.gatewayMac, options.memory) {}

    [[nodiscard]] bool finished() const override { return finished_; }

    [[nodiscard]] int descriptor() const override { return -1; }

    [[nodiscard]] int timeout() const override {
        if (finished())
            return -1;
        if (options_.fast || bytes_ == nullptr || pendingTime() <= due())
            return 0;
        return static_cast<int>(std::min<std::uint64_t>(pendingTime() - due(), kPoll));
    }

    void work() override {
        play();
        accounting_.flush();
    }

    void stop() override {
        if (finished_)
            return;
        finished_ = true;
        if (options_.gatewayMac && accounting_.missesGateway(1))
            sayMissingGateway(options_.name);
        accounting_.finish();
        tables.showAll();
    }

  private:
    void play() {
        constexpr int kBatch = 2000;
        for (int count = 0; count < kBatch && !finished(); count++) {
            if (bytes_ == nullptr && !readNext())
                return;
            if (!options_.fast && pendingTime() > due()) {
                moveClock(due());
                return;
            }
            moveClock(pendingTime());
            accounting_.add({bytes_, header_->caplen}, std::max(header_->len, header_->caplen),
                            moment());
            bytes_ = nullptr;
        }
    }

    bool readNext() {
        const int result = pcap_next_ex(file_.pcap.get(), &header_, &bytes_);
        if (result == 1) {
            if (packets_++ == 0) {
                started_ = steadyMilliseconds();
                clock_ = firstTime_ = packetMilliseconds(*header_);
            }
            return true;
        }
        bytes_ = nullptr;
        if (result != PCAP_ERROR_BREAK)
            fprintf(stderr, "idpfwd: %s: %s; it ends after %llu packets\n", options_.name.c_str(),
                    pcap_geterr(file_.pcap.get()), static_cast<unsigned long long>(packets_));
        stop();
        return false;
    }

    [[nodiscard]] std::uint64_t pendingTime() const { return packetMilliseconds(*header_); }

    [[nodiscard]] std::uint64_t due() const {
        return firstTime_ + (steadyMilliseconds() - started_);
    }

    [[nodiscard]] Moment moment() const { return {shownSeconds(clock_ / 1000), clock_}; }

    // Times that run backwards stand still.
    void moveClock(std::uint64_t milliseconds) {
        constexpr std::uint64_t kSweep = 1000;
        clock_ = std::max(clock_, milliseconds);
        if (clock_ - lastSweep_ < kSweep)
            return;
        lastSweep_ = clock_;
        accounting_.advance(moment());
        // As fast as it can be read, nobody has had a chance to see what would be forgotten.
        if (!options_.fast || tables.full())
            tables.forgetUnseen(moment(), options_.forgetSeconds);
    }

    CaptureFile file_;
    PacketOptions options_;
    std::shared_ptr<Classifier> classifier_;
    PacketAccounting accounting_;
    bool finished_ = false;
    pcap_pkthdr *header_ = nullptr;
    const u_char *bytes_ = nullptr; // the packet that waits for its time, valid until the next read
    std::uint64_t packets_ = 0;
    std::uint64_t started_ = 0;
    std::uint64_t firstTime_ = 0;
    std::uint64_t clock_ = 0;
    std::uint64_t lastSweep_ = 0;
};

} // namespace

std::unique_ptr<Source> readCapture(FILE *file, const PacketOptions &options,
                                    std::shared_ptr<Classifier> classifier,
                                    std::shared_ptr<const NameTable> names, std::string &error) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    CaptureFile opened = openPcap(file, reason);
    if (!opened.pcap) {
        fclose(file);
        error = options.name + ": " + reason;
        return nullptr;
    }
    if (!isEthernet(opened.pcap.get(), options.name, error))
        return nullptr;
    if (!options.gatewayMac)
        fprintf(stderr, "idpfwd: %s: without the gateway's MAC the router is a client too\n",
                options.name.c_str());
    return std::make_unique<CaptureSource>(std::move(opened), options, std::move(classifier),
                                           std::move(names));
}

std::unique_ptr<Source> openCapture(const PacketOptions &options, std::string &error) {
    FILE *file = fopen(options.name.c_str(), "rbe");
    if (file == nullptr) {
        error = options.name + ": " + strerror(errno);
        return nullptr;
    }
    std::shared_ptr<Classifier> classifier = Classifier::create();
    auto names = prepareNames(classifier.get(), options, error);
    if (!names) {
        fclose(file);
        return nullptr;
    }
    return readCapture(file, options, std::move(classifier), std::move(names), error);
}

} // namespace idpfwd
