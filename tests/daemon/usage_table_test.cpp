#include "trafficUsageDetailsD/usage_table.h"

#include "common/text.h"
#include "support/fixture.h"

#include <limits>

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

int length() {
    int count = 0;
    for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
         link = link->next)
        ++count;
    return count;
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

TEST_F(UsageTable, ANewEntryIsCreditedWithAllThatTheEngineCounted) {
    fold(candidate(70, 30));
    EXPECT_EQ(first()->accu_downloadBandWidth, 70);
    EXPECT_EQ(first()->accu_uploadBandWidth, 30);
    EXPECT_EQ(first()->current_downloadBandwidth, 70);
    EXPECT_EQ(first()->trafficStartTime, 500u);
    EXPECT_EQ(first()->trafficEndTime, 0u);
    EXPECT_EQ(first()->active, 1);
    EXPECT_EQ(first()->lastSeenTime, 1000u);
}

TEST_F(UsageTable, GrowthIsAddedAsItIsEvenBackwards) {
    struct {
        double down, up, accumulatedDown, accumulatedUp;
    } const rows[] = {
        {150, 30, 150, 30}, // one side alone grows
        {150, 31, 150, 31},
        {10, 5, 10, 5},         // the engine was reset: negative growth is kept
        {1.8e19, 5, 1.8e19, 5}, // the largest counters
    };
    fold(candidate(100, 30));
    for (const auto &row : rows) {
        fold(candidate(row.down, row.up));
        EXPECT_EQ(first()->accu_downloadBandWidth, row.accumulatedDown);
        EXPECT_EQ(first()->accu_uploadBandWidth, row.accumulatedUp);
        EXPECT_EQ(first()->current_downloadBandwidth, row.down);
    }
    EXPECT_EQ(length(), 1);
}

TEST_F(UsageTable, IdentityIsMacAndBothNamesButNeitherVendorNorType) {
    const TrafficUsageDEntry base = candidate(1, 1);
    const auto same = [&](auto change) {
        TrafficUsageDEntry other = base;
        change(other);
        return isSameTrafficUsageDEntry(&base, &other);
    };
    EXPECT_EQ(same([](auto &e) { e.vendorId = e.typeId = 9; }), 1);
    EXPECT_EQ(same([](auto &e) { e.macAddress[0] = 9; }), 0);
    EXPECT_EQ(same([](auto &e) { e.appName[0] = 'v'; }), 0);
    EXPECT_EQ(same([](auto &e) { e.appType[0] = 'm'; }), 0);
    EXPECT_EQ(isSameTrafficUsageDEntry(&base, nullptr), 0);
    EXPECT_EQ(isSameTrafficUsageDEntry(nullptr, &base), 0);
}

TEST_F(UsageTable, FoldingTakesTheTypeButNotTheVendor) {
    fold(candidate(1, 1));
    TrafficUsageDEntry c = candidate(1, 1);
    c.typeId = 7;
    c.vendorId = 8;
    c.lastSeenTime = 1010;
    fold(c);
    EXPECT_EQ(first()->typeId, 7);
    EXPECT_EQ(first()->vendorId, 0);
    EXPECT_EQ(first()->lastSeenTime, 1010u);
}

TEST_F(UsageTable, TheThirtyFirstUnchangedPassMakesAnEntryInactive) {
    fold(candidate(1, 1));
    for (int pass = 1; pass <= 30; ++pass)
        fold(candidate(1, 1));
    EXPECT_EQ(first()->active, 1);
    EXPECT_EQ(first()->idleTimes, 30u);
    rig::setTime(1310);
    fold(candidate(1, 1));
    EXPECT_EQ(first()->active, 0);
    EXPECT_EQ(first()->trafficEndTime, 1310u);
    EXPECT_EQ(first()->duration, 810u);

    rig::setTime(1400); // idle passes of an inactive entry move nothing
    fold(candidate(1, 1));
    EXPECT_EQ(first()->trafficEndTime, 1310u);
    EXPECT_EQ(first()->idleTimes, 31u);

    fold(candidate(2, 1)); // growth re-activates it, its counters are kept
    EXPECT_EQ(first()->active, 1);
    EXPECT_EQ(first()->trafficStartTime, 1400u);
    EXPECT_EQ(first()->trafficEndTime, 0u);
    EXPECT_EQ(first()->duration, 0u);
    EXPECT_EQ(first()->idleTimes, 0u);
    EXPECT_EQ(first()->accu_downloadBandWidth, 2);
}

TEST_F(UsageTable, GrowthStartsTheIdleCountAgain) {
    fold(candidate(1, 1));
    fold(candidate(1, 1));
    fold(candidate(2, 1));
    EXPECT_EQ(first()->idleTimes, 0u);
}

