#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

using testing::ElementsAre;
using testing::HasSubstr;
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
    const auto &retry = g_group_retry[group];
    return std::to_string(retry.fail_count) + "/" + std::to_string(retry.retry_due) + "/" +
           std::to_string(retry.retry_mode) + "/" + std::to_string(retry.retry_ticks);
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
        ra_set_awsiot_cert_opt(0);
        ra_set_check_fw_report(0);
        use("IoT");
        identify("client-1");
    }

    static void use(const char *method) {
        strncpy(DRI_update_info.publish_method, method, sizeof DRI_update_info.publish_method);
    }
    void identify(const std::string &id) { strncpy(device.client_id, id.c_str(), 128); }

    // Both publishers say this, each in its own way.
    static void publisherSays(const std::string &output) {
        rig::writeFile("/said", output);
        rig::fakeCommand(std::string(kRoot) + "/awsiotpub", "cat /said");
        rig::fakeCommand(std::string(kRoot) + "/mcs_publish", std::string("cat /said >") + kOutput);
    }

    // Sends a document that is just this text; gives what was printed.
    std::string send(int group, const char *text = "new", int expected = 0) {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> document(cJSON_CreateString(text),
                                                                       cJSON_Delete);
        return rig::standardOutput([&] {
            EXPECT_EQ(ra_send_json_to_cloud_by_group(&device, document.get(), group), expected);
        });
    }

    ra_device_info device{};
};

TEST_F(GroupPublish, AnIotPublicationPrintsRunsLogsAndBacksUpInOrder) {
    publisherSays("hello\nPublish done\n");
    rig::fakeCommand("awsiotpub", "exit 1"); // on the PATH: never the one that is run
    rig::setSetting("aws_json_backup", "1");
    rig::writeFile("/tmp/aws_json_dir/aws_Z5150.json", "backup");
    const int date[] = {2024, 1, 5};
    const int clock[] = {7, 8, 9};
    ra_set_json_timestamp(date, clock);
    ra_set_awsiot_cert_opt(-3);
    const std::string command = "/tmp/media/nand/router-analytics/awsiotpub -i client-1 -f "
                                "/tmp/aws_json_dir/aws_Z5150_3.json -t ";
    EXPECT_EQ(send(3), "\"new\""
                       "\n[awsiot]LD_LIBRARY_PATH=/usr/share " +
                           command +
                           "\"analytics/\" -o -3 >/tmp/ra_pub_log.txt\n"
                           "backup JSON file ==> /tmp/media/nand/router-analytics//aws_Z5150.json_"
                           "20240105-070809\n"
                           "cp /tmp/aws_json_dir/aws_Z5150.json /tmp/media/nand/router-analytics/"
                           "aws_Z5150.json_20240105-070809"
                           "\n[RAE]awsiot Publish success !!");
    EXPECT_THAT(rig::recordedCommands(), ElementsAre(command + "analytics/ -o -3"));
    EXPECT_EQ(rig::readFile(reportPath(3)), "\"new\"");
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_IoT(512) group=3, RA log:\n"
              "\"new\"hello\nPublish done\n");
    EXPECT_EQ(rig::readFile(std::string(kRoot) + "/aws_Z5150.json_20240105-070809"), "backup");
}

TEST_F(GroupPublish, AnMcsPublicationIsNotPrintedAndNotCopiedIntoTheDebugLog) {
    use("MCS");
    publisherSays("\nX-Error\n");
    EXPECT_EQ(send(3), "\"new\"\n[RAE]MCS Publish success !!");
    EXPECT_THAT(
        rig::recordedCommands(),
        ElementsAre("/tmp/media/nand/router-analytics/mcs_publish -g 3 -f /tmp/ra_pub_log.txt"));
    EXPECT_EQ(rig::readFile(kDebugLog),
              "[2024/1/5 07:08:09]ra_send_json_report_using_MCS(527) group=3, RA log:\n"
              "\nX-Error\n");
    publisherSays("X-Error 7\n");
    EXPECT_EQ(send(3), "\"new\"\n[RAE]MCS Publish failed !!X-Error 7\n");
}

