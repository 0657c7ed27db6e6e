#include "usage/uplink/report.h"

#include "usage/text.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace uplink {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

std::string withValidCharacters(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = usage::characterLength(text);
        valid += length == 0 ? kReplacement : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return valid;
}

// Valid JSON without the white space between its tokens. The tokens stay as they are: no number
// changes its form, no member its place.
std::string compacted(std::string_view json) {
    std::string compact;
    compact.reserve(json.size());
    bool inString = false;
    bool escaped = false;
    for (const char c : json) {
        const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (!inString && blank)
            continue;
        compact += c;
        if (c == '"' && !escaped)
            inString = !inString;
        escaped = c == '\\' && !escaped;
    }
    return compact;
}

std::string utcTime(std::int64_t seconds) {
    const time_t time = seconds;
    tm fields{};
    std::array<char, 40> text{};
    if (gmtime_r(&time, &fields) == nullptr ||
        strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields) == 0)
        return "1970-01-01T00:00:00Z";
    return text.data();
}

} // namespace

CheckedReport checkReport(std::string_view file) {
    const std::string valid = withValidCharacters(file);
    // The parser takes a NUL for the end, and anything after it with it.
    if (valid.find('\0') != std::string::npos || !nlohmann::json::accept(valid))
        return {.text = {}, .refusal = "it is not JSON"};
    CheckedReport checked{.text = compacted(valid), .refusal = {}};
    if (checked.text.front() != '{')
        return {.text = {}, .refusal = "it is no JSON object"};
    if (checked.text.size() > kMaxReport)
        return {.text = {}, .refusal = "it is larger than a message can be"};
    return checked;
}

std::string envelope(const std::string &router, const std::string &outbox, const Message &message) {
    return R"({"schema":1,"router":")" + router + R"(","outbox":")" + outbox + R"(","sequence":)" +
           std::to_string(message.sequence) + R"(,"taken":")" + utcTime(message.taken) +
           R"(","dropped":)" + std::to_string(message.dropped) + R"(,"report":)" + message.report +
           "}";
}

} // namespace uplink
