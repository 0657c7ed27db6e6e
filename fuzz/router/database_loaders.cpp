// Every loader over the same bytes: each gives a record per line, with every text there, and a
// search that finds what the list holds.
#include "fuzz/router/file_input.h"
#include "fuzz/target.h"

#include "dpi/conf_app.h"

#include <cstring>
#include <initializer_list>

namespace {

template <typename Record, typename Visit>
std::size_t visit(list_head &head, Visit check) {
    std::size_t count = 0;
    for (list_head *link = head.next; link != &head; link = link->next, ++count)
        check(*LIST_RECORD(link, Record, list));
    return count;
}

template <typename Record, typename Visit>
std::size_t load(int (*init)(list_head *), void (*release)(list_head *), Visit check) {
    list_head head = LIST_HEAD_INIT(head);
    FUZZ_REQUIRE(init(&head) == 0);
    const std::size_t count = visit<Record>(head, [&](Record &record) { check(head, record); });
    release(&head);
    FUZZ_REQUIRE(list_is_empty(&head));
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const fuzz::FileInput input(data, size);
    const std::size_t entries = load<system_conf>(
        init_system_conf, free_system_conf, [](list_head &head, system_conf &entry) {
            FUZZ_REQUIRE(strlen(entry.filepath) < 256);
            FUZZ_REQUIRE(search_sys_conf(&head, entry.filename) != nullptr);
        });
    const std::size_t apps =
        load<app_inf>(init_app_inf, free_app_inf, [](list_head &head, app_inf &app) {
            FUZZ_REQUIRE(strpbrk(app.app_name, "\\0") == nullptr);
            FUZZ_REQUIRE(search_app_inf(&head, app.cat_id, app.app_id) != nullptr);
        });
    const std::size_t categories =
        load<app_cat>(init_app_cat, free_app_cat, [](list_head &head, app_cat &category) {
            FUZZ_REQUIRE(strpbrk(category.cat_name, "\\0") == nullptr);
            FUZZ_REQUIRE(search_app_cat(&head, category.cat_id) != nullptr);
        });
    // Same buffer, same lines; only a comment gives no record.
    FUZZ_REQUIRE(entries == apps && apps == categories);
    FUZZ_REQUIRE(entries > 0 || (size > 0 && data[0] == '#'));
    load<dev_os>(init_dev_os, free_dev_os, [](list_head &head, dev_os &device) {
        for (const char *name : {device.vendor_name, device.os_name, device.class_name,
                                 device.type_name, device.dev_name, device.family_name})
            FUZZ_REQUIRE(strlen(name) < 100 && strchr(name, '"') == nullptr);
        FUZZ_REQUIRE(search_dev_os(&head, device.vendor_id, device.os_id, device.class_id,
                                   device.type_id, device.dev_id, device.family_id) != nullptr);
    });
    load<dev_mapping>(init_dev_mapping, free_dev_mapping, [](list_head &head, dev_mapping &pair) {
        FUZZ_REQUIRE(strlen(pair.tm_name) < 100 && strlen(pair.vosk_name) < 100);
        FUZZ_REQUIRE(search_dev_mapping(&head, pair.tm_id) != nullptr);
    });
    load<app_cat>(init_rule_db, free_rule_db, [](list_head &head, app_cat &rule) {
        FUZZ_REQUIRE(strchr(rule.cat_name, '#') == nullptr);
        FUZZ_REQUIRE(search_rule_db(&head, rule.cat_id) != nullptr);
    });
    return 0;
}
