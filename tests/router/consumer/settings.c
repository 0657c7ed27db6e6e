/* A router program in C, as somebody else would write it: found through pkg-config. */
#include <nvram.h>
#include <quill_util.h>
#include <system_util.h>

#include <stdio.h>
#include <string.h>
#include <time.h>

int main(void) {
    char index[3];
    char field[16];

    if (kelpNvramConfig_set("time_zone", "-8") != 0 || kelpNvramConfig_save() != 0) {
        fprintf(stderr, "the settings store refuses\n");
        return 1;
    }
    sys_set_timezone();
    tzset();
    getTimeZoneIndex(index);
    printf("time zone %s hours, entry %s, %ld seconds west\n", kelpNvramConfig_get("time_zone"),
           index, timezone);

    if (getNthValueSafe(1, "wan;lan;guest", ';', field, sizeof field) != 0 ||
        strcmp(field, "lan") != 0)
        return 1;
    printf("%d values, the second is \"%s\"\n", getValueCount("wan;lan;guest"), field);
    return timezone == 8 * 3600L ? 0 : 1;
}
