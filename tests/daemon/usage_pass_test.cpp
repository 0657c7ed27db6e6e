#include "bench/nested_pass.h"
#include "support/engine_fake.h"
#include "support/fixture.h"
#include "table_text.h"

#include <random>

using rig::tableNames;
using testing::ElementsAre;

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
    EXPECT_THAT(tableNames(), ElementsAre("2 Games/Chess", "2 Media/", "2 /", "1 Media/Video",
                                          "1 Others/Others"));
}

TEST_F(UsagePass, RowsWhoseNamesAgreeIn63CharactersFoldIntoOneEntry) {
    const std::string cut(63, 'n');
    rig::writeNames("1," + cut + "a\n", "1,1,0," + cut + "b\n1,2,0," + cut + "c\n");
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    engine.addRow(1, 1, 2, 25, 2);
    updateTrafficUsageDTable();
    EXPECT_THAT(tableNames(), ElementsAre("1 " + cut + "/" + cut));
}

TEST_F(UsagePass, TheTableEndsAtTheFirstFreeSlotAndAtItsLimits) {
    engine.addUser(1);
    engine.addUser(2);
    engine.users[0].available = 0;
    engine.addRow(2, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    EXPECT_THAT(tableNames(), ElementsAre());

    engine.users.clear();
    engine.rows.clear();
    for (int i = 1; i <= 64; ++i)
        engine.addUser(i);
    for (int i = 0; i < 32257; ++i)
        engine.addRow(i < 32256 ? 64 - i % 2 * 63 : 2, 1, 1, 10, 1);
    engine.excessBytes = 4096;
    updateTrafficUsageDTable();
    EXPECT_THAT(tableNames(), ElementsAre("1 Media/Video")); // neither row 32,257 nor user 64
}

TEST_F(UsagePass, AnEngineThatFailsIsLoggedAndRetiresWhatWasThere) {
    const auto logOfAPass = [](int result) {
        return rig::standardOutput([=] { EXPECT_EQ(updateTrafficUsageDTable(), result); });
    };
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    rig::setSetting("tud_dbg", "1");
    rig::setTime(2010);
    engine.refusesUsers = true;
    EXPECT_EQ(logOfAPass(0), "Error: get user!(-2)\n"
                             "removeUntrackedTrafficUsageDEntry 1368 count: 1\n");
    EXPECT_EQ(LIST_RECORD(trafficUsageD_table.next, TrafficUsageDEntry, list)->active, 0);
    engine.refusesUsers = false;
    engine.refusesRows = true;
    EXPECT_EQ(logOfAPass(-2), "Error: get app!(-2)\n"
                              "removeUntrackedTrafficUsageDEntry 1368 count: 1\n");
}

TEST_F(UsagePass, GivesExactlyTheTableOfThePlainNestedWalk) {
    std::mt19937 random(20260701);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (limit + 1)); };
    rig::writeNames("1,Media\n1,Later\n2,Games\n4,Media\n",
                    "1,1,0,Video\n1,1,0,Later\n1,2,0,Video\n2,1,0,Chess\n4,1,0,Video\n");
    rig::setSetting("tud_max_idle_time", "2");
    std::vector<rig::FakeEngine> passes(60);
    for (auto &pass : passes) {
        for (int i = upTo(12); i > 0; --i) {
            pass.addUser(1 + upTo(8), upTo(2), upTo(2));
            pass.users.back().mac[5] = upTo(20); // some share their uid, some their MAC
        }
        for (int i = upTo(60); i > 0; --i)
            pass.addRow(upTo(9), upTo(4), upTo(2), 10 * upTo(2), upTo(2));
    }
    const auto play = [&](int (*pass)()) {
        std::vector<std::vector<std::string>> tables;
        int now = 3000;
        for (const auto &state : passes) {
            engine.users = state.users;
            engine.rows = state.rows;
            rig::setTime(now += 10);
            pass();
            tables.push_back(rig::tableLines());
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
