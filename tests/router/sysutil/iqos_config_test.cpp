#include "device_lists.h"

#include <filesystem>

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
                {-2147483647 - 1, kOriginal, kWithout},
                {2, longLine + "end", longLine + mac + "end"}};
    for (const auto &[priority, before, after] : rows) {
        rig::writeFile(kConfig, before);
        EXPECT_EQ(iqos_set_priority_by_mac(priority, macOf(1)), 0);
        EXPECT_EQ(rig::readFile(kConfig), after);
        EXPECT_EQ(is_iqos_manual_priority(macOf(1)), after == kWithout ? 0 : 1);
    }
}

// What cp can do wrong, by itself and once the first pass is through; an older copy lies about.
TEST_F(IqosConfig, WithoutAWholeCopyTheFileLosesNothing) {
    const std::string second =
        "[ -e /tmp/second ] || { : >/tmp/second; exec busybox cp \"$@\"; }\n";
    for (const char *fault : {"exit 1", "busybox head -c 9 $1 >$2; exit 1", ": >$2"}) {
        for (const bool later : {false, true}) {
            rig::writeFile(kConfig, kOriginal);
            rig::writeFile("/tmp/trend/qos.conf.tmp", "older");
            std::filesystem::remove("/tmp/second");
            rig::fakeCommand("cp", (later ? second : "") + fault);
            EXPECT_EQ(iqos_set_priority_by_mac(1, macOf(1)), -1) << fault;
            EXPECT_EQ(rig::readFile(kConfig), later ? kWithout : kOriginal) << fault;
        }
    }
}

TEST_F(IqosConfig, AMissingFileIsMadeAndItsCopyIsWhatIsMissed) {
    rig::writeFile("/dev/console", "");
    const auto run = [] { EXPECT_EQ(iqos_set_priority_by_mac(1, macOf(1)), -1); };
    EXPECT_EQ(rig::standardError(run), "fopen IQOS_TMP_QOS_CONF_PATH: No such file or directory\n");
    EXPECT_EQ(rig::readFile(kConfig), "");
    EXPECT_EQ(is_iqos_manual_priority(nullptr), 0);
    std::filesystem::remove(kConfig);
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(is_iqos_manual_priority(macOf(1)), 0); }),
              "fopen /tmp/trend/qos.conf: No such file or directory\n");
}
