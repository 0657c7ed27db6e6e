#include "ingest/report/envelope.h"

#include <gtest/gtest.h>
#include <string>

namespace fleet {
namespace {

constexpr const char *kSubject = "$MQTT.msgs.usage.eu.r-1.report";

const std::string kRecord =
    R"({"macAddress":"02:00:5E:00:00:11","devType":"Android phone","appType":"SocialNetwork",)"
    R"("appName":"Instagram","trafficStartTime":1795296085,"trafficEndTime":1795296415,)"
    R"("duration":330,"uploadBandwidth":351300,"downloadBandwidth":905993})";

std::string envelopeOf(const std::string &count, const std::string &records) {
    return R"({"schema":1,"router":"r-1","outbox":"9f0c9f0c9f0c9f0c9f0c9f0c9f0c9f0c","sequence":417,)"
           R"("taken":"2026-11-21T20:18:00Z","dropped":0,"report":{"numOfTrafficRecrod":)" +
           count + R"(,"trafficInfo":[)" + records + "]}}";
}

// The good envelope with the first occurrence of a text replaced.
std::string with(const std::string &what, const std::string &by) {
    std::string text = envelopeOf("1", kRecord);
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), by);
}

std::string reasonOf(const std::string &body, const std::string &subject = kSubject) {
    const auto read = readEnvelope(subject, body);
    const auto *refusal = std::get_if<Refusal>(&read);
    return refusal != nullptr ? std::string(reasonName(refusal->reason)) : "good";
}

Envelope good(const std::string &body) {
    auto read = readEnvelope(kSubject, body);
    const auto *refusal = std::get_if<Refusal>(&read);
    EXPECT_EQ(refusal, nullptr) << (refusal != nullptr ? refusal->text : "");
    return refusal != nullptr ? Envelope{} : std::get<Envelope>(read);
}

TEST(Envelope, IsReadWithAllItsValues) {
    const Envelope envelope = good(envelopeOf("1", kRecord));
    EXPECT_EQ(envelope.region, "eu");
    EXPECT_EQ(envelope.router, "r-1");
    EXPECT_EQ(envelope.outbox, "9f0c9f0c9f0c9f0c9f0c9f0c9f0c9f0c");
    EXPECT_EQ(envelope.sequence, 417U);
    EXPECT_EQ(envelope.taken, 1795292280);
    ASSERT_EQ(envelope.records.size(), 1U);
    const Record &record = envelope.records[0];
    EXPECT_EQ(record.device, "02:00:5E:00:00:11");
    EXPECT_EQ(record.appName, "Instagram");
    EXPECT_EQ(record.start, 1795296085);
    EXPECT_EQ(record.duration, 330);
    EXPECT_EQ(record.upload.value, 351300U);
    EXPECT_EQ(record.download.value, 905993U);
}

TEST(Envelope, MayHoldNoRecordAndAsManyAsADaemonHas) {
    EXPECT_TRUE(good(envelopeOf("0", "")).records.empty());
    std::string records = kRecord;
    for (int i = 1; i < 294; ++i)
        records += "," + kRecord;
    EXPECT_EQ(good(envelopeOf("294", records)).records.size(), 294U);
}

TEST(Envelope, MayHaveMembersThatNobodyKnows) {
    EXPECT_EQ(reasonOf(with("\"dropped\":0", R"("dropped":0,"later":{"a":[1,null]})")), "good");
    EXPECT_EQ(reasonOf(with("\"duration\":330", R"("duration":330,"vlan":"7")")), "good");
}

