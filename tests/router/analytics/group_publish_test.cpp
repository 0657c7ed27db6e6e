#include "analytics/awsjson_util.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>

namespace {

const std::string kRoot = "/tmp/media/nand/router-analytics";
constexpr const char *kOutput = "/tmp/ra_pub_log.txt";
constexpr const char *kDebugLog = "/tmp/ra_debug_log.txt";

std::string reportPath(int group) {
    return "/tmp/aws_json_dir/aws_Z5150_" + std::to_string(group) + ".json";
}

std::string counters(int group) {
    const auto [failures, due, mode, ticks] = g_group_retry[group];
    return std::to_string(failures) + "/" + std::to_string(due) + "/" + std::to_string(mode) + "/" +
           std::to_string(ticks);
}

} // namespace

class GroupPublish : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        setenv("TZ", "UTC0", 1);
        rig::setTime(1704438489); // 2024/1/5 07:08:09
        for (auto &retry : g_group_retry)
            retry = {};
        EXPECT_EQ(ra_set_root_dir(kRoot.c_str()) + ra_set_awsiot_cert_opt(-3), 0);
        use("IoT");
    }

    static void use(const char *method) { strncpy(DRI_update_info.publish_method, method, 16); }

    // Both publishers say this, each in its own way.
    static void publisherSays(const std::string &output) {
        rig::writeFile("/said", output);
        rig::fakeCommand(kRoot + "/awsiotpub", "cat /said");
        rig::fakeCommand(kRoot + "/mcs_publish", std::string("cat /said >") + kOutput);
    }

    // Sends a document that is just this number; gives what was printed.
    std::string send(int group, int number = 1, int expected = 0) {
        cJSON *document = cJSON_CreateNumber(number);
        std::string printed = rig::standardOutput(
            [&] { EXPECT_EQ(ra_send_json_to_cloud_by_group(&device, document, group), expected); });
        cJSON_Delete(document);
        return printed;
    }

    ra_device_info device{"client-1"};
};

TEST_F(GroupPublish, AnIotPublicationPrintsRunsLogsAndBacksUpInOrder) {
    const std::string id = "a b;$(c)`d`\"\n|&>" + std::string(112, 'i'); // stays one word
    id.copy(device.client_id, sizeof device.client_id);
    publisherSays("hello\nPublish done\n");
    rig::setSetting("aws_json_backup", "1");
    rig::writeFile("/tmp/aws_json_dir/aws_Z5150.json", "backup");
    EXPECT_EQ(ra_set_json_timestamp(std::array{2024, 1, 5}.data(), std::array{7, 8, 9}.data()), 0);
    const std::string backup = "aws_Z5150.json_20240105-070809";
    EXPECT_EQ(send(3, 42), "42\n[awsiot]LD_LIBRARY_PATH=/usr/share " + kRoot + "/awsiotpub -i '" +
                               id + "' -f " + reportPath(3) + " -t \"analytics/\" -o -3 >" +
                               kOutput + "\nbackup JSON file ==> " + kRoot + "//" + backup +
                               "\ncp /tmp/aws_json_dir/aws_Z5150.json " + kRoot + "/" + backup +
                               "\n[RAE]awsiot Publish success !!");
    EXPECT_THAT(rig::recordedWords(0),
                testing::ElementsAre(kRoot + "/awsiotpub", "-i", id, "-f", reportPath(3), "-t",
                                     "analytics/", "-o", "-3"));
    EXPECT_EQ(rig::readFile(kRoot + "/" + backup), "backup");
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_IoT(512) group=3, RA log:\n"
              "42hello\nPublish done\n");
}

TEST_F(GroupPublish, AnMcsPublicationIsNotPrintedAndNotCopiedIntoTheDebugLog) {
    use("MCS");
    publisherSays("\nX-Error\n");
    EXPECT_EQ(send(3), "1\n[RAE]MCS Publish success !!");
    EXPECT_EQ(rig::recordedCommands().at(0), kRoot + "/mcs_publish -g 3 -f " + kOutput);
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_MCS(527) group=3, RA log:\n"
              "\nX-Error\n");
}

