#include "dpi/conf_app.h"

#include "dpi/database.h"
#include "dpi/line_scanner.h"

namespace {

constexpr const char *kMappingFile = "/tmp/trend/TmToVosk_dev_mapping";
constexpr const char *kRuleFile = "/tmp/trend/bwdpi.rule.db";

constexpr int kDeviceLineSize = 400;
constexpr int kLineSize = 256;
constexpr int kNameSize = 100;

constexpr OwnedTexts<dev_os, 6> kOwnedByDevice = {&dev_os::vendor_name, &dev_os::os_name,
                                                  &dev_os::class_name,  &dev_os::type_name,
                                                  &dev_os::dev_name,    &dev_os::family_name};
constexpr uint32_t dev_os::*kDeviceIds[6] = {&dev_os::vendor_id, &dev_os::os_id,
                                             &dev_os::class_id,  &dev_os::type_id,
                                             &dev_os::dev_id,    &dev_os::family_id};
constexpr OwnedTexts<dev_mapping, 2> kOwnedByMapping = {&dev_mapping::tm_name,
                                                        &dev_mapping::vosk_name};
// A rule has the shape of a category.
constexpr OwnedTexts<app_cat, 1> kOwnedByRule = {&app_cat::cat_name};

void scan_quoted(LineScanner &scan, char (&name)[kNameSize]) {
    scan.literal('"').text_until("\"", name).literal('"');
}

bool matches_or_any(uint32_t id, unsigned int query) {
    return query == 0 || id == query;
}

} // namespace

int init_dev_os(list_head *head) {
    const File file = open_listed_database(kDevOsDatabase, {"init_dev_os", 336});
    if (!file)
        return -1;
    // Deliberately kept from line to line: a line that does not fit repeats the one before.
    static char names[6][kNameSize];
    uint32_t ids[6] = {};
    for_each_stripped_line<kDeviceLineSize>(file.get(), [&](const char *line) {
        LineScanner scan(line);
        for (uint32_t &id : ids)
            scan.number(id).literal(',');
        for (std::size_t i = 0; i < 6; ++i) {
            if (i > 0)
                scan.literal(',');
            scan_quoted(scan, names[i]);
        }
        dev_os *record = append_record<dev_os>(
            head, kOwnedByDevice, {names[0], names[1], names[2], names[3], names[4], names[5]});
        if (record == nullptr)
            return;
        for (std::size_t i = 0; i < 6; ++i)
            record->*kDeviceIds[i] = ids[i];
    });
    return 0;
}

dev_os *search_dev_os(list_head *head, unsigned int vendor_id, unsigned int os_id,
                      unsigned int class_id, unsigned int type_id, unsigned int dev_id,
                      unsigned int family_id) {
    dev_os *fallback = nullptr;
    dev_os *found = find_record<dev_os>(head, [&](dev_os &candidate) {
        // No wildcard for the vendor: 0 asks for vendor 0.
        if (candidate.vendor_id != vendor_id || !matches_or_any(candidate.os_id, os_id))
            return false;
        fallback = &candidate;
        return matches_or_any(candidate.class_id, class_id) &&
               matches_or_any(candidate.type_id, type_id) &&
               matches_or_any(candidate.dev_id, dev_id) &&
               matches_or_any(candidate.family_id, family_id);
    });
    return found != nullptr ? found : fallback;
}

void free_dev_os(list_head *head) {
    free_records<dev_os>(head, kOwnedByDevice);
}

int init_dev_mapping(list_head *head) {
    const File file = open_database(kMappingFile, {"init_dev_mapping", 467});
    if (!file)
        return -1;
    // Kept from line to line, as in init_dev_os.
    static char tm_name[kNameSize];
    static char vosk_name[kNameSize];
    uint32_t tm_id = 0;
    uint32_t vosk_id = 0;
    for_each_stripped_line<kLineSize>(file.get(), [&](const char *line) {
        LineScanner scan(line);
        scan_quoted(scan.number(tm_id).literal(','), tm_name);
        scan_quoted(scan.literal(',').number(vosk_id).literal(','), vosk_name);
        dev_mapping *record =
            append_record<dev_mapping>(head, kOwnedByMapping, {tm_name, vosk_name});
        if (record == nullptr)
            return;
        record->tm_id = tm_id;
        record->vosk_id = vosk_id;
    });
    return 0;
}

dev_mapping *search_dev_mapping(list_head *head, unsigned int tm_id) {
    return find_record<dev_mapping>(
        head, [=](const dev_mapping &candidate) { return candidate.tm_id == tm_id; });
}

void free_dev_mapping(list_head *head) {
    free_records<dev_mapping>(head, kOwnedByMapping);
}

int init_rule_db(list_head *head) {
    const File file = open_database(kRuleFile, {"init_rule_db", 579});
    if (!file)
        return -1;
    // Kept from line to line, as in init_dev_os.
    static char name[kLineSize];
    uint32_t id = 0;
    // The newline stays on: it ends the trimming, so that blanks before it belong to the name.
    for_each_line<kLineSize>(file.get(), [&](char *line) {
        line[strcspn(line, "#")] = '\0';
        _trim(line, '\t');
        _trim(line, ' ');
        LineScanner(line).number(id).literal(',').text_until("\n", name);
        if (app_cat *record = append_record<app_cat>(head, kOwnedByRule, {name}))
            record->cat_id = id;
    });
    return 0;
}

char *search_rule_db(list_head *head, unsigned int id) {
    return search_app_cat(head, id);
}

void free_rule_db(list_head *head) {
    free_app_cat(head);
}

void _trim(char *s, char delim) {
    const char *first = s;
    while (*first == delim && *first != '\0')
        ++first;
    std::size_t length = strlen(first);
    while (length > 0 && first[length - 1] == delim)
        --length;
    memmove(s, first, length);
    s[length] = '\0';
}
