#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr const char *kRoot = "/tmp/media/nand/router-analytics";
constexpr const char *kOutput = "/tmp/ra_pub_log.txt";
constexpr const char *kDebugLog = "/tmp/ra_debug_log.txt";
constexpr std::time_t kMorning = 1704438489; // 2024/1/5 07:08:09

std::string reportPath(int group) {
    return "/tmp/aws_json_dir/aws_Z5150_" + std::to_string(group) + ".json";
}

std::string counters(int group) {
    const auto [failures, due, mode, ticks] = g_group_retry[group];
    std::ostringstream text;
    text << failures << "/" << due << "/" << mode << "/" << ticks;
    return text.str();
}

} // namespace

class GroupPublish : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        setenv("TZ", "UTC0", 1);
        rig::setTime(kMorning);
        for (auto &retry : g_group_retry)
            retry = {};
        ra_set_root_dir(kRoot);
        ra_set_awsiot_cert_opt(-3);
        use("IoT");
        identify("client-1");
    }

    static void use(const std::string &method) {
        DRI_update_info = {};
        method.copy(DRI_update_info.publish_method, sizeof DRI_update_info.publish_method);
    }
    void identify(const std::string &id) {
        device = {};
        id.copy(device.client_id, sizeof device.client_id);
    }

    // Both publishers say this, each in its own way.
    static void publisherSays(const std::string &output) {
        rig::writeFile("/said", output);
        rig::fakeCommand(std::string(kRoot) + "/awsiotpub", "cat /said");
        rig::fakeCommand(std::string(kRoot) + "/mcs_publish", std::string("cat /said >") + kOutput);
    }

    // Sends a document that is just this number; gives what was printed.
    std::string send(int group, int number = 1, int expected = 0) {
        cJSON *document = cJSON_CreateNumber(number);
        std::string printed = rig::standardOutput(
            [&] { EXPECT_EQ(ra_send_json_to_cloud_by_group(&device, document, group), expected); });
        cJSON_Delete(document);
        return printed;
    }

    ra_device_info device{};
};

TEST_F(GroupPublish, AnIotPublicationPrintsRunsLogsAndBacksUpInOrder) {
    publisherSays("hello\nPublish done\n");
    rig::setSetting("aws_json_backup", "1");
    rig::writeFile("/tmp/aws_json_dir/aws_Z5150.json", "backup");
    const int date[] = {2024, 1, 5};
    const int clock[] = {7, 8, 9};
    ra_set_json_timestamp(date, clock);
    const std::string command = "/tmp/media/nand/router-analytics/awsiotpub -i client-1 -f "
                                "/tmp/aws_json_dir/aws_Z5150_3.json -t ";
    EXPECT_EQ(send(3, 42), "42\n[awsiot]LD_LIBRARY_PATH=/usr/share " + command +
                               "\"analytics/\" -o -3 >/tmp/ra_pub_log.txt\n"
                               "backup JSON file ==> "
                               "/tmp/media/nand/router-analytics//aws_Z5150.json_20240105-070809\n"
                               "cp /tmp/aws_json_dir/aws_Z5150.json "
                               "/tmp/media/nand/router-analytics/aws_Z5150.json_20240105-070809"
                               "\n[RAE]awsiot Publish success !!");
    EXPECT_THAT(rig::recordedCommands(), ElementsAre(command + "analytics/ -o -3"));
    EXPECT_EQ(rig::readFile(reportPath(3)), "42");
    EXPECT_EQ(rig::readFile(std::string(kRoot) + "/aws_Z5150.json_20240105-070809"), "backup");
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_IoT(512) group=3, RA log:\n"
              "42hello\nPublish done\n");
}

TEST_F(GroupPublish, AnMcsPublicationIsNotPrintedAndNotCopiedIntoTheDebugLog) {
    use("MCS");
    publisherSays("\nX-Error\n");
    EXPECT_EQ(send(3), "1\n[RAE]MCS Publish success !!");
    EXPECT_THAT(
        rig::recordedCommands(),
        ElementsAre("/tmp/media/nand/router-analytics/mcs_publish -g 3 -f /tmp/ra_pub_log.txt"));
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_MCS(527) group=3, RA log:\n"
              "\nX-Error\n");
    // It looks at no device, and a document without a text leaves the report as it was.
    EXPECT_EQ(rig::standardOutput([] { ra_send_json_to_cloud_by_group(nullptr, nullptr, 3); }),
              "1\n[RAE]MCS Publish success !!");
}

