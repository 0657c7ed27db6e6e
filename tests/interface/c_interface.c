/* A plain C program over the helper libraries: every public header, and calls through each. */
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

static void list_in_c(void) {
    struct list_head head = LIST_HEAD_INIT(head);
    struct numbered record = {7, {0, 0}};
    list_append(&head, &record.list);
    CHECK(LIST_RECORD(head.next, struct numbered, list)->number == 7);
    list_remove(&record.list);
    CHECK(list_is_empty(&head));
    CHECK(record.list.next == LIST_POISON_NEXT && record.list.prev == LIST_POISON_PREV);
    CHECK(search_app_inf(&head, 1, 2) == NULL);
}

static void engine_records_in_c(void) {
    struct forward_ioctl header;
    memset(&header, 0, sizeof header);
    header.in_u32 = 5;
    CHECK((void *)&header.in_u32 == (void *)&header.in_raw);
    CHECK(sizeof(struct devid_user_entry) == 90);
    CHECK(sizeof(struct devid_app_rate_entry) == 36);
    CHECK(sizeof(struct devid_app_bw_entry) == 24);
    CHECK(sizeof(struct devid_app_patrol_list_entry) == 19);
    CHECK(IDPFW_REQUEST(IDPFW_NR_USER) == 0xC02CBF0Aul);
}

static void value_lists_in_c(void) {
    char text[] = "a;b;c";
    char field[8];
    char tokens[2][128];
    CHECK(getValueCount(text) == 3);
    CHECK(getNthValueSafe(1, text, ';', field, sizeof field) == 0 && strcmp(field, "b") == 0);
    CHECK(getTokens(text, ";", tokens, 2) == 2 && strcmp(tokens[1], "b") == 0);
    CHECK(strcmp(setNthValue(1, text, "x"), "a;x;c") == 0);
    CHECK(strcmp(racat("wan", 3), "wan3") == 0);
}

static void settings_in_c(void) {
    uint32_t word = 0;
    char revision[14];
    CHECK(kelpNvramConfig_set("hw_rev", "B34K810A51") == 0);
    CHECK(strcmp(get_hwRevision(revision), "V1H2") == 0);
    CHECK(config_nvram_list("list", "entry", ",", 1, 4) == 1);
    CHECK(kelpNvramConfig_match("list", "entry") == 1);
    CHECK(agApi_feature_set(24) == 0 && agApi_feature_get(&word) == 0 && word == 24);
}

int main(void) {
    list_in_c();
    engine_records_in_c();
    value_lists_in_c();
    settings_in_c();
    return failures == 0 ? 0 : 1;
}