TEST_F(GroupPublish, TheTwoPublishersSettleGroupsDifferently) {
    const struct {
        const char *method, *output;
        int group;
        const char *option; // the user option before
        // Afterwards: the counters, that option, whether the firmware report is open,
        // connection facts 1 and 2 (7 before), the count of IoT failures.
        const char *after;
    } rows[] = {
        {"IoT", "Publish done", 1, "0", "0/0/0/5 0 1 00 x"},
        {"IoT", "Publish done", 4, "0", "0/0/0/5 1 1 77 x"},
        {"IoT", "ERROR", 1, "0", "3/0/0/5 0 1 77 1"},
        {"IoT", "ERROR", 4, "-", "3/0/0/5 - 1 77 1"},
        {"IoT", "ERROR", 4, "0", "3/0/0/5 1 1 77 1"},
        {"MCS", "fine", 1, "0", "0/3/1/5 0 1 77 x"},
        {"MCS", "fine", 2, "0", "0/3/1/5 0 0 77 x"},
        {"MCS", "fine", 4, "0", "0/3/1/5 1 1 77 x"},
        {"MCS", "", 2, "0", "3/3/1/5 0 1 77 x"}, // says nothing
        {"MCS", "curl: Couldn't resolve host", 2, "0", "0/3/1/5 0 0 77 x"},
        {"IoT", "x ERRORS x\nPublish done", 2, "0", "3/0/0/5 0 0 77 1"},
        {"IoT", "\xff\1\n\nPublish done\nERROR", 2, "0", "0/0/0/5 0 0 77 x"},
        {"MCS", "X-Error", 2, "0", "0/3/1/5 0 0 77 x"},
        {"MCS", "X-Error", 1, "0", "0/3/1/5 0 1 77 x"},
    };
    for (const auto &row : rows) {
        rig::setSetting("RA_useroption_report", row.option);
        rig::setSetting("awsiot_retry_count", "x"); // no number
        ra_set_check_fw_report(1);
        ra_set_internet_connection_info(1, 7);
        ra_set_internet_connection_info(2, 7);
        g_group_retry[row.group] = {3, 3, 1, 5}; // a failure away from being given up
        use(row.method);
        publisherSays(row.output);
        rig::writeFile(reportPath(row.group), "unsent");
        send(row.group);
        std::ostringstream after;
        after << counters(row.group) << " " << rig::setting("RA_useroption_report") << " "
              << ra_get_check_fw_report() << " " << ra_get_internet_connection_info(1)
              << ra_get_internet_connection_info(2) << " " << rig::setting("awsiot_retry_count");
        EXPECT_EQ(after.str(), row.after) << row.method << " " << row.output << " " << row.group;
    }
}

TEST_F(GroupPublish, AProcessThatIgnoresItsChildrenGetsItsVerdictAllTheSame) {
    publisherSays("ERROR X-Error\n");
    ra_report_fw_upgrade_start();
    signal(SIGCHLD, SIG_IGN);
    send(2);
    use("MCS");
    EXPECT_EQ(send(2), "\n[RAE]MCS Publish failed !!ERROR X-Error\n");
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(counters(2), "2/0/0/0");
    EXPECT_EQ(rig::setting("awsiot_retry_count"), "1");
    EXPECT_EQ(ra_get_check_fw_report(), 1); // open until the group is given up
}

TEST_F(GroupPublish, TheNoPublishSwitchPretendsASuccess) {
    const std::string line = "\n[RAE]##################################################\n";
    rig::setSetting("aws_json_no_publish", "1");
    g_group_retry[0] = {1, 0, 0, 0};
    EXPECT_EQ(send(0), line + "\n[RAE]aws_json_no_publish=1, don't send RA log to server\n" + line);
    EXPECT_EQ(counters(0), "0/0/0/0");
    EXPECT_EQ(rig::readFile(kDebugLog), "Publish done\n");
    publisherSays("Publish done\n");
    rig::setSetting("aws_json_no_publish", "0");
    EXPECT_THAT(send(0), testing::EndsWith("\n[RAE]awsiot Publish success !!"));
}

