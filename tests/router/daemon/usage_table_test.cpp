#include "trafficUsageDetailsD/usage_table.h"

#include "daemon_fixture.h"

using rig::candidate;
using rig::tableLines;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TrafficUsageDEntry *first() {
    return LIST_RECORD(trafficUsageD_table.next, TrafficUsageDEntry, list);
}

void fold(TrafficUsageDEntry c) {
    updateTrafficInfo2TrafficUsageDTable(&c);
}

} // namespace

class UsageTable : public rig::DaemonFixture {};

TEST_F(UsageTable, AnEntryClosesWithThe31stUnchangedPassAndOpensAgainWithTheNextGrowth) {
    const auto expectOnly = [](const std::string &state) {
        EXPECT_THAT(tableLines(), ElementsAre("1 Media/Video " + state + " seen 1000 ids 0/0"));
    };
    rig::setSetting("tud_max_idle_time", "0"); // below 1 the default holds
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
    rig::setSetting("tud_max_idle_time", "1");
    EXPECT_EQ(getTUDMaxIdleTime(), 1);
}

TEST_F(UsageTable, GrowthIsAddedAsItIsEvenBackwards) {
    fold(candidate(100, 30));
    first()->accu_downloadBandWidth = 1100;
    fold(candidate(10, 31)); // the engine was reset
    EXPECT_THAT(tableLines(), ElementsAre(HasSubstr("down 1010 of 10 up 31 of 31")));
    fold(candidate(5e9, 31)); // beyond 32 bits
    EXPECT_THAT(tableLines(), ElementsAre(HasSubstr("down 5000001000 of 5000000000 up 31 of 31")));
}

TEST_F(UsageTable, IdentityIsMacAndBothNamesAndFoldingTakesTheTypeButNotTheVendor) {
    TrafficUsageDEntry different[4] = {candidate(1, 1), candidate(1, 1), candidate(1, 1, "video"),
                                       candidate(1, 1)};
    different[1].macAddress[0] = 9;
    different[3].appType[0] = 'm';
    for (const TrafficUsageDEntry &each : different)
        fold(each);
    different[0].vendorId = 8;
    different[0].typeId = 7;
    different[0].lastSeenTime = 1010;
    fold(different[0]);
    EXPECT_EQ(tableLines().size(), 4u);
    EXPECT_THAT(tableLines()[0], HasSubstr("idle 1 seen 1010 ids 0/7"));
}

TEST_F(UsageTable, RetiringClosesWhatHoldsTrafficAndDropsTheRest) {
    TrafficUsageDEntry seen = candidate(9, 9, "C");
    seen.lastSeenTime = 1010;
    fold(candidate(0, 5, "A"));
    fold(candidate(0, 0, "B"));
    fold(seen);
    removeUntrackedTrafficUsageDEntry(1010);
    rig::setTime(1020);
    removeUntrackedTrafficUsageDEntry(1010); // the end moves on until the record is made
    EXPECT_THAT(tableLines(),
                ElementsAre(HasSubstr("A down 0 of 0 up 5 of 5 500-1020 520s active 0"),
                            HasSubstr("C down 9 of 9 up 9 of 9 500-0 0s active 1")));
    first()->accu_uploadBandWidth = -3; // only what is above zero counts as traffic
    removeUntrackedTrafficUsageDEntry(1010);
    EXPECT_THAT(rig::tableNames(), ElementsAre("1 Media/C"));
}

TEST_F(UsageTable, ADumpShowsEveryFieldOfEveryEntry) {
    rig::writeDeviceTypes();
    TrafficUsageDEntry entry = candidate(71, 30);
    entry.vendorId = 3;
    entry.typeId = 4;
    fold(entry);
    first()->accu_downloadBandWidth = 8;
    first()->accu_uploadBandWidth = 9;
    first()->idleTimes = 2;
    setActiveTrafficUsageDEntry(first(), 0);
    rig::setSetting("tud_dbg", "1");
    const std::string stars = std::string(80, '*') + "\n", rule = std::string(28, '=') + "\n";
    const auto title = [&](const std::string &what, int after) {
        return stars + std::string(25, '*') + "Dump trafficUsageD table " + what +
               std::string(after, '*') + "\n" + stars;
    };
    EXPECT_EQ(rig::standardOutput(dumpTrafficUsageDTable),
              title("start", 25) + rule +
                  "appType: Media\nappName: Video\nDeviceType: Game console\n"
                  "trafficStartTime: 500\ntrafficEndTime: 1000\n"
                  "current_uploadBandwidth: 30\naccu_uploadBandWidth: 9\n"
                  "current_downloadBandwidth: 71\naccu_downloadBandWidth: 8\n"
                  "duration: 500\nidleTimes: 2\nactive: 0\n" +
                  rule + title("end", 27));
    for (entry.typeId = 0; entry.typeId < 300; ++entry.typeId) // more than are kept in mind
        EXPECT_EQ(addNewEntry2TrafficUsageDTable(&entry), 0);
    rig::standardOutput([] { EXPECT_EQ(dumpTrafficUsageDTable(), 0); });
    EXPECT_EQ(removeUntrackedTrafficUsageDEntry(2000) + freeTrafficUsageDTable(), 0);
}

TEST_F(UsageTable, WithoutAnEntryNothingIsDoneAndNothingHolds) {
    TrafficUsageDEntry entry = candidate(1, 1);
    TrafficUsageDEntry *const none = nullptr;
    for (const int result :
         {updateTrafficInfo2TrafficUsageDTable(none), addNewEntry2TrafficUsageDTable(none),
          setActiveTrafficUsageDEntry(none, 1), updateTrafficUsageDAccuData(none, &entry),
          updateTrafficUsageDAccuData(&entry, none), handleIdleTrafficUsageDEntry(none),
          updateTrafficUsageDDeviceID(none, &entry), updateTrafficUsageDDeviceID(&entry, none),
          touchExistTrafficUsageDEntry(none, &entry), touchExistTrafficUsageDEntry(&entry, none)})
        EXPECT_EQ(result, -1);
    TrafficUsageDEntry inactive = entry;
    entry.active = 1;
    for (const int result :
         {isSameTrafficUsageDEntry(none, &entry), isSameTrafficUsageDEntry(&entry, none),
          isTrafficIdle(none, &entry), isTrafficIdle(&entry, none), isTrafficInactive(none),
          hasCurrentTraffic(none), handleIdleTrafficUsageDEntry(&entry),
          handleIdleTrafficUsageDEntry(&inactive), updateTrafficUsageDAccuData(&entry, &entry),
          touchExistTrafficUsageDEntry(&entry, &entry), setActiveTrafficUsageDEntry(&entry, 1),
          updateTrafficUsageDDeviceID(&entry, &entry),
          updateTrafficInfo2TrafficUsageDTable(&entry)})
        EXPECT_EQ(result, 0);
    const TrafficUsageDEntry others[] = {candidate(1, 2), candidate(2, 1)};
    EXPECT_EQ(isTrafficIdle(&entry, &others[0]) + isTrafficIdle(&entry, &others[1]), 0);
    EXPECT_EQ(isTrafficIdle(&entry, &entry), 1);
}
