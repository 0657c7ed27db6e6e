#include "device_lists.h"

class IqosService : public rig::Fixture {};

TEST_F(IqosService, ActionsRunTheirCommandsAndAStartRemovesOutdatedDatabasesFirst) {
    for (const char *tool : {"rm", "cp", "ls", "bcmiqosd"})
        rig::fakeCommand(tool);
    rig::writeFile("/dev/console", "");
    rig::writeFile("/tmp/media/nand/TMDPI/archive/a", "");
    rig::writeFile("/tmp/media/nand/TmToVosk_dev_mapping", "5\nx 99\n");
    rig::writeFile("/usr/sbin/TmToVosk_dev_mapping", "# version\n3\n5 devices\n-4\n");
    for (const char *action : {"stop_iqos", "restart_iqos", "pause_iqos", "start"})
        EXPECT_EQ(iqos_service(action), 0);
    rig::writeFile("/usr/sbin/TmToVosk_dev_mapping", "6\n");
    EXPECT_EQ(iqos_service("start_iqos"), 0);
    EXPECT_THAT(rig::recordedCommands(),
                testing::ElementsAre(
                    "bcmiqosd stop", "bcmiqosd restart", "bcmiqosd pause",
                    "rm /tmp/media/nand/qos.conf", "rm /tmp/media/nand/rule.trf",
                    "rm /tmp/media/nand/TmToVosk_dev_mapping", "rm /tmp/media/nand/TMDPI/archive/a",
                    "cp /tmp/media/nand/qos.conf /tmp/trend/qos.conf",
                    "cp /tmp/media/nand/rule.trf /tmp/trend/rule.trf",
                    "cp /tmp/media/nand/TmToVosk_dev_mapping /tmp/trend/TmToVosk_dev_mapping",
                    "cp /tmp/media/nand/TMDPI/archive/a /tmp/trend",
                    "ls /tmp/media/nand/TMDPI/archive/a", "bcmiqosd start"));
}

TEST_F(IqosService, TheNatBitsFollowTheSwitchesAndLeaveTheOthers) {
    rig::setSetting("broadstream_iqos_enable", "1");
    rig::natWord = 0x8000001F;
    kelpnat_set_features();
    EXPECT_EQ(rig::natWord, 0x80000007);
    rig::setSetting("broadstream_iqos_enable", "0");
    rig::setSetting("enable_circle_control", "1");
    iqos_service("");
    EXPECT_EQ(rig::natWord, 0x8000001F);
    rig::natReadFails = true;
    kelpnat_set_features();
    EXPECT_EQ(rig::natWord, 24u);
}
