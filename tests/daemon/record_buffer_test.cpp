#include "trafficUsageDetailsD/record_buffer.h"

#include "analytics/device_lookup.h"
#include "common/text.h"
#include "support/fixture.h"

#include <cstring>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TrafficInfo record(std::uint32_t start, const char *application = "Video") {
    TrafficInfo result{};
    result.macAddress[0] = 0xAB;
    copy_text(result.appType, "Media");
    copy_text(result.appName, application);
    result.trafficStartTime = start;
    result.trafficEndTime = start + 10;
    result.duration = 10;
    result.uploadBandwidth = 3;
    result.downloadBandwidth = 4;
    return result;
}

void save(const TrafficInfo &record) {
    saveTrafficInfo2Buf(&record);
}

void fillBuffer() {
    for (int i = 0; i < MAX_ENTRY; ++i)
        save(record(100 + i));
}

std::string text(const TrafficInfo &record) {
    char line[200];
    snprintf(line, sizeof line, "%s %u-%u %us up %.0f down %.0f", record.appName,
             record.trafficStartTime, record.trafficEndTime, record.duration,
             record.uploadBandwidth, record.downloadBandwidth);
    return line;
}

std::vector<std::string> occupied() {
    std::vector<std::string> slots;
    for (const TrafficInfo &slot : trafficBuffer) {
        if (slot.trafficStartTime != 0)
            slots.push_back(text(slot));
    }
    return slots;
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
    addEntry(0, 8, 0);
    updateTrafficBuffer();
    updateTrafficBuffer(); // once recorded, never again
    EXPECT_THAT(occupied(),
                ElementsAre("Video 50-90 40s up 7 down 0", "Video 50-90 40s up 0 down 8"));
    EXPECT_EQ(upload->accu_uploadBandWidth, 0);
    EXPECT_EQ(upload->current_uploadBandwidth, 7); // later growth is measured from here
}

TEST_F(RecordBuffer, TheRecordThatFindsItFullIsLostAndTheNextFindsItEmpty) {
    fillBuffer();
    addEntry(0, 1, 1);
    addEntry(0, 2, 2);
    updateTrafficBuffer();
    EXPECT_THAT(occupied(), ElementsAre("Video 50-90 40s up 2 down 2"));
    EXPECT_THAT(rig::readFile(TRAFFIC_USAGE_REPORT_FILE),
                HasSubstr("\"numOfTrafficRecrod\":\t294"));
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

TEST_F(RecordBuffer, MissingArgumentsCountAsNo) {
    TrafficInfo r = record(1);
    rig::setSetting("tud_dbg", "1");
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(updateTrafficInfo(nullptr, &r), -1); }),
              "ERRER both in and t is NULL \n");
    EXPECT_EQ(saveTrafficInfo2Buf(nullptr) + resetTrafficInfoEntry(nullptr) +
                  convertTrafficUsageD2TrafficBuf(nullptr, &r) + isTimoutTrafficInfo(nullptr),
              -4);
    EXPECT_EQ(finalizeTrafficInfo(nullptr) + isNoTrafficIncrease(nullptr, &r), 2);
    EXPECT_EQ(isFreeTrafficInfoEntry(nullptr) + isSameTrafficInfoEntry(&r, nullptr) +
                  isTrafficIdle(nullptr, nullptr) + isTrafficInactive(nullptr) +
                  hasCurrentTraffic(nullptr),
              0);
}

TEST_F(RecordBuffer, FreedSlotsAreReusedLowestFirstAndNothingIsMerged) {
    fillBuffer();
    TrafficInfo later = record(500); // of the same device and application as all others
    EXPECT_EQ(findTrafficInfo(&later), &trafficBuffer[0]);
    later.typeId = 3;
    EXPECT_EQ(findTrafficInfo(&later), nullptr);
    resetTrafficInfoEntry(&trafficBuffer[293]);
    resetTrafficInfoEntry(&trafficBuffer[7]);
    save(later);
    EXPECT_EQ(findTrafficInfo(&later), &trafficBuffer[7]);
    EXPECT_EQ(findFreeTrafficInfo(), &trafficBuffer[293]);
    EXPECT_EQ(occupied().size(), 293u);
}

TEST_F(RecordBuffer, FinalizingMovesTheEndByAtMostTheIdleTimeOut) {
    const std::pair<std::time_t, const char *> rows[] = {
        {310, "Video 100-310 210s up 3 down 4"}, // the time-out is 20 passes of 10 seconds
        {311, "Video 100-310 210s up 3 down 4"},
        {105, "Video 100-105 5s up 3 down 4"}, // the clock went back
    };
    rig::setSetting("tud_max_idle_time", "20");
    for (const auto &[now, finalized] : rows) {
        TrafficInfo r = record(100);
        rig::setTime(now);
        EXPECT_EQ(finalizeTrafficInfo(&r), 1); // still open
        r.flags = 1;
        EXPECT_EQ(finalizeTrafficInfo(&r), 0);
        EXPECT_EQ(text(r), finalized);
        EXPECT_EQ(r.flags, 2u);
    }
}

TEST_F(RecordBuffer, TheDumpListsOccupiedSlotsOnly) {
    trafficBuffer[5] = record(100, "50%% off%s");
    trafficBuffer[5].typeId = -1;
    rig::setSetting("tud_dbg", "1");
    const auto title = [stars = std::string(80, '*') + "\n"](const std::string &text) {
        return stars + "*************************Dump memory buffer " + text + "\n" + stars;
    };
    EXPECT_EQ(rig::standardOutput([] { dumpMemoryBuffer(); }),
              title("start*******************************") +
                  "\tflags=0x0\n\tmacAddress=ab:00:00:00:00:00\n\typeId:-1\n\tappType=Media\n"
                  "\tappName=50% off\n\ttrafficStartTime=100\n\ttrafficEndTime=110\n"
                  "\tduration=10\n\tuploadBandWidth=3\n\tdownloadBandWidth=4\n\n" +
                  title("end*********************************"));
}
