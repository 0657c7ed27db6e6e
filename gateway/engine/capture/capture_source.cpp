#include "engine/capture/capture_source.h"

#include "engine/capture/capture_file.h"
#include "engine/packets/packet_accounting.h"
#include "engine/packets/packet_names.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace idpfwd {
namespace {

constexpr int kPoll = 1000; // milliseconds between two looks at what has become idle

// The packets' own times are the clock: the first one starts it, and at its own pace it runs on
// between packets.
class CaptureSource : public PacketSource {
  public:
    CaptureSource(std::unique_ptr<CaptureFile> file, const PacketOptions &options,
                  std::shared_ptr<Classifier> classifier, std::shared_ptr<const NameTable> names)
        : PacketSource(std::move(names)), file_(std::move(file)), options_(options),
          classifier_(std::move(classifier)),
          accounting_(tables, *classifier_, options.gatewayMac, options.memory) {}

    [[nodiscard]] bool finished() const override { return finished_; }

    [[nodiscard]] int descriptor() const override { return -1; }

    [[nodiscard]] int timeout() const override {
        if (finished())
            return -1;
        if (options_.fast || packet_ == nullptr || pendingTime() <= due())
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
            if (packet_ == nullptr && !readNext())
                return;
            if (!options_.fast && pendingTime() > due()) {
                moveClock(due());
                return;
            }
            moveClock(pendingTime());
            accounting_.add(packet_->bytes, packet_->length, moment());
            packet_ = nullptr;
        }
    }

    bool readNext() {
        packet_ = file_->next();
        if (packet_ != nullptr) {
            if (packets_++ == 0) {
                started_ = steadyMilliseconds();
                clock_ = firstTime_ = pendingTime();
            }
            return true;
        }
        if (!file_->damage().empty())
            fprintf(stderr, "idpfwd: %s: %s; it ends after %llu packets\n", options_.name.c_str(),
                    file_->damage().c_str(), static_cast<unsigned long long>(packets_));
        stop();
        return false;
    }

    [[nodiscard]] std::uint64_t pendingTime() const { return packet_->milliseconds; }

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

    std::unique_ptr<CaptureFile> file_;
    PacketOptions options_;
    std::shared_ptr<Classifier> classifier_;
    PacketAccounting accounting_;
    bool finished_ = false;
    const CapturedPacket *packet_ = nullptr; // that waits for its time
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
    auto capture = CaptureFile::open(file, options.name, error);
    if (!capture)
        return nullptr;
    if (!options.gatewayMac)
        fprintf(stderr, "idpfwd: %s: without the gateway's MAC the router is a client too\n",
                options.name.c_str());
    return std::make_unique<CaptureSource>(std::move(capture), options, std::move(classifier),
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
