#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <filesystem>

using testing::Contains;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Every command here is a fake in the private root: nothing outside it can be stopped.
class ProcessStop : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        for (const char *name :
             {"killall", "bcmiqosd", "firewall", "umount", "/mnt/shares/usr/bin/stopcircle",
              "/opt/bitdefender/bin/bd", "/tmp/media/nand/partner_media/busybox"})
            rig::fakeCommand(name, "echo \"<$0>\"");
        rig::fakeCommand("ps", "echo '<ps>'; exit 3");
        rig::writeFile("/proc/meminfo", "<memory>");
        rig::writeFile("/proc/mounts",
                       "/dev/root / squashfs ro 0 0\n"
                       "/tmp/a;reboot /tmp/media/nand/partner_media/data ext4 rw 0 0\n"
                       "/tmp/media/nand/partner_media/image\n");
    }

    // The recorded commands with the long list of daemons as one entry.
    static std::vector<std::string> sequence() {
        std::vector<std::string> result;
        int kills = 0;
        for (const auto &command : rig::recordedCommands()) {
            if (!command.starts_with("killall") || ++kills <= 5)
                result.push_back(command);
            else if (kills == 6)
                result.emplace_back("daemons");
        }
        return result;
    }
};

TEST_F(ProcessStop, EverythingIsStoppedInOrder) {
    rig::writeFile("/var/run/partner_media.pid", "77");
    rig::setSetting("enable_circle_control", "1");
    rig::standardOutput([] { EXPECT_EQ(stop_process(), 3 << 8); });
    const char *const expected[] = {
        "ps",
        "killall -9 bftpd",
        "killall -9 smbd",
        "killall -9 nmbd",
        "killall -9 ntfs-3g",
        "killall -9 minidlna.exe",
        "bcmiqosd stop",
        "/tmp/media/nand/partner_media/busybox sh /tmp/media/nand/partner_media/daemon.sh stop",
        "firewall delport partner_media_http TCP 42080",
        "firewall delport partner_media_https TCP 42443",
        "umount /tmp/a;reboot",
        "umount /tmp/media/nand/partner_media/image",
        "daemons",
        "/mnt/shares/usr/bin/stopcircle",
        "/opt/bitdefender/bin/bd stop",
        "ps"};
    EXPECT_THAT(sequence(), ElementsAreArray(expected));
    EXPECT_THAT(rig::recordedCommands(), Contains("killall -9 trafficUsageDetailsD"));
    EXPECT_THAT(rig::recordedCommands(), Contains("killall -9 media_scan"));
    EXPECT_FALSE(rig::fileExists("/var/run/partner_media.pid"));
    EXPECT_EQ(rig::sleptSeconds(), 1u + 3u);
}

TEST_F(ProcessStop, WhatIsNotInstalledOrSwitchedOnIsPassedBy) {
    for (const char *path : {"/tmp/log", "/tmp/a.log", "/tmp/b.cap", "/tmp/c.txt", "/tmp/c.json"})
        rig::writeFile(path, "");
    rig::fakeCommand("killall", "echo \"<$2>\"");
    const std::string printed = rig::standardOutput([] { stop_process(); });
    EXPECT_THAT(printed, StartsWith("/**** [RAE] To kill process ****/<memory><ps>\n"
                                    "<bftpd>\n<smbd>\n<nmbd>\n<ntfs-3g>\n<minidlna.exe>\n"));
    EXPECT_THAT(printed, Not(HasSubstr("<trafficUsageDetailsD>"))); // killed in silence
    EXPECT_THAT(printed, Not(HasSubstr("circle")));
    EXPECT_THAT(printed, Not(HasSubstr("umount")));
    EXPECT_THAT(printed, EndsWith("</opt/bitdefender/bin/bd>\n"
                                  "/**** [RAE] Done ****/<memory><ps>\n"));
    for (const char *path : {"/tmp/log", "/tmp/a.log", "/tmp/b.cap", "/tmp/c.txt"})
        EXPECT_FALSE(rig::fileExists(path)) << path;
    EXPECT_TRUE(rig::fileExists("/tmp/c.json"));
    EXPECT_EQ(rig::sleptSeconds(), 1u);
}

TEST_F(ProcessStop, AMountTableThatCannotBeOpenedIsTriedFiveTimes) {
    rig::writeFile("/var/run/partner_media.pid", "77");
    std::filesystem::remove("/proc/mounts");
    rig::standardOutput([] { stop_process(); });
    EXPECT_EQ(rig::sleptSeconds(), 1u + 3u + 5u);
}

TEST_F(ProcessStop, ItRunsOnlyForATriggeredUpgradeWithoutAnError) {
    const struct {
        const char *result, *triggered;
        bool fixed;
        const char *printed;
    } rows[] = {
        {"no error", "Triggerd", false, "/**** [RAE] To kill process ****/"},
        {"no error", "Triggerd", true, "/****  [RAE] Don't need to kill process ****/"},
        {"", "Triggerd", false, "/**** [RAE] Don't need to kill process ****/"},
        {"no error", "Triggered", false, "/**** [RAE] Don't need to kill process ****/"},
    };
    for (const auto &row : rows) {
        std::filesystem::remove_all("/opt/RA");
        if (row.fixed)
            rig::writeFile("/opt/RA/fw_update_issue_fix.txt", "");
        rig::setSetting("aws_fw_check_result", row.result);
        rig::setSetting("aws_fw_upgarade_triggered", row.triggered);
        EXPECT_THAT(rig::standardOutput(kill_process_if_need), StartsWith(row.printed));
        EXPECT_EQ(rig::recordedCommands().empty(), &row != rows);
        rig::forgetCommands();
    }
}
