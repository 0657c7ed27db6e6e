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
        return printed(report, [] {
            iqos_detail out;
            memset(&out, 'x', sizeof out);
            EXPECT_EQ(getIQoSDetailBymac(&out, kMac), 0);
        });
    }
    static std::string apps(const std::string &report) {
        return printed(report, [] {
            devAppNode *head = nullptr;
            EXPECT_EQ(getIQoSAppListBymac(&head, kMac), 0);
            removeAllAppNodes(&head);
            EXPECT_EQ(removeAllAppNodes(&head), -1);
        });
    }

  private:
    static std::string printed(const std::string &report, const std::function<void()> &body) {
        static const std::regex kPrefix("\\[[A-Za-z_]+\\]\\[[0-9]+\\]");
        rig::writeFile("/tmp/iqos_detail", report);
        return std::regex_replace(rig::standardOutput(body), kPrefix, "");
    }
};

TEST_F(AppDetail, ADeviceIsReadFromItsOwnSection) {
    iqos_detail none{1, 2, "", "", 3, "", 4, 5, 6, 7};
    EXPECT_EQ(rig::standardError([&] { EXPECT_EQ(getIQoSDetailBymac(&none, kMac), 0); }),
              "/tmp/iqos_detail: No such file or directory\n");
    EXPECT_EQ(none.default_priority + none.app_count, 5) << "left as it was";
    const std::string rule = "==============================================\n";
    EXPECT_EQ(
        detail(std::string(1000, 'z') + "\n" + kOther + kSection +
               "default_priority : 2\ndefault_priority\ndefault_priority :\ndev_type_id : 51\n"
               "dev_type_name : Smart TV\ntrend_dev_name : a@b\n\ntrend_dev_type_id :  9999999999\n"
               "trend_dev_type_nam : " +
               std::string(500, 't') +
               "\napp_name : no key of a device\napp_count : -9999999999\n" +
               std::string("\0\0\n", 3) +
               "total_diff_down_byt : 1e3\ntotal_diff_up_byt : 2.5\ntotal_diff_traffi : 3.5\n"
               "default_priority : 8\n"),
        rule +
            "default_priority: 2\ndev_type_id: 51\ndev_type_name:  Smart TV\ntrend_dev_name:  a\n"
            "trend_dev_type_id: 2147483647\ntrend_dev_type_name:  " +
            std::string(30, 't') +
            "\napp_count: -2147483648\ntotal_diff_down_byte: 1000.000000\n"
            "total_diff_up_byte: 2.500000\ntotal_diff_traffic: 3.500000\n" +
            rule);
    for (const char *type : {"52", "-1", "99999999999"})
        EXPECT_THAT(detail(kSection + "dev_type_id : " + type + "\n"),
                    testing::ContainsRegex("device type.[-0-9]+. out of range!\n(.*\n)*"
                                           "dev_type_id: 0\n"));
    EXPECT_THAT(detail(kSection + "app_count : 7\n" + kOther), HasSubstr("app_count: 1\n"))
        << "a section without its last line runs into the next";
    EXPECT_THAT(detail(kOther), HasSubstr("app_count: 0\n"));
}

TEST_F(AppDetail, ApplicationsCarryOverWhatTheirBlockLacks) {
    EXPECT_EQ(
        apps(kOther + kSection +
             "  APP_NAME : First up_diff_pkt 8\ndown_diff_byte : 1.5\nup_diff_byte : 2\n"
             "up_diff_pkt : 3\nlast_used_ts : 1700000000.9\napp_name : Second\ndown_diff_pkt : 4\n"
             "last_used_ts : 1e30\napp_name : never completed\napp_count : 2\n" +
             kOther),
        "app_name:  First up_diff_pkt 8\ndown_diff_byte: 1.500000\ndown_diff_pkt: 0.000000\n"
        "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 1700000000\n"
        "app_name:  Second\ndown_diff_byte: 1.500000\ndown_diff_pkt: 4.000000\n"
        "up_diff_byte: 2.000000\nup_diff_pkt: 3.000000\nlast_used_ts: 0\nnode not exist.\n");
    EXPECT_EQ(apps(kOther), "node not exist.\nnode not exist.\n") << "nothing was added";
}

} // namespace
