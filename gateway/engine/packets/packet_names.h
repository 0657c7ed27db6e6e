// What both packet sources start with: a classifier, and its names in the files and in memory.
#pragma once

#include "engine/capture/packet_source.h"
#include "engine/packets/application_names.h"

#include <memory>
#include <optional>
#include <pcap/pcap.h>
#include <string>

namespace idpfwd {

struct PcapCloser {
    void operator()(pcap_t *pcap) const { pcap_close(pcap); }
};
using Pcap = std::unique_ptr<pcap_t, PcapCloser>;

// False with the reason in error unless frames of this handle have Ethernet headers.
bool isEthernet(pcap_t *pcap, const std::string &name, std::string &error);

// Writes the database files. Null with the reason in error when that fails, or when there is no
// classifier, because nDPI cannot be used.
std::shared_ptr<const NameTable> prepareNames(const Classifier *classifier,
                                              const PacketOptions &options, std::string &error);

// A source that names what its classifiers tell.
class PacketSource : public Source {
  public:
    explicit PacketSource(std::shared_ptr<const NameTable> names) : names_(std::move(names)) {}

    [[nodiscard]] std::string categoryName(std::uint8_t cat_id) const override {
        return names_->category(cat_id);
    }

    [[nodiscard]] std::string applicationName(std::uint8_t cat_id,
                                              std::uint16_t app_id) const override {
        return names_->application({cat_id, app_id});
    }

  private:
    std::shared_ptr<const NameTable> names_;
};

// Says that the address that was given for the router is in none of the frames.
void sayMissingGateway(const std::string &source);

// Seconds as records hold them: never 0, which would say never.
std::uint32_t shownSeconds(std::uint64_t seconds);

// A clock that is never set, in milliseconds.
std::uint64_t steadyMilliseconds();

} // namespace idpfwd
