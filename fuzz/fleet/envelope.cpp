// Whatever a router publishes ends as an envelope that keeps its promises, or as a refusal with a
// text. The input is the topic's part of the subject, a newline, and the body.
#include "fuzz/target.h"

#include "ingest/report/any_bytes.h"
#include "ingest/report/envelope.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

using namespace fleet;

namespace {

bool isAligned(const Bytes &bytes) {
    return bytes.belowZero <= 0 && (bytes.belowZero == 0 || bytes.value == 0);
}

void check(const Envelope &envelope, std::string_view subject, std::string_view body) {
    FUZZ_REQUIRE(subject == std::string(kSubjectPrefix) + "usage." + envelope.region + "." +
                                envelope.router + ".report");
    FUZZ_REQUIRE(envelope.router.find_first_of(". \t\n") == std::string::npos);
    FUZZ_REQUIRE(envelope.outbox.size() == 32);
    FUZZ_REQUIRE(body.size() <= kLargestBody);
    FUZZ_REQUIRE(std::all_of(envelope.records.begin(), envelope.records.end(), [](const Record &r) {
        return isAligned(r.upload) && isAligned(r.download);
    }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = std::min(input.find('\n'), size);
    const std::string subject = std::string(kSubjectPrefix) + std::string(input.substr(0, newline));
    const std::string_view body = input.substr(std::min(newline + 1, size));
    const auto read = readEnvelope(subject, body);
    if (const auto *envelope = std::get_if<Envelope>(&read))
        check(*envelope, subject, body);
    else
        FUZZ_REQUIRE(!std::get<Refusal>(read).text.empty());
    // Bytes that are sheltered come back; only a text that held sheltered ones before may differ.
    if (body.find('\xEF') == std::string_view::npos)
        FUZZ_REQUIRE(unshelterBytes(shelterBytes(body)) == body);
    return 0;
}
