#include "trafficUsageDetailsD/usage_table.h"

#include "common/text.h"
#include "support/fixture.h"
#include "table_text.h"

#include <algorithm>
#include <climits>
#include <iterator>

using rig::tableLines;
using testing::ElementsAre;

namespace {

TrafficUsageDEntry candidate(double down, double up, const char *application = "Video") {
    TrafficUsageDEntry result{};
    result.macAddress[5] = 1;
    copy_text(result.appType, "Media");
    copy_text(result.appName, application);
    result.current_downloadBandwidth = down;
    result.current_uploadBandwidth = up;
    result.trafficStartTime = 500;
    result.lastSeenTime = 1000;
    return result;
}

TrafficUsageDEntry *first() {
    return LIST_RECORD(trafficUsageD_table.next, TrafficUsageDEntry, list);
}

} // namespace

class UsageTable : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::setTime(1000);
    }
    void TearDown() override { freeTrafficUsageDTable(); }

    static void fold(TrafficUsageDEntry c) { updateTrafficInfo2TrafficUsageDTable(&c); }
};

TEST_F(UsageTable, AnEntryClosesWithThe31stUnchangedPassAndOpensAgainWithTheNextGrowth) {
    const auto expectOnly = [](const std::string &state) {
        EXPECT_THAT(tableLines(), ElementsAre("1 Media/Video " + state + " seen 1000 ids 0/0"));
    };
    fold(candidate(70, 30));
    expectOnly("down 70 of 70 up 30 of 30 500-0 0s active 1 idle 0"); // all that was counted so far
    fold(candidate(70, 30));
    fold(candidate(71, 30));
    expectOnly("down 71 of 71 up 30 of 30 500-0 0s active 1 idle 0");
    for (int pass = 1; pass <= 30; ++pass)
        fold(candidate(71, 30));
    expectOnly("down 71 of 71 up 30 of 30 500-0 0s active 1 idle 30");
    rig::setTime(1310);
    fold(candidate(71, 30));
    rig::setTime(1400);
    fold(candidate(71, 30)); // idle passes of an inactive entry move nothing
    expectOnly("down 71 of 71 up 30 of 30 500-1310 810s active 0 idle 31");
    fold(candidate(72, 30));
    expectOnly("down 72 of 72 up 30 of 30 1400-0 0s active 1 idle 0");
}

TEST_F(UsageTable, GrowthIsAddedAsItIsEvenBackwards) {
    struct {
        double down, up, accumulatedDown, accumulatedUp;
    } const rows[] = {
        {100, 30, 1100, 30},
        {100, 31, 1100, 31},
        {10, 5, 1010, 5},          // the engine was reset
        {4e15, 5, 4e15 + 1000, 5}, // beyond 32 bits
    };
    fold(candidate(100, 30));
    first()->accu_downloadBandWidth = 1100;
    for (const auto &row : rows) {
        fold(candidate(row.down, row.up));
        EXPECT_EQ(first()->accu_downloadBandWidth, row.accumulatedDown);
        EXPECT_EQ(first()->accu_uploadBandWidth, row.accumulatedUp);
    }
}

TEST_F(UsageTable, IdentityIsMacAndBothNamesAndFoldingTakesTheTypeButNotTheVendor) {
    TrafficUsageDEntry others[4];
    std::fill(std::begin(others), std::end(others), candidate(1, 1));
    others[1].macAddress[0] = 9;
    others[2].appName[0] = 'v';
    others[3].appType[0] = 'm';
    for (const TrafficUsageDEntry &other : others)
        fold(other);
    others[0].vendorId = 8;
    others[0].typeId = 7;
    others[0].lastSeenTime = 1010;
    fold(others[0]);
    EXPECT_EQ(tableLines().size(), 4u);
    EXPECT_EQ(tableLines()[0],
              "1 Media/Video down 1 of 1 up 1 of 1 500-0 0s active 1 idle 1 seen 1010 ids 0/7");
}

