#include "trafficUsageDetailsD/usage_report.h"

#include "analytics/device_lookup.h"
#include "analytics/report_file.h"
#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/device_types.h"
#include "trafficUsageDetailsD/signals.h"

#include <cstdio>
#include <memory>

namespace {

constexpr int kGenerateLine = 868; // the line number that the log has always carried

constexpr const char *kBanner =
    "\n========================================================================\n";

struct DocumentDeleter {
    void operator()(cJSON *document) const { cJSON_Delete(document); }
};
using Document = std::unique_ptr<cJSON, DocumentDeleter>;

struct TextDeleter {
    void operator()(char *text) const { cJSON_free(text); }
};
using PrintedText = std::unique_ptr<char, TextDeleter>;

bool addNumber(cJSON *object, const char *key, double value) {
    return cJSON_AddNumberToObject(object, key, value) != nullptr;
}

bool addName(cJSON *object, const char *key, const char *name) {
    char text[kNameSize];
    copy_text(text, name);
    return cJSON_AddStringToObject(object, key, text) != nullptr;
}

// The members in the order that consumers of the report see them in.
cJSON *recordObject(const TrafficInfo *record, DeviceTypes &types) {
    Document object(cJSON_CreateObject());
    if (object == nullptr)
        return nullptr;
    const unsigned char *mac = record->macAddress;
    char macText[kNameSize];
    format_text(macText, sizeof macText, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2],
                mac[3], mac[4], mac[5]);
    const char *deviceType = types.name(record->vendorId, record->typeId);
    const bool complete = addName(object.get(), "macAddress", macText) &&
                          addName(object.get(), "devType", deviceType) &&
                          addName(object.get(), "appType", record->appType) &&
                          addName(object.get(), "appName", record->appName) &&
                          addNumber(object.get(), "trafficStartTime", record->trafficStartTime) &&
                          addNumber(object.get(), "trafficEndTime", record->trafficEndTime) &&
                          addNumber(object.get(), "duration", record->duration) &&
                          addNumber(object.get(), "uploadBandwidth", record->uploadBandwidth) &&
                          addNumber(object.get(), "downloadBandwidth", record->downloadBandwidth);
    return complete ? object.release() : nullptr;
}

// Moves every record of the buffer into the array and returns how many there were. A record whose
// object could not be made stays for the next report.
int takeRecords(cJSON *array) {
    DeviceTypes types;
    int count = 0;
    for (int i = 0; i < MAX_ENTRY; ++i) {
        TrafficInfo &slot = trafficBuffer[i];
        if (isFreeTrafficInfoEntry(&slot) == 1)
            continue;
        dumpAEntry(i, &slot);
        cJSON *object = recordObject(&slot, types);
        if (object == nullptr)
            continue;
        ++count;
        resetTrafficInfoEntry(&slot);
        cJSON_AddItemToArray(array, object);
    }
    return count;
}

} // namespace

cJSON *trafficInfoToJson(const TrafficInfo *record) {
    if (record == nullptr)
        return nullptr;
    DeviceTypes types;
    return recordObject(record, types);
}

cJSON *createTrafficUsageDetailObj() {
    Document document(cJSON_CreateObject());
    Document array(cJSON_CreateArray());
    if (document == nullptr || array == nullptr)
        return nullptr;
    const int count = takeRecords(array.get());
    addNumber(document.get(), "numOfTrafficRecrod", count); // the key that consumers expect
    if (cJSON_AddItemToObject(document.get(), "trafficInfo", array.get()) != 0)
        static_cast<void>(array.release()); // the document's from here on
    return document.release();
}

int dumpEntryToJson() {
    Document document(createTrafficUsageDetailObj());
    if (document == nullptr)
        return 0;
    const PrintedText printed(cJSON_Print(document.get()));
    document.reset();
    const char *text = printed == nullptr ? "" : printed.get();
    ra_output_json_to_file(text, TRAFFIC_USAGE_REPORT_FILE);
    tud_dbg("%s", kBanner);
    tud_dbg("%s\n", text);
    tud_dbg("%s", kBanner);
    return 0;
}

int generateTudJson() {
    tud_dbg("%s(%d) got_sigusr1=%d\n", __func__, kGenerateLine, static_cast<int>(got_sigusr1));
    got_sigusr1 = 0;
    dumpEntry();
    return dumpEntryToJson();
}

int sendTUDReport2Cloud() {
    run_shell("killall -SIGUSR2 aws_json");
    return 0;
}

int dumpAEntryToJson(TrafficInfo *record) {
    if (record == nullptr)
        return -1;
    const Document array(cJSON_CreateArray());
    if (array == nullptr)
        return -1;
    if (record->flags != 0) {
        dumpAEntry(0, record);
        cJSON *object = finalizeTrafficInfo(record) == 0 ? trafficInfoToJson(record) : nullptr;
        if (object != nullptr) {
            cJSON_AddItemToArray(array.get(), object);
            resetTrafficInfoEntry(record);
        }
    }
    constexpr const char *kLine =
        "\n========================================================================";
    const PrintedText text(cJSON_Print(array.get()));
    printf("%s%s%s", kLine, text == nullptr ? "" : text.get(), kLine);
    return 0;
}
