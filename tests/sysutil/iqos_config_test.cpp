#include "device_lists.h"

#include "support/fixture.h"

namespace {

constexpr const char *kConfig = "/tmp/trend/qos.conf";
constexpr const char *kOriginal = "[global]\n{0}\nmac= a00b00000001\n{1}\n{2}\nmac= A00B00000002\n"
                                  "class {2} again\n{3}\nrule=7";

} // namespace

class IqosConfig : public rig::Fixture {
  protected:
    static std::string after(int priority, const Mac &mac, const std::string &before) {
        rig::writeFile(kConfig, before);
        EXPECT_EQ(iqos_set_priority_by_mac(priority, mac.data()), 0);
        return rig::readFile(kConfig);
    }
};

TEST_F(IqosConfig, ADeviceMovesToTheGroupOfItsPriority) {
    const std::string without = "[global]\n{0}\n{1}\n{2}\nmac= A00B00000002\nclass {2} again\n{3}\n"
                                "rule=7";
    EXPECT_EQ(after(1, macOf(1), kOriginal),
              "[global]\n{0}\n{1}\n{2}\nmac= A00B00000001\nmac= A00B00000002\n"
              "class {2} again\nmac= A00B00000001\n{3}\nrule=7");
    EXPECT_EQ(after(0, macOf(1), without),
              "[global]\n{0}\n{1}\n{2}\nmac= A00B00000002\nclass {2} again\n{3}\n"
              "mac= A00B00000001\nrule=7");
    EXPECT_EQ(after(3, macOf(1), "{0}\r\nx\n"), "{0}\r\nmac= A00B00000001\nx\n");
    for (const int none : {4, -1, 2147483647, -2147483647 - 1})
        EXPECT_EQ(after(none, macOf(1), kOriginal), without) << none;
}

TEST_F(IqosConfig, ADeviceIsAddedBehindTheWholeLine) {
    const std::string longLine = "{1}" + std::string(600, 'x') + "{1}";
    EXPECT_EQ(after(2, macOf(1), longLine + "\nend\n"), longLine + "\nmac= A00B00000001\nend\n");
    EXPECT_EQ(after(2, macOf(1), "a\n{1}"), "a\n{1}\nmac= A00B00000001\n");
    EXPECT_EQ(after(2, macOf(1), ""), "");
}

TEST_F(IqosConfig, AFailedPassLeavesTheFileAsItWasBefore) {
    const auto fails = [] {
        return rig::standardError(
            [] { EXPECT_EQ(iqos_set_priority_by_mac(1, macOf(1).data()), -1); });
    };
    rig::writeFile("/dev/console", "");
    EXPECT_EQ(fails(), "fopen IQOS_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_FALSE(rig::fileExists(kConfig));

    rig::writeFile(kConfig, kOriginal);
    rig::fakeCommand("cp", "exit 1");
    EXPECT_EQ(fails(), "fopen IQOS_TMP_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_EQ(rig::readFile(kConfig), kOriginal);
    EXPECT_THAT(rig::recordedCommands(),
                testing::ElementsAre("cp /tmp/trend/qos.conf /tmp/trend/qos.conf.tmp",
                                     "cp /tmp/trend/qos.conf.tmp /tmp/trend/qos.conf"));

    rig::fakeCommand("cp", "if [ -e /tmp/second ]; then busybox rm -f /tmp/trend/qos.conf.tmp\n"
                           "else echo >/tmp/second; busybox cp \"$@\"; fi");
    EXPECT_EQ(fails(), "fopen IQOS_TMP_QOS_CONF_PATH: No such file or directory\n");
    std::string dropped = kOriginal; // what the first pass did stays
    dropped.erase(dropped.find("mac= a00b"), strlen("mac= a00b00000001\n"));
    EXPECT_EQ(rig::readFile(kConfig), dropped);
}

TEST_F(IqosConfig, APriorityIsManualWhenTheFileNamesTheDevice) {
    EXPECT_EQ(is_iqos_manual_priority(nullptr), 0);
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(is_iqos_manual_priority(macOf(1).data()), 0); }),
              "fopen /tmp/trend/qos.conf: No such file or directory\n");
    rig::writeFile(kConfig, kOriginal);
    EXPECT_EQ(is_iqos_manual_priority(macOf(1).data()), 1);
    EXPECT_EQ(is_iqos_manual_priority(macOf(3).data()), 0);
}
