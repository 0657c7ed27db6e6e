#include "device_lists.h"

namespace {

constexpr const char *kConfig = "/tmp/trend/qos.conf";
const std::string kOriginal = "[global]\n{0}\nmac= a00b00000001\n{1}\n{2}\nmac= A00B00000002\n"
                              "class {2}\n{3}\nrule=7";
const std::string kWithout = "[global]\n{0}\n{1}\n{2}\nmac= A00B00000002\nclass {2}\n{3}\nrule=7";

} // namespace

class IqosConfig : public rig::Fixture {};

TEST_F(IqosConfig, ADeviceMovesToEveryPlaceOfItsGroup) {
    const std::string longLine = "{1}" + std::string(600, 'x');
    struct {
        int priority;
        std::string before, after;
    } const rows[] = {
        {1, kOriginal,
         "[global]\n{0}\n{1}\n{2}\nmac= A00B00000001\nmac= A00B00000002\n"
         "class {2}\nmac= A00B00000001\n{3}\nrule=7"},
        {0, "{0}\r\n{3} x\ny", "{0}\r\n{3} x\nmac= A00B00000001\ny"},
        {3, "{0}\r\nx", "{0}\r\nmac= A00B00000001\nx"},
        {4, kOriginal, kWithout},
        {-2147483647 - 1, kOriginal, kWithout},
        {2, longLine + "\nend\n", longLine + "\nmac= A00B00000001\nend\n"},
        {2, "a\n{1}", "a\n{1}\nmac= A00B00000001\n"},
    };
    for (const auto &row : rows) {
        rig::writeFile(kConfig, row.before);
        EXPECT_EQ(iqos_set_priority_by_mac(row.priority, macOf(1).data()), 0);
        EXPECT_EQ(rig::readFile(kConfig), row.after);
    }
}

TEST_F(IqosConfig, AFailedPassLeavesTheFileAsItWasBefore) {
    const auto complaint = [] {
        return rig::standardError(
            [] { EXPECT_EQ(iqos_set_priority_by_mac(1, macOf(1).data()), -1); });
    };
    rig::writeFile("/dev/console", "");
    EXPECT_EQ(complaint(), "fopen IQOS_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_FALSE(rig::fileExists(kConfig));

    rig::writeFile(kConfig, kOriginal);
    rig::fakeCommand("cp", "exit 1");
    EXPECT_EQ(complaint(), "fopen IQOS_TMP_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_EQ(rig::readFile(kConfig), kOriginal);
    EXPECT_THAT(rig::recordedCommands(),
                testing::ElementsAre("cp /tmp/trend/qos.conf /tmp/trend/qos.conf.tmp",
                                     "cp /tmp/trend/qos.conf.tmp /tmp/trend/qos.conf"));

    rig::fakeCommand("cp", "if [ -e /tmp/second ]; then busybox rm -f /tmp/trend/qos.conf.tmp\n"
                           "else echo >/tmp/second; busybox cp \"$@\"; fi");
    EXPECT_EQ(complaint(), "fopen IQOS_TMP_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_EQ(rig::readFile(kConfig), kWithout); // what the first pass did stays
}

TEST_F(IqosConfig, APriorityIsManualWhenTheFileNamesTheDevice) {
    EXPECT_EQ(is_iqos_manual_priority(nullptr), 0);
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(is_iqos_manual_priority(macOf(1).data()), 0); }),
              "fopen /tmp/trend/qos.conf: No such file or directory\n");
    rig::writeFile(kConfig, kOriginal);
    EXPECT_EQ(is_iqos_manual_priority(macOf(1).data()), 1);
    EXPECT_EQ(is_iqos_manual_priority(macOf(3).data()), 0);
}
