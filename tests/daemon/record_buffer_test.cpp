#include "trafficUsageDetailsD/record_buffer.h"

#include "common/text.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/monitor.h"
#include "trafficUsageDetailsD/usage_report.h"

#include <cstring>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TrafficInfo record(std::uint32_t start, const char *application = "Video") {
    TrafficInfo result{};
    result.macAddress[5] = 1;
    copy_text(result.appType, "Media");
    copy_text(result.appName, application);
    result.trafficStartTime = start;
    result.trafficEndTime = start + 10;
    result.duration = 10;
    result.uploadBandwidth = 3;
    result.downloadBandwidth = 4;
    return result;
}

void fillBuffer() {
    for (int i = 0; i < MAX_ENTRY; ++i) {
        const TrafficInfo r = record(100 + i);
        saveTrafficInfo2Buf(&r);
    }
}

int occupied() {
    int count = 0;
    for (const TrafficInfo &slot : trafficBuffer)
        count += slot.trafficStartTime != 0;
    return count;
}

} // namespace

class RecordBuffer : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        memset(trafficBuffer, 0, sizeof trafficBuffer);
        rig::fakeCommand("killall");
    }
    void TearDown() override { freeTrafficUsageDTable(); }

    static TrafficUsageDEntry *addEntry(int active, double down, double up) {
        TrafficUsageDEntry entry{};
        copy_text(entry.appName, "Video");
        entry.current_downloadBandwidth = down;
        entry.current_uploadBandwidth = up;
        entry.trafficStartTime = 50;
        addNewEntry2TrafficUsageDTable(&entry);
        auto *added = LIST_RECORD(trafficUsageD_table.prev, TrafficUsageDEntry, list);
        added->active = active;
        added->trafficEndTime = 90;
        added->duration = 40;
        return added;
    }
};

TEST_F(RecordBuffer, TakesInactiveEntriesThatHoldTrafficAndNoOthers) {
    addEntry(1, 5, 5);
    addEntry(0, 0, 0);
    addEntry(0, -5, 0);
    TrafficUsageDEntry *upload = addEntry(0, 0, 7);
    TrafficUsageDEntry *download = addEntry(0, 8, 0);
    updateTrafficBuffer();
    ASSERT_EQ(occupied(), 2);
    EXPECT_EQ(trafficBuffer[0].uploadBandwidth, 7);
    EXPECT_EQ(trafficBuffer[1].downloadBandwidth, 8);
    EXPECT_EQ(trafficBuffer[0].trafficStartTime, 50u);
    EXPECT_EQ(trafficBuffer[0].trafficEndTime, 90u);
    EXPECT_EQ(trafficBuffer[0].duration, 40u);
    EXPECT_EQ(upload->accu_uploadBandWidth, 0);
    EXPECT_EQ(upload->current_uploadBandwidth, 7); // later growth is measured from here
    EXPECT_EQ(download->active, 0);
    updateTrafficBuffer(); // once recorded, never again
    EXPECT_EQ(occupied(), 2);
}

TEST_F(RecordBuffer, ReusesFreedSlotsLowestFirstAndNeverMerges) {
    const TrafficInfo r = record(100);
    for (int i = 0; i < 4; ++i)
        saveTrafficInfo2Buf(&r);
    resetTrafficInfoEntry(&trafficBuffer[2]);
    resetTrafficInfoEntry(&trafficBuffer[1]);
    const TrafficInfo later = record(500);
    saveTrafficInfo2Buf(&later);
    EXPECT_EQ(trafficBuffer[1].trafficStartTime, 500u);
    EXPECT_EQ(occupied(), 3);
}

TEST_F(RecordBuffer, TheRecordThatFindsItFullIsLostAndTheNextFindsItEmpty) {
    fillBuffer();
    ASSERT_EQ(occupied(), MAX_ENTRY);
    addEntry(0, 1, 1);
    addEntry(0, 2, 2);
    updateTrafficBuffer();
    EXPECT_EQ(occupied(), 1);
    EXPECT_EQ(trafficBuffer[0].downloadBandwidth, 2);
    EXPECT_THAT(rig::readFile(kReportFile), HasSubstr("\"numOfTrafficRecrod\":\t294"));
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("killall -SIGUSR2 aws_json"));
}

TEST_F(RecordBuffer, APeriodThatBeganAtZeroIsOverwrittenWhole) {
    TrafficInfo zero = record(0);
    zero.trafficEndTime = 77;
    saveTrafficInfo2Buf(&zero);
    EXPECT_EQ(trafficBuffer[0].trafficEndTime, 77u);
    EXPECT_EQ(occupied(), 0);
    const TrafficInfo next = record(200);
    saveTrafficInfo2Buf(&next);
    EXPECT_EQ(trafficBuffer[0].trafficStartTime, 200u);
    EXPECT_EQ(trafficBuffer[0].trafficEndTime, 210u);
}

