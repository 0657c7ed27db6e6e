#include "sysutil/app_detail.h"

#include "support/fixture.h"

#include <cstring>
#include <regex>

using testing::HasSubstr;

namespace {

constexpr const char *kMac = "AA:BB:CC:DD:EE:FF";
const std::string kSection = "mac : aa:bb:cc:dd:ee:ff\n";
const std::string kOther = "mac : 00:00:00:00:00:01\ndefault_priority : 9\napp_name : Other\n"
                           "last_used_ts : 1\napp_count : 1\ntotal_diff_traffic : 1\n";

class AppDetail : public rig::Fixture {
  protected:
    // What is printed of the device, and of its applications, less the "[function][line]".
    static std::string detail(const std::string &report) {
        rig::writeFile("/tmp/iqos_detail", report);
        iqos_detail out;
        memset(&out, 'x', sizeof out);
        return printed([&] { EXPECT_EQ(getIQoSDetailBymac(&out, kMac), 0); });
    }
    static std::string apps(const std::string &report) {
        rig::writeFile("/tmp/iqos_detail", report);
        devAppNode *head = nullptr;
        return printed([&] {
            EXPECT_EQ(getIQoSAppListBymac(&head, kMac), 0);
            removeAllAppNodes(&head);
            EXPECT_EQ(removeAllAppNodes(&head), -1);
        });
    }
    static std::string printed(const std::function<void()> &body) {
        static const std::regex kPrefix("\\[[A-Za-z_]+\\]\\[[0-9]+\\]");
        return std::regex_replace(rig::standardOutput(body), kPrefix, "");
    }
};

TEST_F(AppDetail, ADeviceIsReadFromItsOwnSection) {
    const std::string rule = "==============================================\n";
    EXPECT_EQ(
        detail(kOther + kSection +
               "default_priority : 2\ndev_type_id : 51\ndev_type_name : Smart TV\n"
               "trend_dev_name : a@b\ntrend_dev_type_id :  17x\ntrend_dev_type_nam : any last\n"
               "app_name : no key of a device\napp_count : 3\ntotal_diff_down_byt : 1e3\n"
               "total_diff_up_byt : 2.5\ntotal_diff_traffi : 3.5\ndefault_priority : 8\n"),
        rule +
            "default_priority: 2\ndev_type_id: 51\ndev_type_name:  Smart TV\ntrend_dev_name:  a\n"
            "trend_dev_type_id: 17\ntrend_dev_type_name:  any last\napp_count: 3\n"
            "total_diff_down_byte: 1000.000000\ntotal_diff_up_byte: 2.500000\n"
            "total_diff_traffic: 3.500000\n" +
            rule);
    EXPECT_THAT(detail(kSection + "app_count : 7\n" + kOther), HasSubstr("app_count: 1\n"))
        << "a section without its last line runs into the next";
    EXPECT_THAT(detail(kOther), HasSubstr("app_count: 0\n"));
}

TEST_F(AppDetail, HostileLinesStayInTheirFieldsAndRanges) {
    for (const char *type : {"52", "-1", "99999999999"}) {
        const std::string output = detail(kSection + "dev_type_id : " + type + "\n");
        EXPECT_THAT(output, testing::ContainsRegex("device type.[-0-9]+. out of range!\n"));
        EXPECT_THAT(output, HasSubstr("dev_type_id: 0\n"));
    }
    const std::string output =
        detail(std::string(1000, 'z') + "\n" + kSection + "default_priority\ndefault_priority :\n" +
               "dev_type_name : " + std::string(500, 't') + "\ndev_type_id : \xff\xfe\n" +
               "trend_dev_name :\ntrend_dev_type_id : 99999999999999\napp_count : -99999999999\n" +
               std::string("\0\0\n\n@\ntotal_diff_traffic", 24));
    EXPECT_THAT(output, HasSubstr("default_priority: 0\ndev_type_id: 0\ndev_type_name:  " +
                                  std::string(30, 't') +
                                  "\ntrend_dev_name: \ntrend_dev_type_id: 2147483647\n"));
    EXPECT_THAT(output, HasSubstr("app_count: -2147483648\n"));
}

TEST_F(AppDetail, ApplicationsCarryOverWhatTheirBlockLacks) {
    EXPECT_EQ(
        apps(kOther + kSection +
             "  APP_NAME : First One\ndown_diff_byte : 1.5\nup_diff_byte : 2\nup_diff_pkt : 3\n"
             "last_used_ts : 1700000000.9\napp_name : Second\ndown_diff_pkt : 4\n"
             "last_used_ts : 1e30\napp_name : never completed\napp_count : 2\n" +
             kOther),
        "app_name:  First One\ndown_diff_byte: 1.500000\ndown_diff_pkt: 0.000000\n"
        "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 1700000000\n"
        "app_name:  Second\ndown_diff_byte: 1.500000\ndown_diff_pkt: 4.000000\n"
        "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 0\nnode not exist.\n");
    EXPECT_EQ(apps(kOther), "node not exist.\nnode not exist.\n") << "nothing was added";
}

TEST_F(AppDetail, NoReportLeavesTheRecordAsItWas) {
    iqos_detail out{};
    out.app_count = 5;
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(getIQoSDetailBymac(&out, kMac), 0); }),
              "/tmp/iqos_detail: No such file or directory\n");
    EXPECT_EQ(out.app_count, 5);
}

} // namespace