TEST(Envelope, IsRefusedWithTheReason) {
    const struct {
        const char *what;
        const char *by;
        const char *reason;
    } rows[] = {
        {"{", "", "json"},
        {"\"r-1\"", "\"r-1", "json"},
        {"\"sequence\":417", "\"sequence\":NaN", "json"},
        {"\"schema\":1,", "", "schema"},
        {"\"schema\":1", "\"schema\":0", "schema"},
        {"\"schema\":1", "\"schema\":2", "schema"},
        {"\"schema\":1", "\"schema\":\"1\"", "schema"},
        {"\"router\":\"r-1\"", "\"router\":7", "schema"},
        {"\"9f0c", "\"9F0c", "schema"},
        {"\"9f0c", "\"9f0c0", "schema"},
        {"\"sequence\":417", "\"sequence\":4.5", "schema"},
        {"2026-11-21T", "2026-02-30T", "schema"},
        {"20:18:00Z", "20:18:00+01:00", "schema"},
        {"20:18:00Z", "24:18:00Z", "schema"},
        {"2026-", "-026-", "schema"},
        {"\"trafficInfo\":[", "\"trafficInfo\":{}, \"x\":[", "schema"},
        {"\"report\":{", "\"report\":[],\"x\":{", "schema"},
        {"\"appName\":\"Instagram\",", "", "schema"},
        {"\"appName\":\"Instagram\"", "\"appName\":null", "schema"},
        {"\"uploadBandwidth\":351300", "\"uploadBandwidth\":\"351300\"", "schema"},
        {"Recrod\":1", "Recrod\":0", "count"},
        {"Recrod\":1", "Recrod\":2", "count"},
        {"\"r-1\"", "\"r-2\"", "identity"},
        {"\"dropped\":0", R"("dropped":0,"region":"us")", "identity"},
        {"\"dropped\":0", R"("dropped":0,"region":"eu")", "good"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(reasonOf(with(row.what, row.by)), row.reason) << row.what << " -> " << row.by;
    for (const char *text : {"", "nonsense", "\xff\xfe", "{}}", "{\"schema\":1"})
        EXPECT_EQ(reasonOf(text), "json") << text;
    for (const char *text : {"{}", "[]", "null", "1", "\"r-1\""})
        EXPECT_EQ(reasonOf(text), "schema") << text;
}

TEST(Envelope, KeepsWhatAColumnHoldsAndRefusesTheRest) {
    const struct {
        const char *number;
        const char *reason;
        Bytes bytes;
    } rows[] = {
        {"0", "good", {}},
        {"-0", "good", {}},
        {"-0.0", "good", {}},
        {"1e3", "good", {1000, 0}},
        {"18446744073709551615", "good", {18446744073709551615U, 0}},
        {"18446744073709551616", "range", {}},
        {"1e400", "range", {}},
        {"null", "range", {}}, // what a router's library makes of infinity
        {"-5", "good", {0, -5}},
        {"-9223372036854775808", "good", {0, INT64_MIN}},
        {"-9223372036854775809e0", "good", {0, INT64_MIN}}, // the nearest double
        {"-9300000000000000000", "range", {}},
        {"0.5", "schema", {}},
        {"true", "schema", {}},
    };
    for (const auto &row : rows) {
        const std::string body =
            with("\"uploadBandwidth\":351300", std::string("\"uploadBandwidth\":") + row.number);
        ASSERT_EQ(reasonOf(body), row.reason) << row.number;
        if (std::string(row.reason) == "good") {
            EXPECT_EQ(good(body).records[0].upload, row.bytes) << row.number;
        }
    }
    EXPECT_EQ(reasonOf(with("\"sequence\":417", "\"sequence\":-1")), "range");
    EXPECT_EQ(reasonOf(with("1795296085", "9223372036854775808")), "range");
    EXPECT_EQ(good(with("1795296085", "-9223372036854775808")).records[0].start, INT64_MIN);
}

TEST(Envelope, ComesOnARoutersTopicOnly) {
    const std::string body = envelopeOf("1", kRecord);
    const struct {
        const char *subject;
        const char *reason;
    } rows[] = {
        {"$MQTT.msgs.usage.eu.r-1.report", "good"},
        {"usage.eu.r-1.report", "topic"},
        {"$MQTT.msgs.usage.eu.r-1.report.more", "topic"},
        {"$MQTT.msgs.usage.eu.r-1", "topic"},
        {"$MQTT.msgs.usage.report", "topic"},
        {"$MQTT.msgs.usage..r-1.report", "topic"},
        {"$MQTT.msgs.usage.eu..report", "topic"},
        {"$MQTT.msgs.usage.eu.r 1.report", "topic"},
        {"$MQTT.msgs.usage.eu.x.r-1.report", "topic"},
        {"$MQTT.msgs.usage.eu.r-2.report", "identity"},
        {"", "topic"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(reasonOf(body, row.subject), row.reason) << row.subject;
    const std::string longest(64, 'r');
    EXPECT_EQ(reasonOf(body, "$MQTT.msgs.usage.eu." + longest + ".report"), "identity");
    EXPECT_EQ(reasonOf(body, "$MQTT.msgs.usage.eu." + longest + "r.report"), "topic");
}

TEST(Envelope, HasA256KibibyteLimit) {
    std::string body = with("\"dropped\":0", R"("dropped":0,"padding":"")");
    body.insert(body.find("padding") + 10, kLargestBody - body.size(), 'x');
    ASSERT_EQ(body.size(), kLargestBody);
    EXPECT_EQ(reasonOf(body), "good");
    EXPECT_EQ(reasonOf(body + " "), "size");
}

TEST(Envelope, KeepsTextsOfAnyBytes) {
    const struct {
        const char *json;
        std::string text;
    } rows[] = {
        {"caf\xE9", "caf\xE9"},
        {"\xC3\xA9 and \xE9", "\xC3\xA9 and \xE9"},
        {"\xFF\xFE\x80", "\xFF\xFE\x80"},
        {"\xEF\x9E\x80", "\xEF\x9E\x80"}, // what stands for a byte in other documents
        {"\xEF\x9E\x80 \xE9", "\xEF\x9E\x80 \xE9"},
        {R"(\u00e9\ud83d\ude00)", "\xC3\xA9\xF0\x9F\x98\x80"},
        {R"(\"\\\t\n)", "\"\\\t\n"},
        {R"(a\u0000b)", std::string("a\0b", 3)},
        {"", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(good(with("Instagram", row.json)).records[0].appName, row.text);
    EXPECT_EQ(reasonOf(with("Instagram", "half \\ud83d")), "json");
    EXPECT_EQ(reasonOf(with("Instagram", std::string("a\0b", 3))), "json");
    EXPECT_EQ(reasonOf(envelopeOf("1", kRecord) + '\0' + "more"), "json");
}

TEST(Envelope, SurvivesDeepNesting) {
    EXPECT_EQ(reasonOf(std::string(100000, '[')), "json");
    EXPECT_EQ(reasonOf(std::string(100000, '[') + std::string(100000, ']')), "schema");
    EXPECT_EQ(reasonOf(std::string(100000, '[') + "\"\xE9\"" + std::string(100000, ']')), "schema");
}

} // namespace
} // namespace fleet