TEST_F(GroupPublish, TheTwoPublishersSettleGroupsDifferently) {
    const struct {
        const char *method, *output;
        int group;
        group_retry before;
        const char *option; // "RA_useroption_report" before
        // Afterwards: the counters, that setting, whether the firmware report is done, connection
        // facts 1 and 2 (7 before), the count of IoT failures (no number before).
        const char *after;
    } rows[] = {
        {"IoT", "Publish done", 1, {3, 2, 1, 5}, "0", "0/0/0/5 0 - 00 x"},
        {"IoT", "Publish done", 2, {3, 2, 1, 5}, "0", "0/0/0/5 0 1 77 x"},
        {"IoT", "Publish done", 4, {3, 2, 1, 5}, "-", "0/0/0/5 1 - 77 x"},
        {"MCS", "fine", 1, {3, 2, 1, 5}, "0", "0/2/1/5 0 - 77 x"},
        {"MCS", "fine", 2, {3, 2, 1, 5}, "0", "0/2/1/5 0 1 77 x"},
        {"MCS", "fine", 4, {3, 2, 1, 5}, "-", "0/2/1/5 1 - 77 x"},
        {"IoT", "ERROR", 2, {3, 0, 0, 5}, "0", "0/0/1/5 0 - 77 1"},
        {"IoT", "ERROR", 2, {0, 3, 1, 5}, "0", "0/0/0/5 0 1 77 1"},
        {"IoT", "ERROR", 1, {0, 3, 1, 5}, "0", "0/0/0/5 0 - 77 1"},
        {"IoT", "ERROR", 4, {0, 0, 0, 5}, "0", "1/0/0/5 1 - 77 1"},
        {"IoT", "ERROR", 4, {0, 0, 0, 5}, "-", "1/0/0/5 - - 77 1"},
        {"MCS", "X-Error", 2, {3, 0, 0, 5}, "0", "0/0/0/5 0 1 77 x"},
        {"MCS", "X-Error", 4, {3, 0, 0, 5}, "0", "0/0/0/5 0 - 77 x"},
        {"IoT", "", 4, {1, 2, 1, 5}, "0", "1/2/1/5 0 - 77 x"},
    };
    for (const auto &row : rows) {
        rig::setSetting("RA_useroption_report", row.option);
        rig::setSetting("aws_fw_report_done", "-");
        rig::setSetting("awsiot_retry_count", "x");
        ra_set_check_fw_report(1);
        ra_set_internet_connection_info(1, 7);
        ra_set_internet_connection_info(2, 7);
        g_group_retry[row.group] = row.before;
        use(row.method);
        publisherSays(row.output);
        rig::writeFile(reportPath(row.group), "unsent");
        send(row.group);
        std::ostringstream after;
        after << counters(row.group) << " " << rig::setting("RA_useroption_report") << " "
              << rig::setting("aws_fw_report_done") << " " << ra_get_internet_connection_info(1)
              << ra_get_internet_connection_info(2) << " " << rig::setting("awsiot_retry_count");
        EXPECT_EQ(after.str(), row.after) << row.method << " " << row.output << " " << row.group;
    }
}

TEST_F(GroupPublish, FailuresAreSaidAndThoseOfIotCountedInASetting) {
    publisherSays("ERROR X-Error\n");
    for (const auto &[before, after] :
         {std::pair{"", "1"}, {"-5", "-4"}, {"2147483647", "2147483647"}}) {
        rig::setSetting("awsiot_retry_count", before);
        EXPECT_THAT(send(0), HasSubstr("\n[RAE]awsiot Publish failed !!ERROR X-Error\n"));
        EXPECT_EQ(rig::setting("awsiot_retry_count"), after);
    }
    use("MCS");
    EXPECT_THAT(send(0), "\n[RAE]MCS Publish failed !!ERROR X-Error\n");
}

TEST_F(GroupPublish, TheNoPublishSwitchPretendsASuccess) {
    const std::string banner = "1\n[RAE]##################################################\n"
                               "\n[RAE]aws_json_no_publish=1, don't send RA log to server\n"
                               "\n[RAE]##################################################\n";
    rig::setSetting("aws_json_no_publish", "1");
    EXPECT_EQ(send(0), banner);
    EXPECT_EQ(rig::readFile(kDebugLog), "Publish done\n");
    use("MCS");
    EXPECT_EQ(send(0), banner + "\n[RAE]MCS Publish success !!");

    use("IoT");
    publisherSays("Publish done\n");
    rig::setSetting("aws_json_no_publish", "2"); // publishes, but without a word
    EXPECT_THAT(send(0), Not(HasSubstr("[RAE]")));
    rig::setSetting("aws_json_no_publish", "0");
    EXPECT_THAT(send(0), HasSubstr("\n[RAE]awsiot Publish success !!"));
    EXPECT_EQ(rig::recordedCommands().size(), 2u);
}

