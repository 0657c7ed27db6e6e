#include "sysutil/iqos_service.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nat.h"
#include "platform/nvram.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr char kConsole[] = "/dev/console";
constexpr char kFirmwareMapping[] = "/usr/sbin/TmToVosk_dev_mapping";
constexpr char kFlashMapping[] = "/tmp/media/nand/TmToVosk_dev_mapping";

struct Database {
    const char *on_flash;
    const char *in_use;
};
constexpr Database kDatabases[] = {
    {"/tmp/media/nand/qos.conf", "/tmp/trend/qos.conf"},
    {"/tmp/media/nand/rule.trf", "/tmp/trend/rule.trf"},
    {kFlashMapping, "/tmp/trend/TmToVosk_dev_mapping"},
};

// Source positions as they stand in the messages: fixed, because log readers match them.
constexpr int kActionPosition = 4234;
constexpr int kUnknownActionPosition = 4266;

// Bits of the NAT feature word.
constexpr std::uint32_t kQosOff = 8;
constexpr std::uint32_t kParentalControl = 16;

// The largest number that begins a line of the file; 0 when there is none.
int database_number(const char *path) {
    const File file(fopen(path, "r"));
    if (!file)
        return 0;
    int largest = 0;
    char line[511];
    while (read_line(file.get(), line, sizeof line))
        largest = std::max(largest, decimal_value(line));
    return largest;
}

void remove_flash_databases() {
    for (const Database &database : kDatabases) {
        const char *const remove[] = {"rm", database.on_flash, nullptr};
        run_program(remove, kConsole);
    }
    run_command(kLargestCommand, "rm /tmp/media/nand/TMDPI/archive/*");
}

// A missing source fails by itself: the service then starts with what is in use already.
void fetch_flash_databases() {
    for (const Database &database : kDatabases) {
        const char *const copy[] = {"cp", database.on_flash, database.in_use, nullptr};
        run_program(copy, kConsole);
    }
    run_command(kLargestCommand, "cp /tmp/media/nand/TMDPI/archive/* /tmp/trend");
    run_command(kLargestCommand, "ls /tmp/media/nand/TMDPI/archive/*");
}

void perform(const char *action) {
    if (strcmp(action, "start_iqos") == 0) {
        fetch_flash_databases();
        run_command(kLargestCommand, "bcmiqosd start");
    } else if (strcmp(action, "stop_iqos") == 0) {
        run_command(kLargestCommand, "bcmiqosd stop");
    } else if (strcmp(action, "restart_iqos") == 0) {
        run_command(kLargestCommand, "bcmiqosd restart");
    } else if (strcmp(action, "pause_iqos") == 0) {
        run_command(kLargestCommand, "bcmiqosd pause");
    } else {
        printf("%s(%d): action %s not supported \n", "iqos_service", kUnknownActionPosition,
               action);
    }
}

} // namespace

int newer_iqos_database(void) {
    if (access(kFlashMapping, F_OK) != 0) {
        printf("QoS database file on nflash is not existed");
        return 0;
    }
    const int firmware = database_number(kFirmwareMapping);
    const int flash = database_number(kFlashMapping);
    printf("firmware supports %d flash supports %d\n", firmware, flash);
    return firmware > flash ? 1 : 0;
}

int iqos_service(const char *action) {
    const char *const known = action != nullptr ? action : "";
    printf("%s(%d) action=%s\n", "iqos_service", kActionPosition, known);
    kelpnat_set_features();
    if (newer_iqos_database() != 0) {
        printf("remove QoS database on flash");
        remove_flash_databases();
    }
    perform(known);
    return 0;
}

int kelpnat_set_features(void) {
    std::uint32_t word = 0; // stays so when the platform cannot tell
    agApi_feature_get(&word);
    word = kelpNvramConfig_match("broadstream_iqos_enable", "1") != 0 ? word & ~kQosOff
                                                                      : word | kQosOff;
    word = kelpNvramConfig_match("enable_circle_control", "1") != 0 ? word | kParentalControl
                                                                    : word & ~kParentalControl;
    return agApi_feature_set(word);
}
