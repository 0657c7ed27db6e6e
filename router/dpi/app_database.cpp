#include "dpi/conf_app.h"

#include "dpi/database.h"
#include "dpi/line_scanner.h"

namespace {

constexpr int kLineSize = 256;

// Names end before a backslash or a '0', deliberately: reports have always carried them so.
constexpr const char *kNameStops = "\\0";

constexpr OwnedTexts<app_inf, 1> kOwnedByApp = {&app_inf::app_name};
constexpr OwnedTexts<app_cat, 1> kOwnedByCategory = {&app_cat::cat_name};

} // namespace

int init_app_inf(list_head *head) {
    const File file = open_listed_database(kAppInfDatabase, {"init_app_inf", 162});
    if (!file)
        return -1;
    // Deliberately kept from line to line: a line that does not fit repeats the one before.
    static char name[kLineSize];
    uint32_t cat_id = 0;
    uint32_t app_id = 0;
    uint32_t beh_id = 0;
    for_each_stripped_line<kLineSize>(file.get(), [&](const char *line) {
        LineScanner scan(line);
        scan.signed_number(cat_id).literal(',').signed_number(app_id).literal(',');
        scan.signed_number(beh_id).literal(',').text_until(kNameStops, name);
        if (app_inf *record = append_record<app_inf>(head, kOwnedByApp, {name})) {
            record->cat_id = cat_id;
            record->app_id = app_id;
            record->beh_id = beh_id;
        }
    });
    return 0;
}

char *search_app_inf(list_head *head, unsigned int cat_id, unsigned int app_id) {
    const auto *found = find_record<app_inf>(head, [=](const app_inf &candidate) {
        return candidate.cat_id == cat_id && candidate.app_id == app_id;
    });
    return found != nullptr ? found->app_name : nullptr;
}

void free_app_inf(list_head *head) {
    free_records<app_inf>(head, kOwnedByApp);
}

int init_app_cat(list_head *head) {
    const File file = open_listed_database(kAppCatDatabase, {"init_app_cat", 248});
    if (!file)
        return -1;
    // Kept from line to line, as in init_app_inf.
    static char name[kLineSize];
    uint32_t cat_id = 0;
    for_each_stripped_line<kLineSize>(file.get(), [&](const char *line) {
        LineScanner(line).number(cat_id).literal(',').text_until(kNameStops, name);
        if (app_cat *record = append_record<app_cat>(head, kOwnedByCategory, {name}))
            record->cat_id = cat_id;
    });
    return 0;
}

char *search_app_cat(list_head *head, unsigned int cat_id) {
    const auto *found = find_record<app_cat>(
        head, [=](const app_cat &candidate) { return candidate.cat_id == cat_id; });
    return found != nullptr ? found->cat_name : nullptr;
}

void free_app_cat(list_head *head) {
    free_records<app_cat>(head, kOwnedByCategory);
}