TEST_F(GroupPublish, AnUnsentReportIsSentAgainEvenWhenItsDirectoryHasVanished) {
    publisherSays("ERROR\n");
    send(0);
    std::filesystem::remove_all("/tmp/aws_json_dir");
    send(0);
    EXPECT_EQ(counters(0), "2/0/0/0");
    EXPECT_EQ(send(1, 2, -3), ""); // nothing to send again, and nowhere to write
    EXPECT_EQ(rig::recordedCommands().size(), 2u);
}

TEST_F(GroupPublish, WithoutOutputOrAPublisherThereIsNoVerdict) {
    use("MCS");
    send(0);
    EXPECT_THAT(rig::readFile(kDebugLog),
                HasSubstr("[2024/1/5 07:08:09]ra_check_json_publish_status(665) open "
                          "/tmp/ra_pub_log.txt file failed\n"));
    rig::writeFile(kOutput, "ERROR\nX-Error\n");
    for (const char *method : {"", "IoTs", "IoT,MCS,IoT,MCS,", "IoT"}) {
        use(method); // the last one's earlier output is emptied by the shell
        send(0);
        EXPECT_EQ(counters(0), "0/0/0/0") << method;
    }
    std::filesystem::remove(kDebugLog);
    std::filesystem::create_directory(kDebugLog); // a log that cannot be opened hinders nothing
    publisherSays("ERROR\n");
    send(0);
    EXPECT_EQ(counters(0), "1/0/0/0");
}

TEST_F(GroupPublish, TheClientIdentifierStaysOneWordOfThePublishersCommand) {
    publisherSays("ERROR\n");
    const std::string hostile = "a b;$(c)`d`'\"\n|&>";
    identify(hostile + std::string(128 - hostile.size(), 'i'));
    send(0);
    EXPECT_EQ(rig::recordedWords(0)[2], std::string_view(device.client_id, 128));
}

TEST_F(GroupPublish, ACommandThatCannotBeRunEndsTheSendWithoutAVerdict) {
    rig::writeFile(kOutput, "ERROR\nX-Error\n");
    identify(std::string(127, '\'')); // four characters each, once quoted
    EXPECT_EQ(send(0), "1");
    identify("client-1");
    rig::fakeCommand("-g");
    rig::fakeCommand("-i");
    ra_set_root_dir("PATH=/bin:"); // an assignment, after which "-g" or "-i" would be run
    for (const char *method : {"IoT", "MCS"}) {
        use(method);
        EXPECT_EQ(send(0), "1");
    }
    for (const int group : {-1, 5, INT_MIN, INT_MAX}) {
        EXPECT_EQ(send(group, 1, -1), "");
        EXPECT_EQ(reset_group_retry_flag_by_group(group), 0);
    }
    EXPECT_THAT(rig::recordedCommands(), IsEmpty());
    EXPECT_EQ(counters(0), "0/0/0/0");
    EXPECT_FALSE(rig::fileExists(kDebugLog));
}

// A day in ticks of five minutes: a fresh report of group 2 at some ticks, a resend while one is
// unsent, a resend due every 12 ticks in retry mode. The publisher fails from the first to before
// the second tick of each outage.
TEST_F(GroupPublish, ADayOfOutagesIsRetriedGivenUpAndRecovered) {
    const std::set<int> fresh = {0, 96, 192, 240, 245};
    const std::pair<int, int> outages[] = {{0, 20}, {192, 204}, {240, 246}};
    std::string attempts; // as "tick:report:counters", the report being the tick of its writing
    ra_report_fw_upgrade_start();
    for (int tick = 0; tick < 288; ++tick) {
        rig::setTime(kMorning + tick * 300);
        if (is_group_retry_flag_isset() == 1)
            set_group_retry_counter(12);
        if (!fresh.contains(tick) && is_ra_need_retry_by_group(2) == 0)
            continue;
        const bool fails = std::ranges::any_of(outages, [&](const auto &outage) {
            return tick >= outage.first && tick < outage.second;
        });
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
    for (const int group : {0, 1, 3, 4})
        EXPECT_EQ(counters(group), "0/0/0/0");
}
