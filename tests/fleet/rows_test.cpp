#include "ingest/report/rows.h"

#include <gtest/gtest.h>

namespace fleet {
namespace {

constexpr std::int64_t kReceived = 1795292300; // 2026-11-21 20:18:20

Envelope envelopeOf(std::vector<Record> records) {
    return {.region = "eu",
            .router = "r-1",
            .outbox = "9f",
            .sequence = 417,
            .taken = 1795292280,
            .dropped = 3,
            .records = std::move(records)};
}

Record recordAt(std::int64_t start, std::int64_t end) {
    Record record;
    record.start = start;
    record.end = end;
    return record;
}

TEST(Rows, HaveTheColumnsInOrder) {
    Envelope envelope = envelopeOf({Record{.device = "02:00:5E:00:00:11",
                                           .deviceType = "Android phone",
                                           .appType = "Social\tNetwork",
                                           .appName = "",
                                           .start = kReceived - 400,
                                           .end = kReceived - 70,
                                           .duration = 330,
                                           .upload = {.value = UINT64_MAX, .belowZero = 0},
                                           .download = {.value = 0, .belowZero = INT64_MIN}}});
    envelope.records.push_back(recordAt(0, 0));
    std::string rows;
    appendReportRows(rows, envelope, kReceived, DeviceKey());
    EXPECT_EQ(rows,
              "r-1\t9f\t417\t0\teu\t1795292300\t2026-11-21\t02:00:5E:00:00:11\tAndroid phone\t"
              "Social\\tNetwork\t\t1795291900\t1795292230\t330\t18446744073709551615\t0\t0\t"
              "-9223372036854775808\t0\t1\n"
              "r-1\t9f\t417\t1\teu\t1795292300\t2026-11-21\t\t\t\t\t0\t0\t0\t0\t0\t0\t0\t1\t0\n");
    std::string arrival;
    appendArrivalRow(arrival, envelope, kReceived);
    EXPECT_EQ(arrival, "r-1\t9f\t417\teu\t1795292300\t1795292280\t3\t2\n");
}

TEST(Rows, OfAReportWithoutRecordsAreNone) {
    std::string rows;
    appendReportRows(rows, envelopeOf({}), kReceived, DeviceKey());
    EXPECT_EQ(rows, "");
}

TEST(Rows, CountUnderTheDayOfArrivalWhenTheClockIsBad) {
    constexpr std::int64_t kDay = 86400;
    const struct {
        std::int64_t start;
        std::int64_t end;
        const char *day;
        bool bad;
    } rows[] = {
        {kReceived - 100, kReceived - 50, "2026-11-21", false},
        {kReceived - kDay, kReceived, "2026-11-20", false},
        {kReceived - 400 * kDay, kReceived, "2025-10-17", false},
        {kReceived - 400 * kDay - 1, kReceived, "2026-11-21", true},
        {kReceived, kReceived + kDay, "2026-11-21", false},
        {kReceived, kReceived + kDay + 1, "2026-11-21", true},
        {kReceived + kDay, kReceived, "2026-11-22", false}, // ends before it starts
        {0, kReceived, "2026-11-21", true},                 // 1970
        {4102444800, 4102444801, "2026-11-21", true},       // 2100
        {INT64_MIN, INT64_MAX, "2026-11-21", true},
    };
    for (const auto &row : rows) {
        const Record record = recordAt(row.start, row.end);
        EXPECT_EQ(dayOf(record, kReceived), row.day) << row.start << " " << row.end;
        EXPECT_EQ(clockIsBad(record, kReceived), row.bad) << row.start << " " << row.end;
    }
}

TEST(Rows, EscapeWhatEndsAValueAndNothingElse) {
    std::string out;
    appendEscaped(out, std::string("a\tb\nc\\d\0e\r'\"\xFF", 13));
    EXPECT_EQ(out, "a\\tb\\nc\\\\d\\0e\r'\"\xFF");
}

TEST(DeviceKey, MakesHmacSha256OfTheAddressInCapitals) {
    const DeviceKey key(std::string(20, '\x0B'));
    EXPECT_EQ(key.nameOf("HI THERE"), "501aa9ec6ada0d86799312f75b78fa60"); // by another program
    EXPECT_EQ(key.nameOf("hi there"), key.nameOf("HI THERE"));
    EXPECT_NE(key.nameOf("HI THERE"), DeviceKey(std::string(20, '\x0C')).nameOf("HI THERE"));
    EXPECT_EQ(DeviceKey().nameOf("hi there"), "hi there");
    EXPECT_THROW(DeviceKey("15 bytes, short"), std::invalid_argument);
}

} // namespace
} // namespace fleet
