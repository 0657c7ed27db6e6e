#include "sysutil/firmware_update.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"

#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

namespace {

constexpr const char *kCheckStatusFiles[] = {
    "/tmp/fw_Cfg_status",     "/tmp/fw_stringtable_status", "/tmp/fw_image_status",
    "/tmp/fw_new_Cfg_status", "/tmp/fw_language_status",
};
constexpr const char *kDeviceInfoStatusFiles[] = {
    "/tmp/device_info_Cfg_status", "/tmp/device_info_status", "/tmp/device_info_new_Cfg_status",
    "/tmp/ua_string_table_status", "/tmp/mac_table_status",   "/tmp/device_type_index_table_status",
};
constexpr const char *kUpgradeFile = "/tmp/upgrade.tmp";
constexpr const char *kUpgradingFile = "/tmp/fw_upgrading";
constexpr mode_t kUpgradeFileMode = 0644;

struct Region {
    const char *name;
    const char *folder;
};
constexpr Region kRegions[] = {
    {"NA", "na"}, {"GR", "gr"}, {"PR", "pr"}, {"RU", "ru"}, {"BZ", "bz"},
    {"IN", "in"}, {"KO", "ko"}, {"JP", "jp"}, {"AU", "au"}, {"PA", "pa"},
};
constexpr const char *kWorldwide = "ww";

const char *region_folder() {
    for (const Region &region : kRegions) {
        if (kelpNvramConfig_match("sku_name", region.name) == 1)
            return region.folder;
    }
    return kWorldwide;
}

template <std::size_t Count>
int reset_status_files(const char *const (&paths)[Count]) {
    int status = 0;
    for (const char *path : paths)
        status = set_fw_check_status(path, 0);
    return status;
}

} // namespace

char *get_firmware_update_folder(int flag) {
    static char folder[3];
    copy_text(folder, flag != 0 ? kWorldwide : region_folder());
    return folder;
}

int set_fw_check_status(const char *path, int value) {
    return run_command(kLargestCommand, "echo %d > %s", value, path);
}

int get_fw_check_status(const char *path) {
    const File file(fopen(path, "r"));
    if (!file) {
        set_fw_check_status(path, 0);
        return 0;
    }
    char line[64] = "";
    read_line(file.get(), line, sizeof line);
    strip_newline(line);
    return *line == '\0' ? -1 : decimal_value(line);
}

int reset_all_fw_check_status(void) {
    return reset_status_files(kCheckStatusFiles);
}

int reset_all_device_info_check_status(void) {
    return reset_status_files(kDeviceInfoStatusFiles);
}

int create_upgrade_file(void) {
    const Descriptor file(open(kUpgradeFile, O_RDONLY | O_CREAT, kUpgradeFileMode));
    if (!file) {
        perror("unable to create tmp file");
        return file.get();
    }
    return 0;
}

int check_upgrade_status(void) {
    return Descriptor(open(kUpgradeFile, O_RDONLY)) ? 1 : 0;
}

int set_fw_is_upgrading(void) {
    return run_command(kLargestCommand, "echo 1 > %s", kUpgradingFile);
}

int is_fw_upgrading(void) {
    return access(kUpgradingFile, F_OK) == 0 ? 1 : 0;
}

int getDownloadImageSize(const char *path, std::uint32_t *size) {
    const Descriptor file(open(path, O_RDONLY));
    if (!file) {
        perror(path);
        return 1;
    }
    const off_t end = lseek(file.get(), 0, SEEK_END);
    const bool known =
        end >= 0 && static_cast<std::uintmax_t>(end) <= std::numeric_limits<std::uint32_t>::max();
    *size = known ? static_cast<std::uint32_t>(end) : 0;
    return known ? 0 : 1;
}
