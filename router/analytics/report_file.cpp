#include "analytics/report_file.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"

#include <array>
#include <cstdio>

namespace {

constexpr int kCannotCreateFile = -3;
constexpr std::size_t kCommandSize = 1024;

char root_dir[128] = "/tmp/media/nand/router-analytics";
int awsiot_cert_opt = 0;
int check_fw_report = 0;
char json_timestamp[64] = "";
std::array<unsigned int, 3> internet_connection_info = {};

// Whoever reads the debug output looks for exactly this function name and line number.
void report_uncreated_file() {
    if (kelpNvramConfig_match("AWS_JSON_DBGP", "1") == 1)
        printf("[AWS_JSON_DBGP] %s(%d):\n## Can not create JSON file.", "ra_output_json_to_file",
               470);
}

} // namespace

int ra_output_json_to_file(const char *text, const char *path) {
    if (text != nullptr && *text != '\0') {
        const File file(fopen(path, "w"));
        if (!file) {
            report_uncreated_file();
            return kCannotCreateFile;
        }
        fputs(text, file.get());
    }
    run_command(kCommandSize, "cat %s", path);
    return 0;
}

int ra_set_root_dir(const char *dir) {
    copy_text(root_dir, dir);
    return 0;
}

char *ra_get_root_dir(void) {
    return root_dir;
}

int ra_set_awsiot_cert_opt(int value) {
    awsiot_cert_opt = value;
    return 0;
}

int ra_get_awsiot_cert_opt(void) {
    return awsiot_cert_opt;
}

int ra_set_check_fw_report(int value) {
    check_fw_report = value;
    return 0;
}

int ra_get_check_fw_report(void) {
    return check_fw_report;
}

int ra_set_json_timestamp(const int date[3], const int time[3]) {
    format_text(json_timestamp, sizeof json_timestamp, "%04d%02d%02d-%02d%02d%02d", date[0],
                date[1], date[2], time[0], time[1], time[2]);
    return 0;
}

char *ra_get_json_timestamp(void) {
    return json_timestamp;
}

int ra_set_internet_connection_info(unsigned int index, unsigned int value) {
    if (index < internet_connection_info.size())
        internet_connection_info[index] = value;
    else if (index == internet_connection_info.size())
        internet_connection_info.fill(0);
    return 0;
}

unsigned int ra_get_internet_connection_info(unsigned int index) {
    return index < internet_connection_info.size() ? internet_connection_info[index] : 0;
}
