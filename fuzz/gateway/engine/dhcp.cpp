// What devices and servers say in DHCP: texts come out printable and bounded, and never both a
// request and a lease of one message.
#include "fuzz/target.h"

#include "engine/packets/dhcp.h"
#include "engine/packets/dhcp_devices.h"

#include <algorithm>

namespace {

bool is_clean(const std::string &text) {
    return text.size() <= 255 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7f; });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const idpfwd::Packet::Bytes payload(data, size);
    const auto facts = idpfwd::readDhcpRequest(payload);
    FUZZ_REQUIRE(!facts || !idpfwd::readDhcpLease(payload));
    if (!facts)
        return 0;
    FUZZ_REQUIRE(is_clean(facts->hostName) && is_clean(facts->vendorClass));
    FUZZ_REQUIRE(facts->parameters.size() <= 255);
    const idpfwd::Identification found = idpfwd::identify(*facts);
    FUZZ_REQUIRE((found.kind == nullptr) == (found.priority == 0));
    return 0;
}
