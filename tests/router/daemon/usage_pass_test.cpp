#include "bench/router/nested_pass.h"
#include "daemon_fixture.h"
#include "support/engine_fake.h"
#include "support/faults.h"

#include <random>
#include <sys/wait.h>

using rig::tableNames;
using testing::ElementsAre;

namespace {

// Devices and applications that come and go; some users share their uid, some their MAC.
std::vector<rig::FakeEngine> randomScenes(int count) {
    std::mt19937 random(20260701);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (limit + 1)); };
    std::vector<rig::FakeEngine> scenes(count);
    for (auto &scene : scenes) {
        for (int i = upTo(12); i > 0; --i) {
            scene.addUser(1 + upTo(8), upTo(2), upTo(2));
            scene.users.back().mac[5] = upTo(99);
        }
        for (int i = upTo(60); i > 0; --i)
            scene.addRow(upTo(9), upTo(6), upTo(2), 10 * upTo(2), upTo(2));
    }
    return scenes;
}

} // namespace

class UsagePass : public rig::DaemonFixture {
  protected:
    void SetUp() override {
        DaemonFixture::SetUp();
        engine.plugIn();
        const std::string longName(63, 'n'); // what follows is cut off
        const std::string nearly(62, 'n');
        rig::writeNames("1,Media\n1,Later\n2,Games\n4,Media\n5," + nearly + "x\n6," + nearly +
                            "y\n256,Beyond\n",
                        "1,1,0,Video\n1,1,0,Later\n1,2,0,Video\n2,1,0," + longName + "a\n2,2,0," +
                            longName + "b\n4,1,0,Video\n5,1,0," + nearly + "x\n5,2,0," + nearly +
                            "y\n6,1,0," + nearly + "x\n");
        rig::setSetting("tud_max_idle_time", "2");
    }

    void show(const rig::FakeEngine &scene, std::time_t now) {
        engine.users = scene.users;
        engine.rows = scene.rows;
        rig::setTime(now);
    }

    rig::FakeEngine engine;
};

TEST_F(UsagePass, JoinsUsersInOrderWithTheirRowsInOrder) {
    engine.addUser(2);
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    engine.addRow(2, 4, 1, 10, 1);
    engine.addRow(9, 1, 1, 10, 1); // of no user
    engine.addRow(1, 0, 0, 10, 1);
    engine.addRow(2, 2, 9, 10, 1); // an application without a name
    engine.addRow(2, 7, 1, 10, 1); // a category without a name
    EXPECT_EQ(updateTrafficUsageDTable(), 0);
    EXPECT_THAT(tableNames(), ElementsAre("2 Media/Video", "2 Games/", "2 /", "1 Media/Video",
                                          "1 Others/Others"));
}

TEST_F(UsagePass, TakesNeitherTheLastUserSlotNorTheLastRowSlot) {
    for (int i = 1; i <= 64; ++i)
        engine.addUser(i);
    for (int i = 0; i < 32257; ++i)
        engine.addRow(i < 32256 ? 64 - i % 2 * 63 : 2, 1, 1, 10, 1);
    engine.excessBytes = 4096;
    updateTrafficUsageDTable();
    EXPECT_THAT(tableNames(), ElementsAre("1 Media/Video"));
}

TEST_F(UsagePass, ManyRecordsOfTheSameIdsCostNoMoreThanOthers) {
    rig::writeNames("1,Media\n", "1,1,0,Video\n" + std::string(300000, '\n'));
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    updateTrafficUsageDTable(); // in minutes, were each compared with all before it
    EXPECT_THAT(tableNames(), ElementsAre("1 Media/Video"));
}

TEST_F(UsagePass, AnEngineThatFailsIsLoggedAndRetiresWhatWasThere) {
    engine.addUser(1);
    engine.addRow(1, 1, 1, 10, 1);
    updateTrafficUsageDTable();
    rig::setSetting("tud_dbg", "1");
    const std::string retired = "removeUntrackedTrafficUsageDEntry 1368 count: 1\n";
    rig::setTime(1010);
    engine.refusesUsers = true;
    EXPECT_EQ(rig::standardOutput(updateTrafficUsageDTable), "Error: get user!(-2)\n" + retired);
    EXPECT_THAT(rig::tableLines(), ElementsAre(testing::HasSubstr("active 0")));
    engine.refusesUsers = false;
    engine.refusesRows = true;
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(updateTrafficUsageDTable(), -2); }),
              "Error: get app!(-2)\n" + retired);
}

TEST_F(UsagePass, GivesExactlyTheTableOfThePlainNestedWalk) {
    const auto scenes = randomScenes(60);
    const auto play = [&](int (*updateTable)()) {
        std::vector<std::vector<std::string>> tables;
        for (int pass = 0; pass < 240; ++pass) {
            show(scenes[pass / 4], 3000 + 10 * pass);
            updateTable();
            tables.push_back(rig::tableLines());
        }
        freeTrafficUsageDTable();
        return tables;
    };
    const auto plain = play(nestedPass);
    EXPECT_EQ(play(updateTrafficUsageDTable), plain);
    EXPECT_GT(plain.back().size(), 5u); // the comparison was about something
}

// The daemon runs for months: what its passes and reports take, they give back.
TEST_F(UsagePass, AYearOfChurnShortenedEndsWithWhatTheProcessHeldAfterADay) {
    const auto scenes = randomScenes(20); // of ten passes each
    rig::writeDeviceTypes();
    rig::fakeCommand("killall");
    std::vector<double> inUse(2001);
    const std::size_t descriptors = rig::openDescriptors();
    rig::standardOutput([&] {
        for (int pass = 1; pass <= 2000; ++pass) {
            show(scenes[pass / 10 % scenes.size()], 1000 + 10 * pass);
            updateTrafficUsageDTable();
            updateTrafficBuffer();
            if (pass % 500 == 0)
                dumpTrafficUsageDTable();
            inUse[pass] = rig::bytesInUse();
        }
    });
    EXPECT_NEAR(inUse[2000], inUse[200], rig::bytesTolerance);
    EXPECT_EQ(rig::openDescriptors(), descriptors);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_GE(rig::recordedCommands().size(), 4u); // full buffers were reported
}
