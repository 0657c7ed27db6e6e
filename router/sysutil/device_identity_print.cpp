// The diagnostic side of the device identity table.
#include "platform/nvram.h"
#include "sysutil/device_identity.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <endian.h>

namespace {

bool debugging() {
    return kelpNvramConfig_match("dev_id_debug", "1") == 1;
}

template <std::size_t Width>
void print_field(const char *label, const char (&text)[Width]) {
    printf("[print_dev_table][%d]%s: %.*s\n", __LINE__, label, static_cast<int>(Width), text);
}

void print_field(const char *label, std::int32_t value) {
    printf("[print_dev_table][%d]%s: %d\n", __LINE__, label,
           static_cast<std::int32_t>(le32toh(static_cast<std::uint32_t>(value))));
}

void print_record(const devDataStructure &record) {
    print_field("srcUsr devNameByUser", record.devNameByUser);
    print_field("srcUsr devTypeName", record.devTypeName_usr);
    print_field("srcUsr devTypeIndex", record.devTypeIndex_usr);
    print_field("srcUsr devModelByUser", record.devModelByUser);
    print_field("srcVOSK devNameByVOSK", record.devNameByVOSK);
    print_field("srcVOSK devTypeName", record.devTypeName_vosk);
    print_field("srcVOSK devTypeIndex", record.devTypeIndex_vosk);
    print_field("srcFingResult devTypeByFing", record.devTypeByFing);
    print_field("srcFingResult devBrandByFing", record.devBrandByFing);
    print_field("srcFingResult devModelByFing", record.devModelByFing);
    print_field("srcFingResult devOSByFing", record.devOSByFing);
    print_field("srcFingResult devOSVerByFing", record.devOSVerByFing);
    print_field("srcFingResult devMacVendor", record.devMacVendor);
    print_field("srcDhcp devDhcpVendor", record.devDhcpVendor);
    print_field("srcDhcp devDhcpHostName", record.devDhcpHostName);
    print_field("srcDhcp devDhcpOpts", record.devDhcpOpts);
    print_field("srcBasic devHostName", record.devHostName);
    print_field("srcBasic devMacAddr", record.devMacAddr);
    print_field("srcBasic devIpAddr", record.devIpAddr);
    print_field("srcBasic devConnInteface", record.devConnInteface);
    print_field("srcBasic devConnStat", record.devConnStat);
    print_field("srcBasic lastUpdateTime", record.lastUpdateTime);
    print_field("srcLegacy devTypeName(qos)", record.devTypeName_legacyQos);
    print_field("srcLegacy devTypeIndex(qos)", record.devTypeIndex_legacyQos);
    print_field("srcLegacy devTypeName(usr)", record.devTypeName_legacyUsr);
    print_field("srcLegacy devTypeIndex(usr)", record.devTypeIndex_legacyUsr);
}

} // namespace

void DEBUG_INFO(const char *format, ...) {
    if (!debugging())
        return;
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
}

void print_dev_table(devIdNode *first) {
    if (!debugging()) // asked once, not for each of the thousands of fields
        return;
    for (const devIdNode *node = first; node != nullptr; node = node->next)
        print_record(node->data);
}
