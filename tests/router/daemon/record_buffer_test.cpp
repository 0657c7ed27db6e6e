#include "trafficUsageDetailsD/record_buffer.h"

#include "analytics/device_lookup.h"
#include "daemon_fixture.h"

using rig::record;
using testing::ElementsAre;

namespace {

std::vector<std::string> occupied() {
    std::vector<std::string> slots;
    for (const TrafficInfo &slot : trafficBuffer) {
        if (slot.trafficStartTime == 0)
            continue;
        char line[200];
        snprintf(line, sizeof line, "%s %u-%u %us up %.0f down %.0f", slot.appName,
                 slot.trafficStartTime, slot.trafficEndTime, slot.duration, slot.uploadBandwidth,
                 slot.downloadBandwidth);
        slots.emplace_back(line);
    }
    return slots;
}

TrafficUsageDEntry *addEntry(int active, double down, double up) {
    const TrafficUsageDEntry candidate = rig::candidate(down, up);
    addNewEntry2TrafficUsageDTable(&candidate);
    auto *added = LIST_RECORD(trafficUsageD_table.prev, TrafficUsageDEntry, list);
    setActiveTrafficUsageDEntry(added, active);
    return added;
}

void save(const TrafficInfo &record) {
    EXPECT_EQ(saveTrafficInfo2Buf(&record), 0);
}

} // namespace

class RecordBuffer : public rig::DaemonFixture {};

TEST_F(RecordBuffer, TakesInactiveEntriesThatHoldTrafficAndNoOthers) {
    addEntry(1, 5, 5);
    addEntry(0, 0, 0);
    addEntry(0, -5, 0);
    TrafficUsageDEntry *upload = addEntry(0, 0, 7);
    addEntry(0, 8, 0);
    EXPECT_EQ(updateTrafficBuffer(), 0);
    updateTrafficBuffer(); // once recorded, never again
    EXPECT_THAT(occupied(),
                ElementsAre("Video 500-1000 500s up 7 down 0", "Video 500-1000 500s up 0 down 8"));
    EXPECT_EQ(upload->accu_uploadBandWidth, 0);
    EXPECT_EQ(upload->current_uploadBandwidth, 7); // later growth is measured from here
}

TEST_F(RecordBuffer, FillsFreedSlotsLosesTheRecordThatFindsNoneAndIsEmptyForTheNext) {
    rig::fakeCommand("killall");
    rig::fillBuffer(MAX_ENTRY); // all of one device and application: nothing is merged
    resetTrafficInfoEntry(&trafficBuffer[293]);
    resetTrafficInfoEntry(&trafficBuffer[7]);
    save(record(500));
    EXPECT_EQ(trafficBuffer[7].trafficStartTime, 500u);
    save(record(500));
    EXPECT_EQ(dumpEntry() + dumpMemoryBuffer(), 0);
    addEntry(0, 1, 1);
    addEntry(0, 2, 2);
    updateTrafficBuffer();
    EXPECT_THAT(occupied(), ElementsAre("Video 500-1000 500s up 2 down 2"));
    EXPECT_THAT(rig::readFile(TRAFFIC_USAGE_REPORT_FILE),
                testing::HasSubstr("\"numOfTrafficRecrod\":\t294"));
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("killall -SIGUSR2 aws_json"));
}

TEST_F(RecordBuffer, OnlyASlotWhosePeriodBeganAtZeroIsOverwrittenWhole) {
    save(record(0));
    EXPECT_THAT(occupied(), ElementsAre());
    EXPECT_EQ(trafficBuffer[0].trafficEndTime, 10u);
    save(record(200));
    EXPECT_THAT(occupied(), ElementsAre("Video 200-210 10s up 3 down 4"));
    const TrafficInfo later = record(300, "Music");
    updateTrafficInfo(&later, &trafficBuffer[0]); // one in use keeps its start and its end
    EXPECT_THAT(occupied(), ElementsAre("Music 200-210 10s up 3 down 4"));
}

TEST_F(RecordBuffer, ARecordIsFoundByItsDeviceAndNamesAndWithoutOneNothingIsDone) {
    rig::fillBuffer(2);
    trafficBuffer[1] = record(300, "Music");
    TrafficInfo wanted = record(900, "Music");
    wanted.uploadBandwidth = 9;
    EXPECT_EQ(findTrafficInfo(&wanted), &trafficBuffer[1]);
    EXPECT_EQ(isNoTrafficIncrease(&wanted, &trafficBuffer[1]), 0);
    wanted.uploadBandwidth = 3;
    EXPECT_EQ(isNoTrafficIncrease(&wanted, &trafficBuffer[1]), 1);
    wanted.downloadBandwidth = 9;
    EXPECT_EQ(isNoTrafficIncrease(&wanted, &trafficBuffer[1]), 0);
    TrafficInfo different[3] = {wanted, wanted, wanted};
    different[0].macAddress[5] = 9;
    different[1].appType[0] = 'm';
    different[2].typeId = 9;
    for (const TrafficInfo &other : different)
        EXPECT_EQ(findTrafficInfo(&other), nullptr);
    TrafficUsageDEntry entry{};
    for (const int result :
         {convertTrafficUsageD2TrafficBuf(nullptr, &wanted),
          convertTrafficUsageD2TrafficBuf(&entry, nullptr), updateTrafficInfo(nullptr, &wanted),
          updateTrafficInfo(&wanted, nullptr), resetTrafficInfoEntry(nullptr),
          dumpAEntry(0, nullptr), saveTrafficInfo2Buf(nullptr), isTimoutTrafficInfo(&wanted)})
        EXPECT_EQ(result, -1);
    for (const int result :
         {isFreeTrafficInfoEntry(nullptr), isSameTrafficInfoEntry(nullptr, &wanted),
          isSameTrafficInfoEntry(&wanted, nullptr), isNoTrafficIncrease(nullptr, &wanted) - 1,
          isNoTrafficIncrease(&wanted, nullptr) - 1, resetTrafficInfoEntry(&different[0]),
          convertTrafficUsageD2TrafficBuf(&entry, &wanted)})
        EXPECT_EQ(result, 0);
}
