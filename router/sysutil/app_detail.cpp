#include "sysutil/app_detail.h"

#include "common/file.h"
#include "common/text.h"
#include "sysutil/node_list.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

constexpr const char *kReport = "/tmp/iqos_detail";
constexpr int kLineSize = 128;
constexpr unsigned int kLargestDeviceType = 51;
constexpr const char *kRule = "==============================================";

// Every text field has this shape.
using Text = char[32];

// Values are the third word of a line; one that is missing leaves the field as it was.
bool third_word(const char *line, char (&word)[kLineSize]) {
    return sscanf(line, "%*s %*s %127s", word) == 1;
}

void read_number(const char *line, int &field) {
    char word[kLineSize];
    if (third_word(line, word))
        field = decimal_value(word);
}

void read_number(const char *line, double &field) {
    char word[kLineSize];
    if (third_word(line, word))
        field = strtod(word, nullptr);
}

// The rest of the line behind the second word, the blank before it included: deliberate. An "@"
// ends it: the reader of a line put one in the place of its line end.
bool read_text(const char *line, Text &field) {
    Text text;
    if (sscanf(line, "%*s%*s%31[^@]", text) != 1)
        return false;
    copy_text(field, text);
    return true;
}

void read_device_type(const char *line, int &field) {
    read_number(line, field);
    if (static_cast<unsigned int>(field) > kLargestDeviceType) {
        printf("[getIQoSDetailBymac][%d]device type[%d] out of range!\n", __LINE__, field);
        field = 0;
    }
}

struct DeviceKey {
    const char *key;
    std::size_t length; // how much of the key a line must begin with
    void (*read)(const char *line, iqos_detail &detail);
};

// The first match counts. Some are compared less their last letter: deliberate.
constexpr DeviceKey kDeviceKeys[] = {
    {"default_priority", 16, [](auto *line, auto &d) { read_number(line, d.default_priority); }},
    {"dev_type_id", 11, [](auto *line, auto &d) { read_device_type(line, d.dev_type_id); }},
    {"dev_type_name", 13, [](auto *line, auto &d) { read_text(line, d.dev_type_name); }},
    {"trend_dev_name", 14, [](auto *line, auto &d) { read_text(line, d.trend_dev_name); }},
    {"trend_dev_type_id", 17,
     [](auto *line, auto &d) {
         Text text;
         if (read_text(line, text))
             d.trend_dev_type_id = decimal_value(text);
     }},
    {"trend_dev_type_name", 18,
     [](auto *line, auto &d) { read_text(line, d.trend_dev_type_name); }},
    {"app_count", 9, [](auto *line, auto &d) { read_number(line, d.app_count); }},
    {"total_diff_down_byte", 19,
     [](auto *line, auto &d) { read_number(line, d.total_diff_down_byte); }},
    {"total_diff_up_byte", 17,
     [](auto *line, auto &d) { read_number(line, d.total_diff_up_byte); }},
    {"total_diff_traffic", 17,
     [](auto *line, auto &d) { read_number(line, d.total_diff_traffic); }},
};
constexpr const DeviceKey *kLastDeviceKey = &kDeviceKeys[std::size(kDeviceKeys) - 1];

const DeviceKey *device_key(const char *line) {
    for (const DeviceKey &key : kDeviceKeys) {
        if (strncmp(line, key.key, key.length) == 0)
            return &key;
    }
    return nullptr;
}

struct AppKey {
    const char *key;
    void (*read)(const char *line, dev_app &app);
};

constexpr AppKey kAppKeys[] = {
    {"app_name", [](auto *line, auto &app) { read_text(line, app.app_name); }},
    {"down_diff_byte", [](auto *line, auto &app) { read_number(line, app.down_diff_byte); }},
    {"down_diff_pkt", [](auto *line, auto &app) { read_number(line, app.down_diff_pkt); }},
    {"up_diff_byte", [](auto *line, auto &app) { read_number(line, app.up_diff_byte); }},
    {"up_diff_pkt", [](auto *line, auto &app) { read_number(line, app.up_diff_pkt); }},
    {"last_used_ts",
     [](auto *line, auto &app) {
         char word[kLineSize];
         if (third_word(line, word))
             app.last_used_ts = truncated_value(word);
     }},
};
constexpr const AppKey *kLastAppKey = &kAppKeys[std::size(kAppKeys) - 1];

const AppKey *app_key(const char *line) {
    for (const AppKey &key : kAppKeys) {
        if (stristr(line, key.key) != nullptr)
            return &key;
    }
    return nullptr;
}

// The next line, its line end replaced by "@".
bool read_marked_line(FILE *report, char (&line)[kLineSize]) {
    if (!read_line(report, line, kLineSize))
        return false;
    const std::size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[length - 1] = '@';
    return true;
}

