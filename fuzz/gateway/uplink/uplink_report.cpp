// A report file of any bytes: what is taken for a report makes a message that an independent parser
// reads back, and that says the same as the file when the file was valid by itself.
#include "fuzz/target.h"

#include "usage/uplink/report.h"

#include <nlohmann/json.hpp>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string file(reinterpret_cast<const char *>(data), size);
    const uplink::CheckedReport report = uplink::checkReport(file);
    FUZZ_REQUIRE(report.text.empty() != report.refusal.empty());
    if (!report.refusal.empty())
        return 0;
    const std::string body = uplink::envelope("r", "0f", {1, 0, 0, report.text});
    FUZZ_REQUIRE(body.size() <= uplink::kMaxEnvelope);
    const auto message = nlohmann::json::parse(body, nullptr, false);
    FUZZ_REQUIRE(message.is_object() && message.size() == 7);
    FUZZ_REQUIRE(message["report"].is_object());
    const auto original = nlohmann::json::parse(file, nullptr, false);
    FUZZ_REQUIRE(original.is_discarded() || original == message["report"]);
    FUZZ_REQUIRE(uplink::checkReport(report.text).text == report.text);
    return 0;
}
