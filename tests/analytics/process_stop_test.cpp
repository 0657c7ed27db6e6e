#include "analytics/awsjson_util.h"

#include "support/fixture.h"

#include <filesystem>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// Every command here is a fake in the private root: nothing outside it can be stopped.
class ProcessStop : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        for (const char *name : {"ps", "killall", "bcmiqosd", "firewall", "umount"})
            rig::fakeCommand(name, "echo \"<$0>\"");
        rig::fakeCommand("/mnt/shares/usr/bin/stopcircle");
        rig::fakeCommand("/opt/bitdefender/bin/bd");
        rig::fakeCommand("/tmp/media/nand/partner_media/busybox");
        rig::writeFile("/proc/meminfo", "<memory>");
        rig::writeFile("/proc/mounts",
                       "/dev/root / squashfs ro 0 0\n"
                       "/tmp/a;reboot /tmp/media/nand/partner_media/data ext4 rw 0 0\n"
                       "/dev/sda1 /mnt ext4 rw 0 0\n"
                       "/tmp/media/nand/partner_media/image\n");
    }

    static void installPartner() { rig::writeFile("/var/run/partner_media.pid", "77"); }

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
    installPartner();
    rig::setSetting("enable_circle_control", "1");
    rig::fakeCommand("ps", "exit 3");
    int result = 0;
    rig::standardOutput([&] { result = stop_process(); });
    EXPECT_EQ(result, 3 << 8);
    EXPECT_THAT(sequence(),
                ElementsAre("ps", "killall -9 bftpd", "killall -9 smbd", "killall -9 nmbd",
                            "killall -9 ntfs-3g", "killall -9 minidlna.exe", "bcmiqosd stop",
                            "/tmp/media/nand/partner_media/busybox sh "
                            "/tmp/media/nand/partner_media/daemon.sh stop",
                            "firewall delport partner_media_http TCP 42080",
                            "firewall delport partner_media_https TCP 42443",
                            "umount /tmp/a;reboot", "umount /tmp/media/nand/partner_media/image",
                            "daemons", "/mnt/shares/usr/bin/stopcircle",
                            "/opt/bitdefender/bin/bd stop", "ps"));
    EXPECT_THAT(rig::recordedCommands(), Contains("killall -9 trafficUsageDetailsD"));
    EXPECT_THAT(rig::recordedCommands(), Contains("killall -9 media_scan"));
    EXPECT_FALSE(rig::fileExists("/var/run/partner_media.pid"));
    EXPECT_EQ(rig::sleptSeconds(), 1u + 3u);
}

TEST_F(ProcessStop, WhatIsNotInstalledOrSwitchedOnIsPassedBy) {
    const std::string printed = rig::standardOutput([] { EXPECT_EQ(stop_process(), 0); });
    EXPECT_THAT(sequence(),
                ElementsAre("ps", "killall -9 bftpd", "killall -9 smbd", "killall -9 nmbd",
                            "killall -9 ntfs-3g", "killall -9 minidlna.exe", "bcmiqosd stop",
                            "daemons", "/opt/bitdefender/bin/bd stop", "ps"));
    EXPECT_EQ(rig::sleptSeconds(), 1u);
    EXPECT_THAT(printed, StartsWith("/**** [RAE] To kill process ****/<memory></bin/ps>\n"));
    EXPECT_THAT(printed, testing::EndsWith("/**** [RAE] Done ****/<memory></bin/ps>\n"));
    // The daemons are killed silently, the file servers are not.
    std::size_t said = 0;
    for (auto at = printed.find("killall>"); at != std::string::npos;
         at = printed.find("killall>", at + 1))
        ++said;
    EXPECT_EQ(said, 5u);
}

TEST_F(ProcessStop, TemporaryFilesAreRemovedAndOthersStay) {
    for (const char *path :
         {"/tmp/log", "/tmp/a.log", "/tmp/b.cap", "/tmp/c.txt", "/tmp/c.json", "/tmp/x/c.txt"})
        rig::writeFile(path, "");
    rig::standardOutput([] { stop_process(); });
    for (const char *path : {"/tmp/log", "/tmp/a.log", "/tmp/b.cap", "/tmp/c.txt"})
        EXPECT_FALSE(rig::fileExists(path)) << path;
    for (const char *path : {"/tmp/c.json", "/tmp/x/c.txt"})
        EXPECT_TRUE(rig::fileExists(path)) << path;
}

TEST_F(ProcessStop, AMountTableThatCannotBeOpenedIsTriedFiveTimes) {
    installPartner();
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
        {"", "", true, "/****  [RAE] Don't need to kill process ****/"},
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