TEST_F(UsageTable, TheIdleLimitIsThirtyUnlessTheSettingIsAtLeastOne) {
    struct {
        const char *setting;
        int passes;
    } const rows[] = {{"", 30},
                      {"0", 30},
                      {"-5", 30},
                      {"abc", 30},
                      {"1", 1},
                      {"7x", 7},
                      {"99999999999", std::numeric_limits<int>::max()}};
    for (const auto &row : rows) {
        rig::setSetting("tud_max_idle_time", row.setting);
        EXPECT_EQ(getTUDMaxIdleTime(), row.passes) << row.setting;
    }
}

TEST_F(UsageTable, RetiringClosesWhatHoldsTrafficAndDropsTheRest) {
    fold(candidate(5, 0, "upload only is none"));
    fold(candidate(0, 0, "nothing"));
    fold(candidate(9, 9, "seen"));
    auto *seen = LIST_RECORD(trafficUsageD_table.prev, TrafficUsageDEntry, list);
    seen->lastSeenTime = 1010;
    rig::setTime(1010);
    removeUntrackedTrafficUsageDEntry(1010);
    EXPECT_EQ(length(), 2);
    EXPECT_EQ(first()->active, 0);
    EXPECT_EQ(first()->trafficEndTime, 1010u);
    EXPECT_EQ(seen->active, 1);

    rig::setTime(1020); // the end moves on in each pass until the record is made
    removeUntrackedTrafficUsageDEntry(1010);
    EXPECT_EQ(first()->trafficEndTime, 1020u);
    first()->accu_downloadBandWidth = -3; // only what is above zero counts as traffic
    removeUntrackedTrafficUsageDEntry(1010);
    EXPECT_EQ(length(), 1);
    EXPECT_EQ(first(), seen);
}

TEST_F(UsageTable, RetiringLogsHowManyEntriesItVisited) {
    rig::setSetting("tud_dbg", "1");
    const auto logged = [] {
        return rig::standardOutput([] { removeUntrackedTrafficUsageDEntry(1010); });
    };
    EXPECT_EQ(logged(), "removeUntrackedTrafficUsageDEntry 1368 count: 0\n");
    addNewEntry2TrafficUsageDTable(nullptr);
    const TrafficUsageDEntry c = candidate(0, 0);
    addNewEntry2TrafficUsageDTable(&c);
    EXPECT_EQ(logged(), "removeUntrackedTrafficUsageDEntry 1368 count: 1\n");
}

TEST_F(UsageTable, MissingArgumentsAreRefusedWithoutChange) {
    const TrafficUsageDEntry c = candidate(1, 1);
    TrafficUsageDEntry entry = c;
    EXPECT_EQ(updateTrafficInfo2TrafficUsageDTable(nullptr), -1);
    EXPECT_EQ(addNewEntry2TrafficUsageDTable(nullptr), -1);
    EXPECT_EQ(setActiveTrafficUsageDEntry(nullptr, 1), -1);
    EXPECT_EQ(updateTrafficUsageDAccuData(&entry, nullptr), -1);
    EXPECT_EQ(updateTrafficUsageDAccuData(nullptr, &c), -1);
    EXPECT_EQ(handleIdleTrafficUsageDEntry(nullptr), -1);
    EXPECT_EQ(updateTrafficUsageDDeviceID(&entry, nullptr), -1);
    EXPECT_EQ(touchExistTrafficUsageDEntry(nullptr, &c), -1);
    EXPECT_EQ(searchTrafficUsageDTable(nullptr), nullptr);
    EXPECT_EQ(length(), 0);
}

TEST_F(UsageTable, TheDumpListsEveryEntryWithItsDeviceType) {
    rig::writeFile("/tmp/trend/bwdpi.devdb.db",
                   "3,0,0,4,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
    TrafficUsageDEntry c = candidate(70, 30, "100%% Live%n");
    c.vendorId = 3;
    c.typeId = 4;
    addNewEntry2TrafficUsageDTable(&c);
    const std::string stars(80, '*');
    const std::string rule(28, '=');
    rig::setSetting("tud_dbg", "1");
    EXPECT_EQ(
        rig::standardOutput([] { dumpTrafficUsageDTable(); }),
        stars + "\n" +
            "*************************Dump trafficUsageD table start*************************\n" +
            stars + "\n" + rule +
            "\nappType: Media\nappName: 100% Live\nDeviceType: Game console\n"
            "trafficStartTime: 500\ntrafficEndTime: 0\n"
            "current_uploadBandwidth: 30\naccu_uploadBandWidth: 30\n"
            "current_downloadBandwidth: 70\naccu_downloadBandWidth: 70\n"
            "duration: 0\nidleTimes: 0\nactive: 1\n" +
            rule + "\n" + stars + "\n" +
            "*************************Dump trafficUsageD table end***************************\n" +
            stars + "\n");
}
