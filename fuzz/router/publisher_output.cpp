// What a publisher and the router's own commands print: the verdict on a publication, the firmware
// version and the serial number.
#include "fuzz/router/file_input.h"
#include "fuzz/target.h"

#include "analytics/publish_verdict.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <cstring>
#include <string>
#include <unistd.h>

namespace {

// The first line decides for MCS, the first that has one of the words for IoT.
Verdict expected(PublishMethod method, std::string text) {
    text = text.substr(0, text.find('\0'));
    const bool failed = text.find("ERROR") != std::string::npos;
    const bool done = text.find("Publish done") != std::string::npos;
    if (method == PublishMethod::Iot && failed != done && text.size() < 127)
        return failed ? Verdict::Failure : Verdict::Success;
    return Verdict::None;
}

void judge(const uint8_t *data, std::size_t size) {
    const fuzz::FileInput input(data, size);
    for (const auto method : {PublishMethod::Iot, PublishMethod::Mcs, PublishMethod::Other}) {
        FILE *output = fopen("output", "r");
        const Verdict verdict = publish_verdict(method, output);
        fclose(output);
        const std::string text(reinterpret_cast<const char *>(data), size);
        const Verdict told = expected(method, text);
        FUZZ_REQUIRE(told == Verdict::None || verdict == told);
        FUZZ_REQUIRE(method != PublishMethod::Other || verdict == Verdict::None);
    }
}

void read_facts(const uint8_t *data, std::size_t size) {
    const fuzz::FileInput input(data, size);
    for (const auto collect : {collect_dev_fw_ver, collect_dev_sn}) {
        char text[64];
        memset(text, '#', sizeof text);
        const int result = collect(text);
        FUZZ_REQUIRE(memchr(text, '\0', sizeof text) != nullptr);
        FUZZ_REQUIRE((result == 0) == (*text != '\0'));
    }
}

} // namespace

extern "C" int system(const char *) {
    return 0;
}
extern "C" unsigned int sleep(unsigned int) {
    return 0;
}
extern "C" int remove(const char *) noexcept {
    return 0;
}
extern "C" int unlink(const char *) noexcept {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    judge(data, size);
    read_facts(data, size);
    return 0;
}
