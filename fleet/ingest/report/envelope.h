// A router's envelope: one report with what tells it apart. Reading one is a pure function;
// whatever a router, or someone who pretends to be one, sends ends as an envelope or as a refusal
// with its reason.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace fleet {

// The largest body that a router may send, in bytes.
inline constexpr std::size_t kLargestBody = 256 * 1024;

// The format's versions that are understood, the first and the last one.
inline constexpr std::uint64_t kOldestSchema = 1;
inline constexpr std::uint64_t kNewestSchema = 1;

// What the server's own stream puts before a topic whose slashes became dots.
inline constexpr std::string_view kSubjectPrefix = "$MQTT.msgs.";

// Why a message is no report; each is a subject below usage_dead.
enum class Reason {
    kTopic,    // it did not come on usage/<region>/<router>/report
    kSize,     // the body is larger than kLargestBody
    kJson,     // the body is no JSON
    kSchema,   // a member is missing or has another type
    kCount,    // the count differs from the array
    kRange,    // a number that is not finite or that no column holds
    kIdentity, // the envelope names another router or region than the topic
    kRefused,  // the store refused it
};

// All of them, for tables of counters.
inline constexpr std::size_t kReasons = 8;

// The reason's name, as in its subject and in the metrics: "topic", "size", ...
[[nodiscard]] std::string_view reasonName(Reason reason);

// A count of bytes. An engine that was reset yields a negative one: it is kept in belowZero, and
// value, which goes into sums, is then 0.
struct Bytes {
    std::uint64_t value = 0;
    std::int64_t belowZero = 0;

    bool operator==(const Bytes &) const = default;
};

// One record. Texts are any bytes; times are seconds since 1970 by the router's clock.
struct Record {
    std::string device;
    std::string deviceType;
    std::string appType;
    std::string appName;
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::int64_t duration = 0; // seconds
    Bytes upload;
    Bytes download;
};

struct Envelope {
    std::string region;         // of the topic
    std::string router;         // of the topic, and the envelope says the same
    std::string outbox;         // 32 hexadecimal digits
    std::uint64_t sequence = 0; // within the outbox
    std::int64_t taken = 0;     // seconds since 1970
    std::uint64_t dropped = 0;  // reports that the outbox had to give up so far
    std::vector<Record> records;
};

struct Refusal {
    Reason reason;
    std::string text; // for people: which member, what is wrong with it
};

// Reads a message of the buffer: its subject (kSubjectPrefix and the topic) and its body, any
// bytes.
[[nodiscard]] std::variant<Envelope, Refusal> readEnvelope(std::string_view subject,
                                                           std::string_view body);

} // namespace fleet
