#include "bench/router/nested_pass.h"

#include "common/text.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

void nameCandidate(TrafficUsageDEntry &candidate, const devid_app_rate_entry &row,
                   list_head *applications, list_head *categories) {
    if (row.cat_id == 0 && row.app_id == 0) {
        copy_text(candidate.appType, "Others");
        copy_text(candidate.appName, "Others");
        return;
    }
    const char *category = search_app_cat(categories, row.cat_id);
    const char *application = search_app_inf(applications, row.cat_id, row.app_id);
    copy_text(candidate.appType, category != nullptr ? category : "");
    copy_text(candidate.appName, application != nullptr ? application : "");
}

} // namespace

int nestedPass() {
    const auto now = static_cast<std::uint32_t>(time(nullptr));
    devid_user_entry *users = nullptr;
    devid_app_rate_entry *rows = nullptr;
    get_fw_user_list(&users);
    const int status = get_fw_user_app_rate(&rows);
    list_head applications;
    list_head categories;
    list_init(&applications);
    list_init(&categories);
    init_app_inf(&applications);
    init_app_cat(&categories);
    for (int u = 0; u < 63 && users[u].available != 0; ++u) {
        for (int r = 0; r < 32256 && rows[r].available != 0; ++r) {
            if (rows[r].uid != users[u].uid)
                continue;
            TrafficUsageDEntry candidate{};
            candidate.current_uploadBandwidth = static_cast<double>(rows[r].up_accl_byte);
            candidate.current_downloadBandwidth = static_cast<double>(rows[r].down_accl_byte);
            candidate.trafficStartTime = rows[r].last_elapsed_ts;
            nameCandidate(candidate, rows[r], &applications, &categories);
            memcpy(candidate.macAddress, users[u].mac, sizeof candidate.macAddress);
            candidate.vendorId = users[u].os.detail.vendor_id;
            candidate.typeId = users[u].os.detail.type_id;
            candidate.lastSeenTime = now;
            updateTrafficInfo2TrafficUsageDTable(&candidate);
        }
    }
    removeUntrackedTrafficUsageDEntry(now);
    free_app_inf(&applications);
    free_app_cat(&categories);
    free(users);
    free(rows);
    return status;
}
