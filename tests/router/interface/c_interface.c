/* A plain C program over the helper libraries: every public header, and calls into each library. */
#include "public_headers.h"

#include <stdio.h>
#include <string.h>

static int failures;

static void check(int condition, const char *what) {
    if (!condition) {
        fprintf(stderr, "failed: %s\n", what);
        ++failures;
    }
}
#define CHECK(condition) check((condition), #condition)

struct numbered {
    int number;
    struct list_head list;
};

static void use_engine_records(void) {
    struct list_head head = LIST_HEAD_INIT(head);
    struct numbered record = {7, {0, 0}};
    struct forward_ioctl header;
    list_append(&head, &record.list);
    CHECK(LIST_RECORD(head.next, struct numbered, list)->number == 7);
    list_remove(&record.list);
    CHECK(list_is_empty(&head) && record.list.next == LIST_POISON_NEXT);
    CHECK(search_app_inf(&head, 1, 2) == NULL);
    CHECK((void *)&header.in_u32 == (void *)&header.in_raw);
}

static void use_settings(void) {
    uint32_t word = 0;
    char text[] = "a;b;c";
    char tokens[2][128];
    CHECK(getTokens(text, ";", tokens, 2) == 2 && strcmp(tokens[1], "b") == 0);
    CHECK(strcmp(setNthValue(1, text, "x"), "a;x;c") == 0);
    CHECK(config_nvram_list("list", "entry", ",", 1, 4) == 1);
    CHECK(kelpNvramConfig_match("list", "entry") == 1);
    CHECK(agApi_feature_set(24) == 0 && agApi_feature_get(&word) == 0 && word == 24);
}

static void use_reports_and_lists(void) {
    static const unsigned char mac[6] = {2, 0, 0, 0, 0, 1};
    struct ra_device_info device = {"client"};
    struct iqos_dev_entry entry = {{2, 0, 0, 0, 0, 1}, 1, 1, 2, 3, "name"};
    char revision[14];
    CHECK(kelpNvramConfig_set("hw_rev", "B34K810A51") == 0);
    CHECK(strcmp(get_hwRevision(revision), "V1H2") == 0);
    CHECK(ra_send_json_to_cloud_by_group(&device, NULL, 5) == -1);
    CHECK(g_group_retry[4].fail_count == 0 && DRI_update_info.publish_method[0] == '\0');
    CHECK(is_in_timezone_list(1.0F) == 1);
    CHECK(set_iqos_status(mac, entry) == 0 && get_iqos_status(mac)->attr2 == 2);
    CHECK(ac_mac_list[127].order == 0 && acl_rule_curr_order == 0);
}

static void use_board_data(void) {
    static unsigned char block[BOARD_DATA_SIZE];
    char record[8];
    uint32_t length = 0;
    CHECK(bd_write_record_2(BD_RECORD_SSID_1, "name", block, 4) == 0);
    CHECK(bd_read_record_2(BD_RECORD_SSID_1, record, block, &length, sizeof record) == 0);
    CHECK(length == 4 && memcmp(record, "name", 4) == 0);
    CHECK(mtd_write("/nowhere", block, -1) == -1);
}

int main(void) {
    use_engine_records();
    use_settings();
    use_reports_and_lists();
    use_board_data();
    return failures == 0 ? 0 : 1;
}
