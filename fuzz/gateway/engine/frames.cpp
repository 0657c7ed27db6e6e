// Whatever a frame claims, nothing outside of it is looked at, and what is found in it lies in it.
#include "fuzz/target.h"

#include "engine/packets/packet.h"

namespace {

using idpfwd::Packet;

bool lies_in(Packet::Bytes part, Packet::Bytes whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const Packet::Bytes frame(data, size);
    Packet packet;
    const bool whole = idpfwd::parseFrame(frame, packet);
    FUZZ_REQUIRE(whole == (size >= idpfwd::kEthernetHeader));
    FUZZ_REQUIRE(lies_in(packet.network, frame));
    FUZZ_REQUIRE(lies_in(packet.ip, packet.network));
    FUZZ_REQUIRE(lies_in(packet.payload, packet.ip));
    FUZZ_REQUIRE(packet.version == 0 || packet.version == 4 || packet.version == 6);
    FUZZ_REQUIRE(packet.version != 0 || (packet.ip.empty() && !packet.hasPorts));
    FUZZ_REQUIRE(!packet.laterFragment || (packet.fragment && !packet.hasPorts));
    const auto message = whole ? idpfwd::readArp(packet) : std::nullopt;
    FUZZ_REQUIRE(!message || packet.version == 0);
    return 0;
}
