// A whole pass and a whole report with every call failing: what was counted is in the table, in the
// buffer or in the report.
#include "analytics/device_lookup.h"
#include "router/daemon/daemon_fixture.h"
#include "support/engine_fake.h"
#include "support/faults.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <map>

namespace {

double creditedBytes() {
    double sum = 0;
    for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
         link = link->next)
        sum += LIST_RECORD(link, TrafficUsageDEntry, list)->accu_downloadBandWidth;
    for (const TrafficInfo &record : trafficBuffer)
        sum += record.downloadBandwidth;
    return sum;
}

void makePass(std::time_t now) {
    rig::setTime(now);
    updateTrafficUsageDTable();
    updateTrafficBuffer();
}

} // namespace

class DaemonFaults : public rig::DaemonFixture {};

TEST_F(DaemonFaults, APassLosesNothingThatWasCounted) {
    rig::writeNames("1,Media\n", "1,1,0,Video\n1,2,0,Audio\n");
    rig::FakeEngine engine;
    engine.plugIn();
    for (const int uid : {1, 2}) {
        engine.addUser(uid);
        engine.addRow(uid, 1, uid, 1000, 10);
    }
    engine.addRow(1, 3, 3, 1000, 10); // without a name
    const auto grow = [&](std::uint64_t to) {
        for (auto &row : engine.rows)
            row.down_accl_byte = to;
    };
    const auto prepare = [&] {
        freeTrafficUsageDTable();
        std::fill_n(trafficBuffer, MAX_ENTRY, TrafficInfo{});
        grow(1000);
        makePass(1000);
        ASSERT_EQ(creditedBytes(), 3000);
        grow(5000);
    };
    const auto check = [&](rig::Call) {
        grow(6000);
        makePass(1020);
        EXPECT_GE(creditedBytes(), 3 * 6000); // credited again where the engine was not heard
    };
    rig::failEveryCall(
        prepare, [] { makePass(1010); }, check);
}

TEST_F(DaemonFaults, AReportHasItsRecordsOrTheBufferKeepsThem) {
    rig::writeDeviceTypes();
    const auto prepare = [] {
        rig::fillBuffer(3);
        rig::writeFile(TRAFFIC_USAGE_REPORT_FILE, "");
    };
    const auto run = [] { EXPECT_EQ(generateTudJson(), 0); };
    const auto check = [](rig::Call failed) {
        cJSON *document = cJSON_Parse(rig::readFile(TRAFFIC_USAGE_REPORT_FILE).c_str());
        const cJSON *records = cJSON_GetObjectItem(document, "trafficInfo");
        const int reported = cJSON_GetArraySize(records);
        const cJSON *count = cJSON_GetObjectItem(document, "numOfTrafficRecrod");
        EXPECT_EQ(count != nullptr ? count->valueint : 0, reported);
        std::map<double, int> places; // where each record is, by its start
        const cJSON *record;
        cJSON_ArrayForEach(
            record, records)++ places[cJSON_GetObjectItem(record, "trafficStartTime")->valuedouble];
        for (const TrafficInfo &slot : trafficBuffer)
            places[slot.trafficStartTime] += slot.trafficStartTime != 0 ? 1 : 0;
        // A report that can't be written is lost, and no other.
        const bool unwritten = failed == rig::Call::kOpen || failed == rig::Call::kWrite;
        for (const int start : {100, 101, 102})
            EXPECT_TRUE(places[start] == 1 || (unwritten && document == nullptr)) << start;
        cJSON_Delete(document);
    };
    rig::failEveryCall(prepare, run, check);
}

TEST_F(DaemonFaults, ARecordByItselfIsKeptWhereItsDocumentCannotBeMade) {
    TrafficInfo record;
    int result = 0;
    int refusals = 0;
    const auto prepare = [&] {
        record = rig::record(100);
        record.flags = 1;
    };
    const auto check = [&](rig::Call) {
        refusals += result == -1;
        EXPECT_TRUE(result == 0 || record.trafficStartTime == 100);
    };
    rig::failEveryCall(
        prepare, [&] { result = dumpAEntryToJson(&record); }, check);
    EXPECT_GT(refusals, 0);
}
