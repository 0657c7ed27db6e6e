#include "bench/router/router_in_memory.h"

#include "dpi/usr_ioctl.h"
#include "platform/nvram.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <sys/ioctl.h>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kUsers = 63;
constexpr std::size_t kApplications = 512;
constexpr std::size_t kCategories = 16;

std::vector<devid_user_entry> users;
std::vector<devid_app_rate_entry> rows;
std::size_t reads;

struct Setting {
    const char *name;
    const char *value;
};
constexpr Setting kSettings[] = {
    {"tud_dbg", "0"}, {"enable_trafficUsageDetails", "1"}, {"tud_max_idle_time", "1000000000"}};

const char *settingOf(const char *name) {
    ++reads;
    for (const Setting &setting : kSettings) {
        if (strcmp(setting.name, name) == 0)
            return setting.value;
    }
    return "";
}

template <typename Record>
void answer(const std::vector<Record> &records, forward_ioctl *header) {
    const std::size_t bytes = records.size() * sizeof(Record);
    memcpy(header->out, records.data(), bytes);
    *header->out_used_len = static_cast<std::uint32_t>(bytes);
}

void writeDatabases() {
    std::ofstream applications("/tmp/trend/bwdpi.app.db");
    std::ofstream categories("/tmp/trend/bwdpi.cat.db");
    for (std::size_t i = 0; i < kApplications; ++i)
        applications << i % kCategories + 1 << ',' << i << ",0,Application No " << i * 7 + 1111
                     << '\n';
    for (std::size_t i = 1; i <= kCategories; ++i)
        categories << i << ",Category " << i + 110 << '\n';
    std::ofstream devices("/tmp/trend/bwdpi.devdb.db");
    for (int i = 0; i < 5000; ++i)
        devices << i / 50 << ",1,2," << i % 50 << ",4,5,\"Vendor\",\"OS\",\"Class\",\"Type " << i
                << "\",\"Device\",\"Family\"\n";
}

} // namespace

void fillEngine(std::size_t count) {
    writeDatabases();
    std::ofstream("/dev/idpfw");
    users.assign(kUsers, {});
    for (std::size_t i = 0; i < kUsers; ++i) {
        users[i].uid = static_cast<std::uint8_t>(i + 1);
        users[i].mac[5] = users[i].uid;
        users[i].available = 1;
    }
    rows.assign(count, {});
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t application = i / kUsers;
        rows[i].uid = static_cast<std::uint8_t>(i % kUsers + 1);
        rows[i].cat_id = static_cast<std::uint8_t>(application % kCategories + 1);
        rows[i].app_id = static_cast<std::uint16_t>(application);
        rows[i].last_elapsed_ts = 1000;
        rows[i].available = 1;
    }
}

void growRows() {
    for (auto &row : rows) {
        row.up_accl_byte += 100;
        row.down_accl_byte += 1000;
    }
}

void reverseRows() {
    std::reverse(rows.begin(), rows.end());
}

std::size_t settingReads() {
    return std::exchange(reads, 0);
}

extern "C" int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    auto *header = va_arg(arguments, forward_ioctl *);
    va_end(arguments);
    if (request == IDPFW_REQUEST(IDPFW_NR_USER))
        answer(users, header);
    else
        answer(rows, header);
    return 0;
}

const char *kelpNvramConfig_get(const char *name) {
    return settingOf(name);
}

int kelpNvramConfig_match(const char *name, const char *value) {
    return strcmp(settingOf(name), value) == 0 ? 1 : 0;
}
