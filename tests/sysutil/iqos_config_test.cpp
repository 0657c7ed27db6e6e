#include "device_lists.h"

namespace {

constexpr const char *kConfig = "/tmp/trend/qos.conf";
const std::string kOriginal = "{0}\nmac= a00b00000001\n{2}\nmac= A00B00000002\nclass {2}\n{3}";
const std::string kWithout = "{0}\n{2}\nmac= A00B00000002\nclass {2}\n{3}";

} // namespace

class IqosConfig : public rig::Fixture {};

TEST_F(IqosConfig, ADeviceMovesToEveryPlaceOfItsGroup) {
    const std::string mac = "mac= A00B00000001\n";
    const std::string longLine = "{1}" + std::string(600, 'x') + "\n";
    const struct {
        int priority;
        std::string before, after;
    } rows[] = {{1, kOriginal, "{0}\n{2}\n" + mac + "mac= A00B00000002\nclass {2}\n" + mac + "{3}"},
                {0, kOriginal, kWithout + "\n" + mac},
                {3, "{0}\r\nx", "{0}\r\n" + mac + "x"},
                {4, kOriginal, kWithout},
                {-2147483647 - 1, kOriginal, kWithout},
                {2, longLine + "end", longLine + mac + "end"}};
    for (const auto &row : rows) {
        rig::writeFile(kConfig, row.before);
        EXPECT_EQ(iqos_set_priority_by_mac(row.priority, macOf(1)), 0);
        EXPECT_EQ(rig::readFile(kConfig), row.after);
        const bool named = row.after.find("01\n") != std::string::npos;
        EXPECT_EQ(is_iqos_manual_priority(macOf(1)), named ? 1 : 0);
    }
}

TEST_F(IqosConfig, AFailedPassLeavesTheFileAsItWasBefore) {
    const auto expectFailure = [](const char *what) {
        const auto run = [] { EXPECT_EQ(iqos_set_priority_by_mac(1, macOf(1)), -1); };
        EXPECT_EQ(rig::standardError(run), std::string(what) + ": No such file or directory\n");
    };
    EXPECT_EQ(is_iqos_manual_priority(nullptr), 0);
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(is_iqos_manual_priority(macOf(1)), 0); }),
              "fopen /tmp/trend/qos.conf: No such file or directory\n");
    rig::writeFile("/dev/console", "");
    expectFailure("fopen IQOS_QOS_CONF_PATH");
    EXPECT_FALSE(rig::fileExists(kConfig));

    rig::writeFile(kConfig, kOriginal);
    rig::fakeCommand("cp");
    expectFailure("fopen IQOS_TMP_QOS_CONF_PATH");
    EXPECT_EQ(rig::readFile(kConfig), kOriginal);
    EXPECT_THAT(rig::recordedCommands(),
                testing::ElementsAre("cp /tmp/trend/qos.conf /tmp/trend/qos.conf.tmp",
                                     "cp /tmp/trend/qos.conf.tmp /tmp/trend/qos.conf"));

    rig::fakeCommand("cp", "if [ -e /tmp/second ]; then busybox rm -f /tmp/trend/qos.conf.tmp\n"
                           "else echo >/tmp/second; busybox cp \"$@\"; fi");
    expectFailure("fopen IQOS_TMP_QOS_CONF_PATH");
    EXPECT_EQ(rig::readFile(kConfig), kWithout); // what the first pass did stays
}
