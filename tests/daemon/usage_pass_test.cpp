#include "bench/nested_pass.h"
#include "engine_fake.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <random>

using testing::ElementsAre;

namespace {

using Snapshot = std::vector<std::string>;

// Every field of every entry in order, as text that shows what differs.
Snapshot tableSnapshot() {
    Snapshot lines;
    for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
         link = link->next) {
        const auto *e = LIST_RECORD(link, TrafficUsageDEntry, list);
        char line[400];
        snprintf(line, sizeof line,
                 "%02x %d/%d %s/%s up %.0f of %.0f down %.0f of %.0f %u-%u %u "
                 "active %d idle %u seen %u",
                 e->macAddress[5], e->vendorId, e->typeId, e->appType, e->appName,
                 e->accu_uploadBandWidth, e->current_uploadBandwidth, e->accu_downloadBandWidth,
                 e->current_downloadBandwidth, e->trafficStartTime, e->trafficEndTime, e->duration,
                 e->active, e->idleTimes, e->lastSeenTime);
        lines.emplace_back(line);
    }
    return lines;
}

std::vector<std::string> namesInTable() {
    std::vector<std::string> names;
    for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
         link = link->next) {
        const auto *e = LIST_RECORD(link, TrafficUsageDEntry, list);
        names.push_back(std::to_string(e->macAddress[5]) + " " + e->appType + "/" + e->appName);
    }
    return names;
}

} // namespace

class UsagePass : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::setTime(2000);
        engine.plugIn();
        rig::writeNames("1,Media\n2,Games\n", "1,1,0,Video\n1,2,0,Music\n2,1,0,Chess\n");
    }
    void TearDown() override { freeTrafficUsageDTable(); }

    rig::FakeEngine engine;
};

TEST_F(UsagePass, JoinsUsersInOrderWithTheirRowsInOrder) {
    engine.addUser(2);
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    engine.addRow(2, 2, 1, 10, 1);
    engine.addRow(9, 1, 1, 10, 1); // of no user
    engine.addRow(1, 0, 0, 10, 1);
    engine.addRow(2, 1, 9, 10, 1); // an application without a name
    engine.addRow(2, 7, 1, 10, 1); // a category without a name
    EXPECT_EQ(updateTrafficUsageDTable(), 0);
    EXPECT_THAT(namesInTable(), ElementsAre("2 Games/Chess", "2 Media/", "2 /", "1 Media/Video",
                                            "1 Others/Others"));
}

TEST_F(UsagePass, UsersThatShareAnIdAreEachJoinedWithAllItsRows) {
    for (int i = 1; i <= 63; ++i) {
        engine.addUser(i);
        engine.users.back().uid = 5;
    }
    for (int application = 1; application <= 2; ++application)
        engine.addRow(5, 1, application, 10, 1);
    updateTrafficUsageDTable();
    EXPECT_EQ(namesInTable().size(), 126u);
    EXPECT_EQ(namesInTable()[3], "2 Media/Music");
}

TEST_F(UsagePass, RowsWhoseNamesAreTheSameFoldIntoOneEntry) {
    rig::writeNames("1,Media\n", "1,1,0,Play 1\n1,2,0,Play 1\n");
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    engine.addRow(1, 1, 2, 25, 2);
    updateTrafficUsageDTable();
    EXPECT_EQ(namesInTable().size(), 1u);
}

TEST_F(UsagePass, LongNamesAreCutAt63Characters) {
    const std::string longName(200, 'n');
    rig::writeNames("1," + longName + "\n", "1,1,0," + longName + "\n");
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    const std::string cut(63, 'n');
    EXPECT_THAT(namesInTable(), ElementsAre("1 " + cut + "/" + cut));
}

TEST_F(UsagePass, TheTableEndsAtTheFirstFreeSlotAndAtItsLimits) {
    engine.addUser(1);
    engine.addUser(2);
    engine.users[0].available = 0;
    engine.addRow(2, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    EXPECT_THAT(namesInTable(), ElementsAre());

    engine.users.clear();
    engine.rows.clear();
    for (int i = 1; i <= 64; ++i)
        engine.addUser(i);
    for (int i = 0; i < 32257; ++i)
        engine.addRow(i < 32256 ? 1 : 2, 1, 1, 10, 1);
    engine.addRow(64, 1, 1, 10, 1);
    engine.excessBytes = 4096;
    updateTrafficUsageDTable();
    EXPECT_THAT(namesInTable(), ElementsAre("1 Media/Video")); // neither row 32,257 nor user 64
}

TEST_F(UsagePass, AnEngineThatFailsIsLoggedAndRetiresWhatWasThere) {
    rig::setSetting("tud_dbg", "1");
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    rig::setTime(2010);
    engine.refusesUsers = true;
    std::string log = rig::standardOutput([] { EXPECT_EQ(updateTrafficUsageDTable(), 0); });
    EXPECT_NE(log.find("Error: get user!(-2)\n"), std::string::npos) << log;
    EXPECT_EQ(LIST_RECORD(trafficUsageD_table.next, TrafficUsageDEntry, list)->active, 0);

    engine.refusesUsers = false;
    engine.refusesRows = true;
    log = rig::standardOutput([] { EXPECT_EQ(updateTrafficUsageDTable(), -2); });
    EXPECT_NE(log.find("Error: get app!(-2)\n"), std::string::npos) << log;
    EXPECT_EQ(log.find("Error: get user"), std::string::npos) << log;
}

TEST_F(UsagePass, GivesExactlyTheTableOfThePlainNestedWalk) {
    std::mt19937 random(20260701);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (limit + 1)); };
    rig::writeNames("1,Media\n1,Later\n2,Games\n4,Media\n",
                    "1,1,0,Video\n1,1,0,Later\n1,2,0,Video\n2,1,0,Chess\n4,1,0,Video\n");
    rig::setSetting("tud_max_idle_time", "2");
    std::vector<rig::FakeEngine> passes(60);
    for (auto &pass : passes) {
        for (int i = upTo(12); i > 0; --i)
            pass.addUser(1 + upTo(8), upTo(2), upTo(2));
        for (int i = upTo(60); i > 0; --i)
            pass.addRow(upTo(9), upTo(4), upTo(2), 10 * upTo(2), upTo(2));
    }
    const auto play = [&](int (*pass)()) {
        std::vector<Snapshot> tables;
        int now = 3000;
        for (const auto &state : passes) {
            engine.users = state.users;
            engine.rows = state.rows;
            rig::setTime(now += 10);
            pass();
            tables.push_back(tableSnapshot());
        }
        freeTrafficUsageDTable();
        return tables;
    };
    const auto plain = play(nestedPass);
    const auto indexed = play(updateTrafficUsageDTable);
    std::size_t entries = 0;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(indexed[i], plain[i]) << "pass " << i;
        entries += plain[i].size();
    }
    EXPECT_GT(entries, 500u); // the comparison was about something
}
