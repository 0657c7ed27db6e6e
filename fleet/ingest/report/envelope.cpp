#include "ingest/report/envelope.h"

#include "ingest/report/any_bytes.h"
#include "ingest/report/envelope_fields.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>

namespace fleet {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestName = 64; // of a router or a region

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
}

bool isName(std::string_view text) {
    return !text.empty() && text.size() <= kLongestName &&
           std::all_of(text.begin(), text.end(), isNameCharacter);
}

bool isOutbox(std::string_view text) {
    return text.size() == 32 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

struct Topic {
    std::string_view region;
    std::string_view router;
};

std::optional<Topic> readTopic(std::string_view subject) {
    constexpr std::string_view kHead = "usage.";
    constexpr std::string_view kTail = ".report";
    if (!subject.starts_with(kSubjectPrefix))
        return std::nullopt;
    subject.remove_prefix(kSubjectPrefix.size());
    if (!subject.starts_with(kHead) || !subject.ends_with(kTail) ||
        subject.size() < kHead.size() + kTail.size())
        return std::nullopt;
    subject.remove_prefix(kHead.size());
    subject.remove_suffix(kTail.size());
    const std::size_t dot = subject.find('.');
    if (dot == std::string_view::npos)
        return std::nullopt;
    const Topic topic{subject.substr(0, dot), subject.substr(dot + 1)};
    return isName(topic.region) && isName(topic.router) ? std::optional(topic) : std::nullopt;
}

// "2026-11-21T20:18:00Z" and nothing else.
std::optional<std::int64_t> readTime(const std::string &text) {
    constexpr std::string_view kShape = "0000-00-00T00:00:00Z";
    if (text.size() != kShape.size())
        return std::nullopt;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (kShape[i] == '0' ? !digit : text[i] != kShape[i])
            return std::nullopt;
    }
    const auto number = [&](std::size_t from, std::size_t length) {
        return std::stoi(text.substr(from, length));
    };
    const std::chrono::year_month_day date{std::chrono::year(number(0, 4)),
                                           std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                           std::chrono::day(static_cast<unsigned>(number(8, 2)))};
    const int hour = number(11, 2);
    const int minute = number(14, 2);
    const int second = number(17, 2);
    if (!date.ok() || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    return std::int64_t{std::chrono::sys_days(date).time_since_epoch().count()} * 86400 +
           hour * 3600 + minute * 60 + second;
}

// Without recursion: what routers send may be nested as deeply as it is long.
void unshelterTexts(json &document) {
    std::vector<json *> open{&document};
    while (!open.empty()) {
        json &value = *open.back();
        open.pop_back();
        if (value.is_string())
            value = unshelterBytes(value.get_ref<const std::string &>());
        if (!value.is_structured())
            continue;
        for (json &child : value)
            open.push_back(&child);
    }
}

json parse(std::string_view body) {
    try {
        return json::parse(body);
    } catch (const json::parse_error &) {
        // Once more, in case that it was only for texts that are no UTF-8.
        json document = json::parse(shelterBytes(body));
        unshelterTexts(document);
        return document;
    }
}

Record readRecord(const json &document) {
    const Fields fields(document, "a record");
    return {.device = fields.text("macAddress"),
            .deviceType = fields.text("devType"),
            .appType = fields.text("appType"),
            .appName = fields.text("appName"),
            .start = fields.signedNumber("trafficStartTime"),
            .end = fields.signedNumber("trafficEndTime"),
            .duration = fields.signedNumber("duration"),
            .upload = fields.bytes("uploadBandwidth"),
            .download = fields.bytes("downloadBandwidth")};
}

std::vector<Record> readReport(const json &document) {
    const Fields report(document, "the report");
    // The misspelt name is the one that every daemon in the field writes.
    const std::uint64_t count = report.number("numOfTrafficRecrod");
    const json &list = report.array("trafficInfo");
    if (count != list.size())
        throw Refusal{Reason::kCount, "the report counts " + std::to_string(count) +
                                          " records and has " + std::to_string(list.size())};
    std::vector<Record> records;
    records.reserve(list.size());
    for (const json &record : list)
        records.push_back(readRecord(record));
    return records;
}

void checkSchema(const Fields &fields) {
    const std::uint64_t schema = fields.number("schema");
    if (schema < kOldestSchema || schema > kNewestSchema)
        throw Refusal{Reason::kSchema, "schema " + std::to_string(schema) + " is not known"};
}

// What the topic says is what the buffer's permissions bind; the envelope may only agree.
void checkIdentity(const Fields &fields, const Topic &topic) {
    if (fields.text("router") != topic.router)
        throw Refusal{Reason::kIdentity, "the envelope names another router than its topic"};
    if (fields.has("region") && fields.text("region") != topic.region)
        throw Refusal{Reason::kIdentity, "the envelope names another region than its topic"};
}

Envelope readDocument(const json &document, const Topic &topic) {
    const Fields fields(document, "the envelope");
    checkSchema(fields);
    checkIdentity(fields, topic);
    Envelope envelope;
    envelope.region = topic.region;
    envelope.router = topic.router;
    envelope.outbox = fields.text("outbox");
    if (!isOutbox(envelope.outbox))
        throw Refusal{Reason::kSchema, "outbox is not 32 hexadecimal digits"};
    envelope.sequence = fields.number("sequence");
    const auto taken = readTime(fields.text("taken"));
    if (!taken)
        throw Refusal{Reason::kSchema, "taken is no time like 2026-11-21T20:18:00Z"};
    envelope.taken = *taken;
    envelope.dropped = fields.number("dropped");
    envelope.records = readReport(fields.object("report"));
    return envelope;
}

constexpr std::array<std::string_view, kReasons> kReasonNames = {
    "topic", "size", "json", "schema", "count", "range", "identity", "refused"};

} // namespace

std::string_view reasonName(Reason reason) {
    return kReasonNames.at(static_cast<std::size_t>(reason));
}

std::variant<Envelope, Refusal> readEnvelope(std::string_view subject, std::string_view body) {
    const auto topic = readTopic(subject);
    if (!topic)
        return Refusal{Reason::kTopic, "the topic is not usage/<region>/<router>/report"};
    if (body.size() > kLargestBody)
        return Refusal{Reason::kSize, std::to_string(body.size()) + " bytes are too many"};
    if (body.find('\0') != std::string_view::npos) // where the parser would stop reading, content
        return Refusal{Reason::kJson, "a byte of 0 stands in the text"};
    try {
        return readDocument(parse(body), *topic);
    } catch (const Refusal &refusal) {
        return refusal;
    } catch (const json::out_of_range &) {
        return Refusal{Reason::kRange, "a number is not finite"};
    } catch (const json::exception &error) {
        return Refusal{Reason::kJson, unshelterBytes(error.what())};
    }
}

} // namespace fleet