// Reads up to and with the first line that holds the MAC text.
bool find_device(FILE *report, const char *mac_text) {
    char line[kLineSize];
    while (read_line(report, line, kLineSize)) {
        if (stristr(line, mac_text) != nullptr)
            return true;
    }
    return false;
}

void read_device(FILE *report, iqos_detail &detail) {
    char line[kLineSize];
    while (read_marked_line(report, line)) {
        const DeviceKey *const key = device_key(line);
        if (key == nullptr)
            continue;
        key->read(line, detail);
        if (key == kLastDeviceKey)
            return;
    }
}

void read_apps(FILE *report, devAppNode **head) {
    dev_app app{}; // not cleared between blocks: a key that one lacks keeps its value, deliberately
    char line[kLineSize];
    while (read_marked_line(report, line) && stristr(line, "app_count") == nullptr) {
        const AppKey *const key = app_key(line);
        if (key == nullptr)
            continue;
        key->read(line, app);
        if (key == kLastAppKey)
            addDevAppNodeToList(head, app);
    }
}

} // namespace

int getIQoSDetailBymac(iqos_detail *out, const char *mac_text) {
    const File report(fopen(kReport, "r"));
    if (!report) {
        perror(kReport);
        return 0;
    }
    *out = {};
    if (find_device(report.get(), mac_text))
        read_device(report.get(), *out);
    print_iqos_config_detail(*out);
    return 0;
}

int getIQoSAppListBymac(devAppNode **head, const char *mac_text) {
    const File report(fopen(kReport, "r"));
    if (!report) {
        perror(kReport);
        return 0;
    }
    if (find_device(report.get(), mac_text))
        read_apps(report.get(), head);
    print_all_iqos_app_detail(*head);
    return 0;
}

// The records may come from a caller: their texts are read with their width.
void print_iqos_config_detail(iqos_detail detail) {
    printf("[%s][%d]%s\n", __func__, __LINE__, kRule);
    printf("[%s][%d]default_priority: %d\n", __func__, __LINE__, detail.default_priority);
    printf("[%s][%d]dev_type_id: %d\n", __func__, __LINE__, detail.dev_type_id);
    printf("[%s][%d]dev_type_name: %.32s\n", __func__, __LINE__, detail.dev_type_name);
    printf("[%s][%d]trend_dev_name: %.32s\n", __func__, __LINE__, detail.trend_dev_name);
    printf("[%s][%d]trend_dev_type_id: %d\n", __func__, __LINE__, detail.trend_dev_type_id);
    printf("[%s][%d]trend_dev_type_name: %.32s\n", __func__, __LINE__, detail.trend_dev_type_name);
    printf("[%s][%d]app_count: %d\n", __func__, __LINE__, detail.app_count);
    printf("[%s][%d]total_diff_down_byte: %f\n", __func__, __LINE__, detail.total_diff_down_byte);
    printf("[%s][%d]total_diff_up_byte: %f\n", __func__, __LINE__, detail.total_diff_up_byte);
    printf("[%s][%d]total_diff_traffic: %f\n", __func__, __LINE__, detail.total_diff_traffic);
    printf("[%s][%d]%s\n", __func__, __LINE__, kRule);
}

void print_all_iqos_app_detail(devAppNode *first) {
    for (const devAppNode *node = first; node != nullptr; node = node->next) {
        const dev_app &app = node->data;
        printf("[%s][%d]app_name: %.32s\n", __func__, __LINE__, app.app_name);
        printf("[%s][%d]down_diff_byte: %f\n", __func__, __LINE__, app.down_diff_byte);
        printf("[%s][%d]down_diff_pkt: %f\n", __func__, __LINE__, app.down_diff_pkt);
        printf("[%s][%d]up_diff_byte: %f\n", __func__, __LINE__, app.up_diff_byte);
        printf("[%s][%d]up_diff_pkt: %f\n", __func__, __LINE__, app.up_diff_pkt);
        printf("[%s][%d]last_used_ts: %d\n", __func__, __LINE__, app.last_used_ts);
    }
}

int createDevAppNode(devAppNode **node) {
    *node = create_node<devAppNode>();
    return *node != nullptr ? 0 : -1;
}

int addDevAppNodeToList(devAppNode **head, dev_app record) {
    devAppNode *node = nullptr;
    if (createDevAppNode(&node) != 0)
        return -1;
    node->data = record;
    append_node(head, node);
    return 0;
}

int removeAllAppNodes(devAppNode **head) {
    if (*head == nullptr) {
        printf("[%s][%d]node not exist.\n", __func__, __LINE__);
        return -1;
    }
    free_nodes(*head);
    *head = nullptr;
    return 0;
}