// What each verdict does beside the counters, by group and publisher.
TEST_F(GroupPublish, TheTwoPublishersSettleGroupsDifferently) {
    const struct {
        const char *method;
        const char *output;
        int group;
        group_retry before;
        const char *after;
        const char *option;       // "RA_useroption_report" before
        const char *optionAfter;  //
        bool finished, forgotten; // the firmware report; connection facts 1 and 2
        const char *retryCount;
    } rows[] = {
        {"IoT", "Publish done", 0, {3, 2, 1, 5}, "0/0/0/5", "0", "0", false, false, ""},
        {"IoT", "Publish done", 1, {3, 2, 1, 5}, "0/0/0/5", "0", "0", false, true, ""},
        {"IoT", "Publish done", 2, {3, 2, 1, 5}, "0/0/0/5", "0", "0", true, false, ""},
        {"IoT", "Publish done", 3, {3, 2, 1, 5}, "0/0/0/5", "0", "0", false, false, ""},
        {"IoT", "Publish done", 4, {3, 2, 1, 5}, "0/0/0/5", "", "1", false, false, ""},
        {"MCS", "fine", 1, {3, 2, 1, 5}, "0/2/1/5", "0", "0", false, false, ""},
        {"MCS", "fine", 2, {3, 2, 1, 5}, "0/2/1/5", "0", "0", true, false, ""},
        {"MCS", "fine", 4, {3, 2, 1, 5}, "0/2/1/5", "", "1", false, false, ""},
        {"IoT", "ERROR", 2, {3, 0, 0, 5}, "0/0/1/5", "0", "0", false, false, "1"},
        {"IoT", "ERROR", 2, {0, 3, 1, 5}, "0/0/0/5", "0", "0", true, false, "1"},
        {"IoT", "ERROR", 1, {0, 3, 1, 5}, "0/0/0/5", "0", "0", false, false, "1"},
        {"IoT", "ERROR", 4, {0, 0, 0, 5}, "1/0/0/5", "0", "1", false, false, "1"},
        {"IoT", "ERROR", 4, {0, 3, 1, 5}, "0/0/0/5", "0", "1", false, false, "1"},
        {"IoT", "ERROR", 4, {0, 0, 0, 5}, "1/0/0/5", "", "", false, false, "1"},
        {"MCS", "X-Error", 2, {2, 0, 0, 5}, "3/0/0/5", "0", "0", false, false, ""},
        {"MCS", "X-Error", 2, {3, 0, 0, 5}, "0/0/0/5", "0", "0", true, false, ""},
        {"MCS", "X-Error", 1, {3, 0, 0, 5}, "0/0/0/5", "0", "0", false, false, ""},
        {"MCS", "X-Error", 4, {3, 0, 0, 5}, "0/0/0/5", "0", "0", false, false, ""},
        {"IoT", "", 4, {1, 2, 1, 5}, "1/2/1/5", "0", "0", false, false, ""},
        {"MCS", "", 4, {1, 2, 1, 5}, "1/2/1/5", "0", "0", false, false, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.method << " " << row.output << " " << row.group);
        rig::resetPlatform();
        rig::setSetting("RA_useroption_report", row.option);
        ra_set_check_fw_report(1);
        for (unsigned int index = 0; index < 3; ++index)
            ra_set_internet_connection_info(index, 7);
        g_group_retry[row.group] = row.before;
        use(row.method);
        publisherSays(row.output);
        rig::writeFile(reportPath(row.group), "unsent");
        send(row.group);
        EXPECT_EQ(counters(row.group), row.after);
        EXPECT_EQ(rig::setting("RA_useroption_report"), row.optionAfter);
        EXPECT_EQ(rig::setting("aws_fw_report_done"), row.finished ? "1" : "");
        EXPECT_EQ(rig::setting("awsiot_retry_count"), row.retryCount);
        EXPECT_EQ(ra_get_internet_connection_info(0), 7u);
        EXPECT_EQ(ra_get_internet_connection_info(1), row.forgotten ? 0u : 7u);
        EXPECT_EQ(ra_get_internet_connection_info(2), row.forgotten ? 0u : 7u);
    }
}

TEST_F(GroupPublish, IotFailuresAreCountedInASettingWhateverItHolds) {
    publisherSays("ERROR 5\n");
    const char *const rows[][2] = {{"", "1"},
                                   {"9", "10"},
                                   {"x", "1"},
                                   {"-5", "-4"},
                                   {"2147483646", "2147483647"},
                                   {"99999999999", "2147483647"}};
    for (const auto &row : rows) {
        rig::setSetting("awsiot_retry_count", row[0]);
        EXPECT_THAT(send(0), HasSubstr("\n[RAE]awsiot Publish failed !!ERROR 5\n"));
        EXPECT_EQ(rig::setting("awsiot_retry_count"), row[1]);
    }
}

