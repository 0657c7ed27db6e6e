// The usage table as text, for tests that compare it.
#pragma once

#include "trafficUsageDetailsD/usage_table.h"

#include <cstdio>
#include <string>
#include <vector>

namespace rig {

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
