// The packed periods of a store and its scratch. What is taken packs to what unpacks to the same;
// an input is tried as it is and with the checksum that makes the rest of it count.
#include "fuzz/target.h"
#include "usage/store/scratch.h"
#include "usage/store/slot.h"

using namespace usage;

namespace {

void unpack(PackedView packed) {
    if (const auto traffic = unpackTraffic(packed))
        FUZZ_REQUIRE(unpackTraffic(packTraffic(*traffic)) == traffic);
    if (const auto baseline = unpackBaseline(packed))
        FUZZ_REQUIRE(unpackBaseline(packBaseline(*baseline)) == baseline);
    Present present;
    applyScratch(packed, present);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const PackedView input(data, size);
    unpack(input);
    Packer packer;
    packer.bytes(input);
    unpack(packer.finish());
    return 0;
}