TEST_F(RecordBuffer, ASlotInUseKeepsItsStartAndItsEnd) {
    TrafficInfo slot = record(100);
    const TrafficInfo later = record(300, "Music");
    EXPECT_EQ(updateTrafficInfo(&later, &slot), 0);
    EXPECT_EQ(slot.trafficStartTime, 100u);
    EXPECT_EQ(slot.trafficEndTime, 110u);
    EXPECT_STREQ(slot.appName, "Music");
}

TEST_F(RecordBuffer, MissingArgumentsCountAsNo) {
    TrafficInfo r = record(1);
    rig::setSetting("tud_dbg", "1");
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(updateTrafficInfo(nullptr, &r), -1); }),
              "ERRER both in and t is NULL \n");
    EXPECT_EQ(saveTrafficInfo2Buf(nullptr), -1);
    EXPECT_EQ(convertTrafficUsageD2TrafficBuf(nullptr, &r), -1);
    EXPECT_EQ(resetTrafficInfoEntry(nullptr), -1);
    EXPECT_EQ(isFreeTrafficInfoEntry(nullptr), 0);
    EXPECT_EQ(isSameTrafficInfoEntry(&r, nullptr), 0);
    EXPECT_EQ(findTrafficInfo(nullptr), nullptr);
    EXPECT_EQ(isTimoutTrafficInfo(nullptr), -1);
    EXPECT_EQ(finalizeTrafficInfo(nullptr), 1);
    EXPECT_EQ(isNoTrafficIncrease(nullptr, &r), 1);
    EXPECT_EQ(isTrafficIdle(nullptr, nullptr), 0);
    EXPECT_EQ(isTrafficInactive(nullptr), 0);
    EXPECT_EQ(hasCurrentTraffic(nullptr), 0);
    EXPECT_EQ(occupied(), 0);
}

TEST_F(RecordBuffer, FindsTheFirstSlotOfTheSameDeviceTypeAndNames) {
    fillBuffer();
    TrafficInfo other = record(1);
    EXPECT_EQ(findTrafficInfo(&other), &trafficBuffer[0]);
    other.typeId = 3;
    EXPECT_EQ(findTrafficInfo(&other), nullptr);
    trafficBuffer[293].typeId = 3;
    EXPECT_EQ(findTrafficInfo(&other), &trafficBuffer[293]);
    EXPECT_EQ(findFreeTrafficInfo(), nullptr);
}

TEST_F(RecordBuffer, FinalizingMovesTheEndByAtMostTheIdleTimeOut) {
    struct {
        std::uint32_t now, end, duration;
    } const rows[] = {
        {310, 310, 210}, // the time-out is 20 passes of 10 seconds
        {311, 310, 210},
        {200, 200, 100},
        {105, 105, 5}, // the clock went back
    };
    rig::setSetting("tud_max_idle_time", "20");
    for (const auto &row : rows) {
        TrafficInfo r = record(100);
        rig::setTime(row.now);
        EXPECT_EQ(finalizeTrafficInfo(&r), 1); // still open
        r.flags = 1;
        EXPECT_EQ(finalizeTrafficInfo(&r), 0);
        EXPECT_EQ(r.trafficEndTime, row.end);
        EXPECT_EQ(r.duration, row.duration);
        EXPECT_EQ(r.flags, 2u);
    }
}

TEST_F(RecordBuffer, TheDumpListsOccupiedSlotsOnly) {
    TrafficInfo r = record(100, "50%% off%s");
    r.macAddress[0] = 0xAB;
    r.typeId = -1;
    trafficBuffer[5] = r;
    rig::setSetting("tud_dbg", "1");
    const std::string stars = std::string(80, '*') + "\n";
    EXPECT_EQ(
        rig::standardOutput([] { dumpMemoryBuffer(); }),
        stars +
            "*************************Dump memory buffer start*******************************\n" +
            stars +
            "\tflags=0x0\n\tmacAddress=ab:00:00:00:00:01\n\typeId:-1\n\tappType=Media\n"
            "\tappName=50% off\n\ttrafficStartTime=100\n\ttrafficEndTime=110\n\tduration=10\n"
            "\tuploadBandWidth=3\n\tdownloadBandWidth=4\n\n" +
            stars +
            "*************************Dump memory buffer end*********************************\n" +
            stars);
}
