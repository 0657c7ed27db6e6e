// What the tests of the daemon share: an empty table and buffer, samples of what goes into them,
// and the table as text.
#pragma once

#include "common/text.h"
#include "support/fixture.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

namespace rig {

class DaemonFixture : public Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        setTime(1000);
        std::fill_n(trafficBuffer, MAX_ENTRY, TrafficInfo{});
    }
    void TearDown() override { freeTrafficUsageDTable(); }
};

inline TrafficUsageDEntry candidate(double down, double up, const char *application = "Video") {
    TrafficUsageDEntry result{};
    result.macAddress[5] = 1;
    copy_text(result.appType, "Media");
    copy_text(result.appName, application);
    result.current_downloadBandwidth = down;
    result.current_uploadBandwidth = up;
    result.trafficStartTime = 500;
    result.lastSeenTime = 1000;
    result.accu_downloadBandWidth = result.accu_uploadBandWidth = 7; // no candidate's, as these
    result.trafficEndTime = result.duration = result.idleTimes = 7;
    return result;
}

inline TrafficInfo record(std::uint32_t start, const char *application = "Video") {
    TrafficInfo result{};
    std::iota(result.macAddress, result.macAddress + 6, 0x0a); // 0a:0b:0c:0d:0e:0f
    result.vendorId = 3;
    result.typeId = 4;
    copy_text(result.appType, "Media");
    copy_text(result.appName, application);
    result.trafficStartTime = start;
    result.trafficEndTime = start + 10;
    result.duration = 10;
    result.uploadBandwidth = 3;
    result.downloadBandwidth = 4;
    return result;
}

inline void fillBuffer(int count) {
    for (int i = 0; i < count; ++i)
        trafficBuffer[i] = record(100 + i);
}

// The device database: vendor 3's type 4 is a game console.
inline void writeDeviceTypes() {
    writeFile("/tmp/trend/bwdpi.devdb.db",
              "3,0,0,4,0,0,\"v\",\"o\",\"c\",\"Game console\",\"d\",\"f\"\n");
}

// Every field of every entry in order, so that what differs shows.
inline std::vector<std::string> tableLines() {
    std::vector<std::string> lines;
    for (list_head *link = trafficUsageD_table.next; link != &trafficUsageD_table;
         link = link->next) {
        const auto *e = LIST_RECORD(link, TrafficUsageDEntry, list);
        char line[400];
        snprintf(line, sizeof line,
                 "%d %s/%s down %.0f of %.0f up %.0f of %.0f %u-%u %us active %d idle %u "
                 "seen %u ids %d/%d",
                 e->macAddress[5], e->appType, e->appName, e->accu_downloadBandWidth,
                 e->current_downloadBandwidth, e->accu_uploadBandWidth, e->current_uploadBandwidth,
                 e->trafficStartTime, e->trafficEndTime, e->duration, e->active, e->idleTimes,
                 e->lastSeenTime, e->vendorId, e->typeId);
        lines.emplace_back(line);
    }
    return lines;
}

// The lines up to the names: "MAC's last byte, category/application".
inline std::vector<std::string> tableNames() {
    std::vector<std::string> names = tableLines();
    for (auto &name : names)
        name.resize(name.find(" down "));
    return names;
}

} // namespace rig