TEST_F(UsageTable, TheIdleLimitIsThirtyUnlessTheSettingIsAtLeastOne) {
    const std::pair<const char *, int> rows[] = {
        {"", 30}, {"0", 30}, {"-5", 30}, {"abc", 30}, {"1", 1}, {"7x", 7}, {"99999999999", INT_MAX},
    };
    for (const auto &[setting, passes] : rows) {
        rig::setSetting("tud_max_idle_time", setting);
        EXPECT_EQ(getTUDMaxIdleTime(), passes) << setting;
    }
}

TEST_F(UsageTable, RetiringClosesWhatHoldsTrafficAndDropsTheRest) {
    const auto retire = [](std::time_t now) {
        rig::setTime(now);
        return rig::standardOutput([] { removeUntrackedTrafficUsageDEntry(1010); });
    };
    fold(candidate(5, 0, "A"));
    fold(candidate(0, 0, "B"));
    fold(candidate(0, 9, "C"));
    TrafficUsageDEntry seen = candidate(9, 9, "D");
    seen.lastSeenTime = 1010;
    fold(seen);
    rig::setSetting("tud_dbg", "1");
    EXPECT_EQ(retire(1010), "removeUntrackedTrafficUsageDEntry 1368 count: 4\n");
    EXPECT_THAT(rig::tableNames(), ElementsAre("1 Media/A", "1 Media/C", "1 Media/D"));
    retire(1020); // the end moves on in each pass until the record is made
    EXPECT_EQ(tableLines()[1],
              "1 Media/C down 0 of 0 up 9 of 9 500-1020 520s active 0 idle 0 seen 1000 ids 0/0");
    first()->accu_downloadBandWidth = -3; // only what is above zero counts as traffic
    retire(1030);
    EXPECT_THAT(rig::tableNames(), ElementsAre("1 Media/C", "1 Media/D"));
    EXPECT_THAT(tableLines()[1], testing::HasSubstr("active 1"));
}

TEST_F(UsageTable, MissingArgumentsAreRefusedWithoutChange) {
    const TrafficUsageDEntry c = candidate(1, 1);
    TrafficUsageDEntry entry = c;
    EXPECT_EQ(
        updateTrafficInfo2TrafficUsageDTable(nullptr) + addNewEntry2TrafficUsageDTable(nullptr) +
            setActiveTrafficUsageDEntry(nullptr, 1) + updateTrafficUsageDAccuData(&entry, nullptr) +
            updateTrafficUsageDAccuData(nullptr, &c) + handleIdleTrafficUsageDEntry(nullptr) +
            updateTrafficUsageDDeviceID(&entry, nullptr) +
            touchExistTrafficUsageDEntry(nullptr, &c),
        -8);
    EXPECT_EQ(isSameTrafficUsageDEntry(&c, nullptr), 0);
    EXPECT_THAT(tableLines(), ElementsAre());
}

TEST_F(UsageTable, TheDumpListsEveryEntryWithItsDeviceType) {
    rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                   "3,0,0,4,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
    TrafficUsageDEntry c = candidate(70, 30, "100%% Live%n");
    c.vendorId = 3;
    c.typeId = 4;
    addNewEntry2TrafficUsageDTable(&c);
    const auto title = [stars = std::string(80, '*') + "\n"](const std::string &text) {
        return stars + "*************************Dump trafficUsageD table " + text + "\n" + stars;
    };
    const std::string rule = std::string(28, '=') + "\n";
    rig::setSetting("tud_dbg", "1");
    EXPECT_EQ(rig::standardOutput([] { dumpTrafficUsageDTable(); }),
              title("start*************************") + rule +
                  "appType: Media\nappName: 100% Live\nDeviceType: Game console\n"
                  "trafficStartTime: 500\ntrafficEndTime: 0\n"
                  "current_uploadBandwidth: 30\naccu_uploadBandWidth: 30\n"
                  "current_downloadBandwidth: 70\naccu_downloadBandWidth: 70\n"
                  "duration: 0\nidleTimes: 0\nactive: 1\n" +
                  rule + title("end***************************"));
}
