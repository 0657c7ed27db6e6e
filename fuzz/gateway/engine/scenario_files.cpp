// A scenario file is a script within its limits, or an error that says what is wrong.
#include "fuzz/target.h"

#include "engine/scenario/scenario_script.h"

#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    try {
        const auto script =
            idpfwd::parseScenario(std::string(reinterpret_cast<const char *>(data), size));
        FUZZ_REQUIRE(!script.steps.empty());
        for (const idpfwd::Step &step : script.steps)
            FUZZ_REQUIRE(step.repetitions >= 1 && step.milliseconds >= 0);
    } catch (const std::runtime_error &wrong) {
        FUZZ_REQUIRE(*wrong.what() != '\0');
    }
    return 0;
}