TEST_F(GroupPublish, TheNoPublishSwitchPretendsASuccess) {
    const std::string banner = "\"new\""
                               "\n[RAE]##################################################\n"
                               "\n[RAE]aws_json_no_publish=1, don't send RA log to server\n"
                               "\n[RAE]##################################################\n";
    publisherSays("ERROR\n");
    rig::setSetting("aws_json_no_publish", "1");
    EXPECT_EQ(send(0), banner);
    EXPECT_EQ(rig::readFile(kDebugLog), "Publish done\n");
    use("MCS");
    EXPECT_EQ(send(0), banner + "\n[RAE]MCS Publish success !!");
    EXPECT_THAT(rig::recordedCommands(), ElementsAre());

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
    send(0, "old");
    send(0, "new");
    EXPECT_EQ(rig::readFile(reportPath(0)), "\"old\"");
    std::filesystem::remove_all("/tmp/aws_json_dir");
    rig::standardError([&] { send(0, "new"); });
    EXPECT_EQ(counters(0), "3/0/0/0");
    EXPECT_EQ(rig::recordedCommands().size(), 3u);
    EXPECT_EQ(send(1, "new", -3), ""); // nothing to send again: the report cannot be written
    EXPECT_EQ(rig::recordedCommands().size(), 3u);
}

TEST_F(GroupPublish, OutputThatCannotBeReadOrAPublisherThatIsMissingGivesNoVerdict) {
    use("MCS");
    const std::string errors = rig::standardError([&] { send(0); });
    EXPECT_THAT(errors, HasSubstr("mcs_publish"));
    EXPECT_THAT(rig::readFile(kDebugLog),
                HasSubstr("[2024/1/5 07:08:09]ra_check_json_publish_status(665) open "
                          "/tmp/ra_pub_log.txt file failed\n"));
    use("IoT");
    rig::writeFile(kOutput, "ERROR\n"); // an earlier output is emptied by the shell
    rig::standardError([&] { send(0); });
    EXPECT_EQ(rig::readFile(kOutput), "");
    EXPECT_EQ(counters(0), "0/0/0/0");

    std::filesystem::remove(kDebugLog);
    std::filesystem::create_directory(kDebugLog); // a log that cannot be opened hinders nothing
    publisherSays("ERROR\n");
    rig::standardError([&] { send(0); });
    EXPECT_EQ(counters(0), "1/0/0/0");
}

TEST_F(GroupPublish, AnUnknownMethodPublishesAndJudgesNothing) {
    publisherSays("Publish done\n");
    rig::writeFile(kOutput, "ERROR\nX-Error\n");
    rig::setSetting("aws_json_backup", "1");
    g_group_retry[0].fail_count = 2;
    for (const char *method : {"", "IoTs", "IoT,MCS,IoT,MCS,"}) {
        use(method);
        rig::standardError([&] { EXPECT_THAT(send(0), HasSubstr("backup JSON file")); });
    }
    EXPECT_EQ(counters(0), "2/0/0/0");
    EXPECT_THAT(rig::recordedCommands(), ElementsAre());
}

TEST_F(GroupPublish, TextFromOutsideStaysOneWordOfThePublishersCommand) {
    for (const std::string id : {"a b;$(touch /tmp/x)`touch /tmp/x`'\"\n|&>", "-f", "\xff\x80"}) {
        publisherSays("ERROR\n");
        rig::forgetCommands();
        identify(id);
        send(0);
        EXPECT_EQ(rig::recordedWords(0)[2], id);
    }
    identify(std::string(128, 'i')); // as long as its field, without a terminator
    rig::forgetCommands();
    send(0);
    EXPECT_EQ(rig::recordedWords(0)[2], std::string(128, 'i'));
    EXPECT_FALSE(rig::fileExists("/tmp/x"));
}

TEST_F(GroupPublish, ACommandThatCannotBeRunEndsTheSendWithoutAVerdict) {
    rig::writeFile(kOutput, "ERROR\nX-Error\n");
    rig::setSetting("aws_json_backup", "1");
    rig::fakeCommand("-g", "touch /tmp/x");
    rig::fakeCommand("-i", "touch /tmp/x");
    identify(std::string(127, '\'')); // four characters each, once quoted
    EXPECT_EQ(send(0), "\"new\"");
    identify("client-1");
    for (const char *method : {"IoT", "MCS"}) {
        use(method);
        ra_set_root_dir("PATH=/bin");
        EXPECT_EQ(send(0), "\"new\"");
    }
    EXPECT_THAT(rig::recordedCommands(), ElementsAre());
    EXPECT_EQ(counters(0), "0/0/0/0");
    EXPECT_FALSE(rig::fileExists(kDebugLog));
}