TEST_F(GroupPublish, AnUnsentReportIsSentAgainEvenWhenItsDirectoryHasVanished) {
    publisherSays("ERROR\n");
    rig::setSetting("awsiot_retry_count", "2147483647"); // counts no further
    EXPECT_THAT(send(0), testing::HasSubstr("\n[RAE]awsiot Publish failed !!ERROR\n"));
    std::filesystem::remove_all("/tmp/aws_json_dir");
    send(0);
    EXPECT_EQ(counters(0), "2/0/0/0");
    EXPECT_EQ(rig::setting("awsiot_retry_count"), "2147483647");
    EXPECT_EQ(send(1, 2, -3), ""); // nothing to send again, and nowhere to write
}

TEST_F(GroupPublish, WithoutAPublisherThatCanBeRunThereIsNoVerdict) {
    use("");
    send(0);
    EXPECT_EQ(rig::readFile(kDebugLog), "[2024/1/5 07:08:09]ra_check_json_publish_status(665) open "
                                        "/tmp/ra_pub_log.txt file failed\n");
    rig::writeFile(kOutput, "ERROR\nX-Error\n");
    rig::fakeCommand("-g");
    rig::fakeCommand("-i");
    ra_set_root_dir("PATH=/bin:"); // an assignment, after which "-g" or "-i" would be run
    for (const char *method : {"", "IoT,MCS,IoT,MCS,", "MCS", "IoT"}) {
        use(method);
        EXPECT_EQ(send(0), "1");
    }
    ra_set_root_dir(kRoot.c_str());
    std::fill_n(device.client_id, 127, '\''); // four characters each, once quoted
    EXPECT_EQ(send(0), "1");
    device.client_id[0] = '\0';
    for (const char *method : {"MCS", "IoT"}) {
        use(method);
        const rig::Fault noProcess(rig::Call::kFork, 1, true);
        EXPECT_THAT(send(0), testing::Not(testing::HasSubstr("Publish")));
    }
    EXPECT_EQ(send(-1, 1, -1) + send(5, 1, -1), "");
    EXPECT_EQ(reset_group_retry_flag_by_group(5), 0);
    EXPECT_THAT(rig::recordedCommands(), testing::IsEmpty());
    EXPECT_EQ(counters(0), "0/0/0/0");
}

// A day in ticks of five minutes: a fresh report of group 2 at some ticks, a resend while one is
// unsent, a resend due every 12 ticks in retry mode. The publisher fails during three outages.
TEST_F(GroupPublish, ADayOfOutagesIsRetriedGivenUpAndRecovered) {
    const std::set<int> fresh = {0, 96, 192, 240, 245};
    std::string attempts; // as "tick:report:counters", the report being the tick of its writing
    ra_report_fw_upgrade_start();
    for (int tick = 0; tick < 288; ++tick) {
        if (is_group_retry_flag_isset() == 1)
            set_group_retry_counter(12);
        if (!fresh.contains(tick) && is_ra_need_retry_by_group(2) == 0)
            continue;
        const bool fails = tick < 20 || (tick >= 192 && tick < 204) || (tick >= 240 && tick < 246);
        publisherSays(fails ? "ERROR\n" : "Publish done\n");
        send(2, tick);
        attempts += std::to_string(tick) + ":" + rig::readFile(reportPath(2)) + ":" + counters(2) +
                    (ra_get_check_fw_report() == 1 ? " " : " done ");
        ra_set_check_fw_report(1);
    }
    // Due after 12 ticks and given up at 17; the ticks go on from 2; recovered when due at 205;
    // fresh while waiting at 245, which makes that one due at once.
    EXPECT_EQ(
        attempts,
        "0:0:1/0/0/0 1:0:2/0/0/0 2:0:3/0/0/0 3:0:0/0/1/0 "
        "15:0:0/2/1/0 16:0:0/3/1/1 17:0:0/0/0/2 done 96:96:0/0/0/2 done "
        "192:192:1/0/0/2 193:192:2/0/0/2 194:192:3/0/0/2 195:192:0/0/1/2 205:192:0/0/0/0 done "
        "240:240:1/0/0/0 241:240:2/0/0/0 242:240:3/0/0/0 243:240:0/0/1/0 "
        "245:245:0/1/1/2 246:245:0/0/0/3 done ");
}
