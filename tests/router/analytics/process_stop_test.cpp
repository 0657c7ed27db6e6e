#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <filesystem>

using testing::Contains;
using testing::ElementsAre;

// Every command here is a fake in the private root: nothing outside it can be stopped.
class ProcessStop : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        for (const char *name :
             {"bcmiqosd", "firewall", "umount", "/mnt/shares/usr/bin/stopcircle",
              "/opt/bitdefender/bin/bd", "/tmp/media/nand/partner_media/busybox"})
            rig::fakeCommand(name);
        rig::fakeCommand("killall", "echo \"<$2>\"");
        rig::fakeCommand("ps", "echo '<ps>'; exit 3");
        rig::writeFile("/proc/meminfo", "<memory>");
    }
};

TEST_F(ProcessStop, EverythingIsStoppedInOrder) {
    const char *const removed[] = {"/tmp/log", "/tmp/a.log", "/tmp/b.cap", "/tmp/c.txt",
                                   "/var/run/partner_media.pid"};
    for (const char *path : removed)
        rig::writeFile(path, "");
    rig::writeFile("/proc/mounts", "/dev/root / squashfs ro 0 0\n"
                                   "/tmp/a;reboot /tmp/media/nand/partner_media/data ext4 rw 0 0\n"
                                   "/tmp/media/nand/partner_media/image\n");
    rig::setSetting("enable_circle_control", "1");
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(stop_process(), 3 << 8); }),
              "/**** [RAE] To kill process ****/<memory><ps>\n"
              "<bftpd>\n<smbd>\n<nmbd>\n<ntfs-3g>\n<minidlna.exe>\n" // the daemons in silence
              "iqos_service(4234) action=stop_iqos\nQoS database file on nflash is not existed"
              "/**** [RAE] Done ****/<memory><ps>\n");
    const auto ran = rig::recordedCommands(); // between these, the long list of daemons
    ASSERT_GT(ran.size(), 13u + 4u);
    EXPECT_THAT(std::vector(ran.begin(), ran.begin() + 13),
                ElementsAre("ps", "killall -9 bftpd", "killall -9 smbd", "killall -9 nmbd",
                            "killall -9 ntfs-3g", "killall -9 minidlna.exe", "bcmiqosd stop",
                            "/tmp/media/nand/partner_media/busybox sh "
                            "/tmp/media/nand/partner_media/daemon.sh stop",
                            "firewall delport partner_media_http TCP 42080",
                            "firewall delport partner_media_https TCP 42443",
                            "umount /tmp/a;reboot", "umount /tmp/media/nand/partner_media/image",
                            "killall -9 aws_json"));
    EXPECT_THAT(ran, Contains("killall -9 trafficUsageDetailsD"));
    EXPECT_THAT(std::vector(ran.end() - 4, ran.end()),
                ElementsAre("killall -9 media_scan", "/mnt/shares/usr/bin/stopcircle",
                            "/opt/bitdefender/bin/bd stop", "ps"));
    for (const char *path : removed)
        EXPECT_FALSE(rig::fileExists(path)) << path;
    EXPECT_EQ(rig::sleptSeconds(), 1u + 3);
    std::filesystem::remove("/proc/mounts"); // is waited for
    rig::writeFile(removed[4], "");
    rig::standardOutput([] { stop_process(); });
    EXPECT_EQ(rig::sleptSeconds(), 4u + 1 + 3 + 5);
}

TEST_F(ProcessStop, ItRunsOnlyForATriggeredUpgradeAndPassesByWhatIsNotInstalled) {
    const auto says = [](const char *result, const char *triggered) {
        rig::setSetting("aws_fw_check_result", result);
        rig::setSetting("aws_fw_upgarade_triggered", triggered);
        return rig::standardOutput(kill_process_if_need);
    };
    EXPECT_EQ(says("", "Triggerd"), "/**** [RAE] Don't need to kill process ****/");
    EXPECT_EQ(says("no error", "Triggered"), "/**** [RAE] Don't need to kill process ****/");
    rig::writeFile("/opt/RA/fw_update_issue_fix.txt", "");
    EXPECT_EQ(says("no error", "Triggerd"), "/****  [RAE] Don't need to kill process ****/");
    EXPECT_THAT(rig::recordedCommands(), testing::IsEmpty());
    std::filesystem::remove_all("/opt/RA");
    says("no error", "Triggerd");
    EXPECT_THAT(rig::recordedCommands(), Contains("bcmiqosd stop"));
    EXPECT_THAT(rig::recordedCommands(),
                testing::Each(testing::Not(testing::ContainsRegex("partner|umount|circle"))));
}
