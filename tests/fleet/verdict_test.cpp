// The check must find every fault that it is there for, and the simulated routers must speak as
// real ones do.
#include "check/verdict.h"

#include "ingest/report/envelope.h"
#include "ingest/report/rows.h"

#include <gtest/gtest.h>

namespace fleet {
namespace {

ReportKey keyOf(std::uint64_t sequence, Fault fault = Fault::kNone) {
    return {.seed = 7,
            .router = 3,
            .sequence = sequence,
            .taken = 1795292280,
            .records = 40,
            .fault = fault};
}

std::string subjectOf(const ReportKey &key) {
    return "$MQTT.msgs.usage." + regionName(key.router) + "." + routerName(key.router) + ".report";
}

StoredKey nameOf(const ReportKey &key) {
    return {routerName(key.router), outboxName(key.seed, key.router), key.sequence};
}

StoredReport storedOf(const ReportKey &key) {
    return {.rows = key.records,
            .items = key.records,
            .fingerprint = fingerprintOf(key, DeviceKey()),
            .arrivals = 1,
            .records = key.records,
            .taken = key.taken,
            .dropped = key.dropped};
}

TEST(SimulatedRouter, SpeaksAsARealOne) {
    for (std::uint64_t sequence = 1; sequence < 100; ++sequence) {
        const ReportKey key = keyOf(sequence);
        const auto read = readEnvelope(subjectOf(key), bodyOf(key));
        ASSERT_TRUE(std::holds_alternative<Envelope>(read)) << std::get<Refusal>(read).text;
        const auto &envelope = std::get<Envelope>(read);
        const auto records = recordsOf(key);
        ASSERT_EQ(envelope.records.size(), records.size());
        for (std::size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(envelope.records[i].appName, records[i].appName);
            EXPECT_EQ(envelope.records[i].start, records[i].start);
            EXPECT_EQ(envelope.records[i].upload.belowZero,
                      std::min<std::int64_t>(records[i].upload, 0));
        }
    }
}

TEST(SimulatedRouter, IsWrongInTheWayItSays) {
    for (int fault = 1; fault <= kEnvelopeFaults; ++fault) {
        const ReportKey key = keyOf(1, static_cast<Fault>(fault));
        const auto read = readEnvelope(subjectOf(key), bodyOf(key));
        ASSERT_TRUE(std::holds_alternative<Refusal>(read)) << fault;
        EXPECT_EQ(reasonName(std::get<Refusal>(read).reason), reasonOf(key.fault));
    }
}

TEST(Verdict, CountsEachKindOfFaultInReports) {
    const ReportKey key = keyOf(1);
    const auto judge = [&](const Stored &stored, Fate fate = Fate::kAcknowledged) {
        const Judgement found = judgeReports({{key, fate}}, stored, DeviceKey());
        return std::vector{found.missing, found.twice, found.altered, found.unknown};
    };
    using Counts = std::vector<std::uint64_t>;
    const auto changed = [&](auto change) {
        StoredReport report = storedOf(key);
        change(report);
        return Stored{{nameOf(key), report}};
    };
    EXPECT_EQ(judge(changed([](StoredReport &) {})), (Counts{0, 0, 0, 0}));
    EXPECT_EQ(judge({}), (Counts{1, 0, 0, 0}));
    EXPECT_EQ(judge({}, Fate::kOpen), (Counts{0, 0, 0, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { --r.items; })), (Counts{1, 0, 0, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { r.arrivals = 0; })), (Counts{1, 0, 0, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { ++r.rows; })), (Counts{0, 1, 0, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { r.arrivals = 2; }), Fate::kOpen),
              (Counts{0, 1, 0, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { ++r.fingerprint; })), (Counts{0, 0, 1, 0}));
    EXPECT_EQ(judge(changed([](StoredReport &r) { ++r.dropped; })), (Counts{0, 0, 1, 0}));
    EXPECT_EQ(judge({{nameOf(key), storedOf(key)}, {nameOf(keyOf(2)), storedOf(keyOf(2))}}),
              (Counts{0, 0, 0, 1}));
}

TEST(Verdict, CountsEachKindOfFaultInTheSumsByDay) {
    const ReportKey key = keyOf(1);
    const std::vector<Entry> ledger = {{key, Fate::kAcknowledged}};
    const Stored stored = {{nameOf(key), storedOf(key)}};
    Daily daily;
    for (const SimulatedRecord &record : recordsOf(key)) {
        Sums &sums = daily[{routerName(key.router), record.appName}];
        ++sums.records;
        sums.upload += static_cast<std::uint64_t>(std::max<std::int64_t>(record.upload, 0));
        sums.download += static_cast<std::uint64_t>(record.download);
    }
    const auto judge = [&](const Daily &changed) {
        const Judgement found = judgeDaily(ledger, stored, changed);
        return std::vector{found.missing, found.twice, found.altered, found.unknown};
    };
    using Counts = std::vector<std::uint64_t>;
    EXPECT_EQ(judge(daily), (Counts{0, 0, 0, 0}));
    EXPECT_EQ(judge({}), (Counts{daily.size(), 0, 0, 0}));
    Daily changed = daily;
    ++changed.begin()->second.records;
    EXPECT_EQ(judge(changed), (Counts{0, 1, 0, 0}));
    changed = daily;
    ++changed.begin()->second.upload;
    EXPECT_EQ(judge(changed), (Counts{0, 0, 1, 0}));
    changed = daily;
    changed[{"r-9999999", "Steam"}] = {};
    EXPECT_EQ(judge(changed), (Counts{0, 0, 0, 1}));
}

TEST(Verdict, WantsExactlyTheBadReportsAmongTheDeadLetters) {
    const ReportKey bad = keyOf(1, Fault::kCount);
    const std::vector<Entry> ledger = {{bad, Fate::kAcknowledged}, {keyOf(2), Fate::kAcknowledged}};
    EXPECT_EQ(judgeLetters(ledger, {}).missing, 1U);
    EXPECT_EQ(judgeLetters(ledger, {{"count", bodyOf(bad)}}).missing, 0U);
    EXPECT_EQ(judgeLetters(ledger, {{"count", bodyOf(bad)}, {"count", bodyOf(bad)}}).twice, 1U);
    const Judgement wrong = judgeLetters(ledger, {{"range", bodyOf(bad)}});
    EXPECT_EQ(wrong.missing, 1U);
    EXPECT_EQ(wrong.unknown, 1U);
}

TEST(Ledger, ComesBackAsItWasWritten) {
    const std::string path = testing::TempDir() + "/fleet-ledger";
    ReportKey key = keyOf(UINT64_MAX, Fault::kRange);
    key.dropped = 5;
    writeLedger(path, {{key, Fate::kOpen}, {keyOf(1), Fate::kAcknowledged}});
    const auto entries = readLedger(path);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].fate, Fate::kOpen);
    EXPECT_EQ(bodyOf(entries[0].key), bodyOf(key));
    EXPECT_EQ(entries[1].fate, Fate::kAcknowledged);
    EXPECT_THROW((void)readLedger(path + "-none"), std::runtime_error);
}

} // namespace
} // namespace fleet
