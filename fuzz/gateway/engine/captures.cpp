// A capture file is read to its end or to where it is damaged, and what was read is served.
#include "fuzz/target.h"

#include "engine/capture/capture_source.h"
#include "engine/dump.h"

#include <cstdio>
#include <memory>
#include <utility>

namespace {

using namespace idpfwd;

// Made once: that takes longer than thousands of inputs.
struct Tools {
    std::shared_ptr<Classifier> classifier = Classifier::create();
    std::shared_ptr<const NameTable> names =
        std::make_shared<NameTable>(classifier->applications(), classifier->categories());
    FILE *nowhere = fopen("/dev/null", "w");
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const Tools tools;
    if (size == 0)
        return 0;
    PacketOptions options;
    options.name = "fuzzed";
    options.fast = true;
    options.memory = std::size_t{64} << 10;
    std::string error;
    FILE *const screen = std::exchange(stderr, tools.nowhere); // damage is told there
    FILE *file = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    const auto source = readCapture(file, options, tools.classifier, tools.names, error);
    for (std::size_t turn = 0; source && !source->finished() && turn <= size; ++turn)
        source->work();
    stderr = screen;
    FUZZ_REQUIRE((source == nullptr) == !error.empty());
    FUZZ_REQUIRE(!source || source->finished());
    FUZZ_REQUIRE(!source || dumpTables(*source).ends_with("}\n"));
    return 0;
}
