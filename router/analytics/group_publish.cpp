#include "analytics/group_publish.h"

#include "analytics/firmware_upgrade.h"
#include "analytics/publish_verdict.h"
#include "analytics/report_file.h"
#include "analytics/report_log.h"
#include "analytics/retry_rules.h"
#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"

#include <climits>
#include <cstring>

struct dri_update_info DRI_update_info = {};

namespace {

constexpr int kConnectionGroup = 1;
constexpr int kFirmwareGroup = 2;
constexpr int kUserOptionGroup = 4;

constexpr const char *kModel = "Z5150";
constexpr const char *kPublisherLog = "/tmp/ra_pub_log.txt";
// Fixed names, deliberately: the backup takes the file without a group number, and its directory
// does not follow the root directory.
constexpr const char *kBackupSource = "/tmp/aws_json_dir/aws_Z5150.json";
constexpr const char *kBackupDirectory = "/tmp/media/nand/router-analytics";

constexpr const char *kNoPublishSetting = "aws_json_no_publish";
constexpr const char *kRetryCountSetting = "awsiot_retry_count";
constexpr const char *kUserOptionSetting = "RA_useroption_report";

constexpr std::size_t kCommandSize = 512;
constexpr int kCannotMakeReport = -3;

int write_report(cJSON *document, int group) {
    char path[64];
    format_text(path, sizeof path, "/tmp/aws_json_dir/aws_%s_%d.json", kModel, group);
    const Allocated<char> text(cJSON_Print(document));
    // Without memory for it an earlier report, settled long ago, would go out in its place.
    if (document != nullptr && !text)
        return kCannotMakeReport;
    return ra_output_json_to_file(text.get(), path);
}

void pretend_publication() {
    puts("\n[RAE]##################################################");
    puts("\n[RAE]aws_json_no_publish=1, don't send RA log to server");
    puts("\n[RAE]##################################################");
    run_command(256, "echo Publish done > %s", kPublisherLog);
}

// Whoever reads the debug log looks for exactly these function names and line numbers.
void log_publication(const char *function, int line, int group) {
    append_report_log("%s(%d) group=%d, RA log:\n", function, line, group);
}

// At the start of a command the shell would take "name=..." for a variable assignment and run the
// word behind it.
bool can_start_command(const char *directory) {
    return directory[strcspn(directory, "/=")] != '=';
}

// The publishers tell whether their command was run.
bool publish_by_iot(const ra_device_info *device, int group) {
    char client_id[sizeof device->client_id + 1];
    copy_text(client_id, device->client_id);
    char command[kCommandSize];
    if (!format_command(command, sizeof command,
                        "LD_LIBRARY_PATH=/usr/share %s/awsiotpub -i %s "
                        "-f /tmp/aws_json_dir/aws_%s_%d.json -t \"analytics/\" -o %d >%s",
                        ra_get_root_dir(), client_id, kModel, group, ra_get_awsiot_cert_opt(),
                        kPublisherLog))
        return false;
    printf("\n[awsiot]%s\n", command);
    if (!has_run(run_shell(command)))
        return false;
    log_publication("ra_send_json_report_using_IoT", 512, group);
    run_command(kCommandSize, "cat /tmp/aws_json_dir/aws_%s_%d.json >> %s", kModel, group,
                kReportLog);
    return true;
}

// Deliberately unlike IoT: the publisher writes its output by itself, so that one that could not
// start leaves the previous output to be judged; and the report is not copied into the debug log.
bool publish_by_mcs(int group) {
    if (!has_run(run_command(kCommandSize, "%s/%s -g %d -f %s", ra_get_root_dir(), "mcs_publish",
                             group, kPublisherLog)))
        return false;
    log_publication("ra_send_json_report_using_MCS", 527, group);
    return true;
}

bool publish(PublishMethod method, const ra_device_info *device, int group) {
    if (method == PublishMethod::Other)
        return true;
    if (!can_start_command(ra_get_root_dir()))
        return false;
    return method == PublishMethod::Iot ? publish_by_iot(device, group) : publish_by_mcs(group);
}

void back_up_report() {
    if (kelpNvramConfig_match("aws_json_backup", "1") == 0)
        return;
    printf("backup JSON file ==> %s//aws_%s.json_%s\n", kBackupDirectory, kModel,
           ra_get_json_timestamp());
    char command[kCommandSize];
    if (!format_command(command, sizeof command, "cp %s %s/aws_%s.json_%s", kBackupSource,
                        kBackupDirectory, kModel, ra_get_json_timestamp()))
        return;
    fputs(command, stdout);
    run_shell(command);
}

Verdict read_verdict(PublishMethod method) {
    const File output(fopen(kPublisherLog, "r"));
    if (output)
        return publish_verdict(method, output.get());
    append_report_log("%s(%d) open %s file failed\n", "ra_check_json_publish_status", 665,
                      kPublisherLog);
    return Verdict::None;
}

void count_failed_publication() {
    const char *count = kelpNvramConfig_get(kRetryCountSetting);
    char text[16] = "1";
    if (*count != '\0') {
        const int value = decimal_value(count);
        format_text(text, sizeof text, "%d", value < INT_MAX ? value + 1 : value);
    }
    kelpNvramConfig_set(kRetryCountSetting, text);
}

void iot_failed(int group) {
    printf("\n[RAE]awsiot Publish failed !!");
    run_command(kCommandSize, "cat %s", kPublisherLog);
    const bool given_up = count_iot_failure(g_group_retry[group]);
    if (given_up && group == kFirmwareGroup)
        ra_report_fw_upgrade_finish();
    if (group == kUserOptionGroup && kelpNvramConfig_match(kUserOptionSetting, "0") == 1)
        kelpNvramConfig_set(kUserOptionSetting, "1");
    count_failed_publication();
}

void iot_succeeded(int group) {
    if (kelpNvramConfig_match(kNoPublishSetting, "") == 1 ||
        kelpNvramConfig_match(kNoPublishSetting, "0") == 1)
        printf("\n[RAE]awsiot Publish success !!");
    reset_group_retry_flag_by_group(group);
}

// An MCS failure counts nowhere but in the group.
void mcs_failed(int group) {
    printf("\n[RAE]MCS Publish failed !!");
    run_command(kCommandSize, "cat %s", kPublisherLog);
    const bool given_up = count_mcs_failure(g_group_retry[group]);
    if (given_up && group == kFirmwareGroup)
        ra_report_fw_upgrade_finish();
}

// Unlike IoT, a success keeps the connection facts of group 1 and is never silent.
void mcs_succeeded(int group) {
    printf("\n[RAE]MCS Publish success !!");
    count_mcs_success(g_group_retry[group]);
    if (group == kUserOptionGroup)
        kelpNvramConfig_set(kUserOptionSetting, "1");
    if (group == kFirmwareGroup)
        ra_report_fw_upgrade_finish();
}

void apply_verdict(Verdict verdict, PublishMethod method, int group) {
    const bool by_iot = method == PublishMethod::Iot;
    switch (verdict) {
    case Verdict::Failure:
        by_iot ? iot_failed(group) : mcs_failed(group);
        break;
    case Verdict::Success:
        by_iot ? iot_succeeded(group) : mcs_succeeded(group);
        break;
    case Verdict::None:
        break;
    }
}

} // namespace