TEST_F(GroupPublish, AGroupThatDoesNotExistIsRefused) {
    publisherSays("Publish done\n");
    for (const int group : {-1, 5, INT_MIN, INT_MAX}) {
        EXPECT_EQ(send(group, "new", -1), "");
        EXPECT_EQ(reset_group_retry_flag_by_group(group), 0);
    }
    EXPECT_THAT(rig::recordedCommands(), ElementsAre());
    EXPECT_EQ(rig::setting("RA_useroption_report"), "");
}

// A day in ticks of five minutes: a fresh report of group 2 at some ticks, a resend while one is
// unsent, a resend due every 12 ticks in retry mode, and a publisher that fails at times.
class GroupPublishDay : public GroupPublish {
  protected:
    struct Outage {
        int from, to;
    };

    // Each attempt as "tick report counters", the report being the tick at which it was written.
    std::vector<std::string> replay(const std::vector<int> &fresh,
                                    const std::vector<Outage> &outages) {
        std::vector<std::string> attempts;
        for (int tick = 0; tick < 288; ++tick) {
            rig::setTime(kMorning + tick * 300);
            if (is_group_retry_flag_isset() == 1)
                set_group_retry_counter(12);
            const bool isFresh = std::ranges::count(fresh, tick) > 0;
            if (!isFresh && is_ra_need_retry_by_group(2) == 0)
                continue;
            const bool fails = std::ranges::any_of(
                outages, [&](const auto &o) { return tick >= o.from && tick < o.to; });
            publisherSays(fails ? "ERROR X-Error\n" : "Publish done\n");
            send(2, std::to_string(tick).c_str());
            attempts.push_back(std::to_string(tick) + " " + rig::readFile(reportPath(2)) + " " +
                               counters(2));
            if (rig::setting("aws_fw_report_done") == "1" && finishedAt < 0)
                finishedAt = tick;
        }
        return attempts;
    }

    int finishedAt = -1;
};

TEST_F(GroupPublishDay, IotRetriesGivesUpAndRecovers) {
    ra_report_fw_upgrade_start();
    const auto attempts = replay({0, 96, 192, 240, 245}, {{0, 20}, {192, 204}, {240, 246}});
    EXPECT_THAT(attempts,
                ElementsAre("0 \"0\" 1/0/0/0", "1 \"0\" 2/0/0/0", "2 \"0\" 3/0/0/0",
                            "3 \"0\" 0/0/1/0",                      // retry mode
                            "15 \"0\" 0/2/1/0", "16 \"0\" 0/3/1/1", // due after 12 ticks
                            "17 \"0\" 0/0/0/2",                     // gives up
                            "96 \"96\" 0/0/0/2",                    //
                            "192 \"192\" 1/0/0/2", "193 \"192\" 2/0/0/2", "194 \"192\" 3/0/0/2",
                            "195 \"192\" 0/0/1/2", // the ticks go on from 2
                            "205 \"192\" 0/0/0/0", // recovered when due
                            "240 \"240\" 1/0/0/0", "241 \"240\" 2/0/0/0", "242 \"240\" 3/0/0/0",
                            "243 \"240\" 0/0/1/0", //
                            "245 \"245\" 0/1/1/2", // fresh while waiting
                            "246 \"245\" 0/0/0/3"));
    EXPECT_EQ(finishedAt, 17);
    EXPECT_EQ(rig::setting("awsiot_retry_count"), "16");
    EXPECT_EQ(rig::recordedCommands().size(), attempts.size());
    EXPECT_THAT(rig::readFile(kDebugLog),
                HasSubstr("[2024/1/5 08:23:09]ra_send_json_report_using_IoT(512) group=2, RA log:\n"
                          "\"0\"ERROR X-Error\n"));
    for (const int group : {0, 1, 3, 4})
        EXPECT_EQ(counters(group), "0/0/0/0");
}

TEST_F(GroupPublishDay, McsGivesUpAfterFourAttempts) {
    use("MCS");
    ra_report_fw_upgrade_start();
    EXPECT_THAT(replay({0, 96, 97, 200}, {{0, 20}, {96, 98}}),
                ElementsAre("0 \"0\" 1/0/0/0", "1 \"0\" 2/0/0/0", "2 \"0\" 3/0/0/0",
                            "3 \"0\" 0/0/0/0", "96 \"96\" 1/0/0/0", "97 \"96\" 2/0/0/0",
                            "98 \"96\" 0/0/0/0", "200 \"200\" 0/0/0/0"));
    EXPECT_EQ(finishedAt, 3);
    EXPECT_EQ(rig::setting("awsiot_retry_count"), "");
}
