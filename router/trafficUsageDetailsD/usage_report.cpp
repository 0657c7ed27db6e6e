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
    make_utf8(text); // a name in the table may be cut inside a character
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

// The slots whose records stand in a document. They stay in the buffer until it is sure to go out.
struct Taken {
    bool slot[MAX_ENTRY] = {};
    int count = 0;
};

// Adds every record of the buffer to the array. One whose object could not be made is not taken.
Taken addRecords(cJSON *array) {
    DeviceTypes types;
    Taken taken;
    for (int i = 0; i < MAX_ENTRY; ++i) {
        const TrafficInfo &slot = trafficBuffer[i];
        if (isFreeTrafficInfoEntry(&slot) == 1)
            continue;
        dumpAEntry(i, &slot);
        cJSON *object = recordObject(&slot, types);
        if (object == nullptr)
            continue;
        taken.slot[i] = true;
        ++taken.count;
        cJSON_AddItemToArray(array, object);
    }
    return taken;
}

// The whole document, or null; the buffer stays as it is.
Document makeDocument(Taken &taken) {
    Document document(cJSON_CreateObject());
    Document array(cJSON_CreateArray());
    if (document == nullptr || array == nullptr)
        return nullptr;
    taken = addRecords(array.get());
    // The key that consumers expect.
    if (!addNumber(document.get(), "numOfTrafficRecrod", taken.count) ||
        cJSON_AddItemToObject(document.get(), "trafficInfo", array.get()) == 0)
        return nullptr;
    static_cast<void>(array.release()); // the document's from here on
    return document;
}

void giveUp(const Taken &taken) {
    for (int i = 0; i < MAX_ENTRY; ++i) {
        if (taken.slot[i])
            resetTrafficInfoEntry(&trafficBuffer[i]);
    }
}

} // namespace

cJSON *trafficInfoToJson(const TrafficInfo *record) {
    if (record == nullptr)
        return nullptr;
    DeviceTypes types;
    return recordObject(record, types);
}

cJSON *createTrafficUsageDetailObj() {
    Taken taken;
    Document document = makeDocument(taken);
    if (document != nullptr)
        giveUp(taken);
    return document.release();
}

int dumpEntryToJson() {
    Taken taken;
    Document document = makeDocument(taken);
    const PrintedText text(document == nullptr ? nullptr : cJSON_Print(document.get()));
    if (text == nullptr)
        return 0;
    document.reset();
    giveUp(taken);
    ra_output_json_to_file(text.get(), TRAFFIC_USAGE_REPORT_FILE);
    tud_dbg("%s", kBanner);
    tud_dbg("%s\n", text.get());
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
        if (object != nullptr)
            cJSON_AddItemToArray(array.get(), object);
    }
    constexpr const char *kLine =
        "\n========================================================================";
    const PrintedText text(cJSON_Print(array.get()));
    if (text != nullptr && cJSON_GetArraySize(array.get()) > 0)
        resetTrafficInfoEntry(record);
    printf("%s%s%s", kLine, text == nullptr ? "" : text.get(), kLine);
    return 0;
}
