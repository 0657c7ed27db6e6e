#include "engine/packets/packet_names.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

namespace idpfwd {

std::uint64_t steadyMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::uint32_t shownSeconds(std::uint64_t seconds) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(seconds, 1, most));
}

void sayMissingGateway(const std::string &source) {
    fprintf(stderr,
            "idpfwd: %s: no frame has the gateway's MAC that was given, so the router may count as "
            "a client\n",
            source.c_str());
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

std::shared_ptr<const NameTable> prepareNames(const Classifier *classifier,
                                              const PacketOptions &options, std::string &error) {
    if (classifier == nullptr) {
        error = "the packet classifier cannot be used";
        return nullptr;
    }
    auto names = std::make_shared<NameTable>(classifier->applications(), classifier->categories());
    if (!writeDatabases(options.databases, names->databases(), error))
        return nullptr;
    return names;
}

} // namespace idpfwd