int ra_send_json_to_cloud_by_group(const struct ra_device_info *device_info, cJSON *document,
                                   int group) {
    if (!is_group(group))
        return -1;
    if (!is_unsent(g_group_retry[group])) {
        const int result = write_report(document, group);
        if (result < 0)
            return result;
    }
    const char *name = DRI_update_info.publish_method;
    const auto method =
        publish_method({name, strnlen(name, sizeof DRI_update_info.publish_method)});
    if (kelpNvramConfig_match(kNoPublishSetting, "1") == 1)
        pretend_publication();
    else if (!publish(method, device_info, group))
        return 0;
    back_up_report();
    run_command(128, "cat %s >> %s", kPublisherLog, kReportLog);
    apply_verdict(read_verdict(method), method, group);
    return 0;
}

int reset_group_retry_flag_by_group(int group) {
    if (!is_group(group))
        return 0;
    count_iot_success(g_group_retry[group]);
    if (group == kConnectionGroup) {
        ra_set_internet_connection_info(1, 0);
        ra_set_internet_connection_info(2, 0);
    }
    if (group == kFirmwareGroup)
        ra_report_fw_upgrade_finish();
    if (group == kUserOptionGroup)
        kelpNvramConfig_set(kUserOptionSetting, "1");
    return 0;
}
