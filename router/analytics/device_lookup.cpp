#include "analytics/device_lookup.h"

#include "common/file.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "platform/nvram.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <endian.h>
#include <unistd.h>

namespace {

constexpr int kMostUsers = IDPFW_USER_SLOTS - 1;

// Deliberately leaves the last byte alone: the callers hand in zeroed storage.
void copy_unterminated(char *destination, int size, const char *source) {
    if (size >= 1)
        strncpy(destination, source, static_cast<std::size_t>(size) - 1);
}

struct Query {
    int vendor_id;
    int type_id;
    int dev_id; // 0 for any
};

int copy_identity(Query query, char *dev_os::*text, const char *fallback, char *dst, int size) {
    list_head devices = LIST_HEAD_INIT(devices);
    init_dev_os(&devices);
    const dev_os *found = search_dev_os(&devices, static_cast<unsigned int>(query.vendor_id), 0, 0,
                                        static_cast<unsigned int>(query.type_id),
                                        static_cast<unsigned int>(query.dev_id), 0);
    copy_unterminated(dst, size, found != nullptr ? found->*text : fallback);
    free_dev_os(&devices);
    return 0;
}

const devid_user_entry *find_user(const devid_user_entry *users, const unsigned char *mac) {
    for (int i = 0; i < kMostUsers && users[i].available != 0; ++i) {
        if (memcmp(users[i].mac, mac, sizeof users[i].mac) == 0)
            return &users[i];
    }
    return nullptr;
}

void fill_detail(QosDetail *detail, const devid_os_detail &ids) {
    const int vendor_id = le16toh(ids.vendor_id);
    const int type_id = le16toh(ids.type_id);
    const int dev_id = le16toh(ids.dev_id);
    char device_type[64] = "";
    char vendor_name[64] = "";
    char device_name[64] = "";
    getDeviceTypeByDeviceId(vendor_id, type_id, device_type, sizeof device_type);
    getVendorTypeByDeviceId(vendor_id, type_id, vendor_name, sizeof vendor_name);
    getDeviceNameByDeviceId(vendor_id, type_id, dev_id, device_name, sizeof device_name);

    copy_unterminated(detail->device_type, sizeof detail->device_type, device_type);
    copy_unterminated(detail->device_name, sizeof detail->device_name, device_name);
    copy_unterminated(detail->vendor_name, sizeof detail->vendor_name, vendor_name);
    detail->dev_id = static_cast<uint32_t>(dev_id);
    printf("device_type: %s, device_name: %s, vendor_name: %s\n", device_type, device_name,
           vendor_name);
}

} // namespace

int getDeviceTypeByDeviceId(int vendor_id, int type_id, char *dst, int size) {
    return copy_identity({vendor_id, type_id, 0}, &dev_os::type_name, "unknown", dst, size);
}

int getVendorTypeByDeviceId(int vendor_id, int type_id, char *dst, int size) {
    return copy_identity({vendor_id, type_id, 0}, &dev_os::vendor_name, "unknown", dst, size);
}

int getDeviceNameByDeviceId(int vendor_id, int type_id, int dev_id, char *dst, int size) {
    return copy_identity({vendor_id, type_id, dev_id}, &dev_os::dev_name, "Unknown", dst, size);
}

int getQosDetailByMac(QosDetail *detail, const unsigned char mac[6]) {
    devid_user_entry *table = nullptr;
    const int result = get_fw_user_list(&table);
    const Allocated<devid_user_entry> users(table);
    if (!users)
        return result;
    if (const devid_user_entry *user = find_user(users.get(), mac))
        fill_detail(detail, user->os.detail);
    return result;
}

char *get_hwRevision(char *out) {
    constexpr struct {
        const char *board;
        const char *label;
    } kRevisions[] = {
        {"B34K810A00", "V1"},
        {"B34K810A51", "V1H2"},
        {"B34K810A50", "QorvoCostDown"},
    };
    const char *label = "";
    for (const auto &revision : kRevisions) {
        if (kelpNvramConfig_match("hw_rev", revision.board) == 1) {
            label = revision.label;
            break;
        }
    }
    return strcpy(out, label);
}

int ra_need_update_traffic_usage_details(void) {
    if (kelpNvramConfig_match("enable_trafficUsageDetails", "1") != 1) {
        unlink(TRAFFIC_USAGE_REPORT_FILE);
        return 0;
    }
    const bool applies = kelpNvramConfig_match("sku_name", "NA") == 1;
    return applies && access(TRAFFIC_USAGE_REPORT_FILE, F_OK) == 0 ? 1 : 0;
}
