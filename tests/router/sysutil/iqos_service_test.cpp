#include "device_lists.h"

class IqosService : public rig::Fixture {};

TEST_F(IqosService, EveryActionRunsItsCommandsAfterRemovingOutdatedDatabases) {
    using Commands = std::vector<std::string>;
    const Commands removal = {"rm /tmp/media/nand/qos.conf", "rm /tmp/media/nand/rule.trf",
                              "rm /tmp/media/nand/TmToVosk_dev_mapping",
                              "rm /tmp/media/nand/TMDPI/archive/a"};
    const std::pair<const char *, Commands> rows[] = {
        {"start_iqos",
         {"cp /tmp/media/nand/qos.conf /tmp/trend/qos.conf",
          "cp /tmp/media/nand/rule.trf /tmp/trend/rule.trf",
          "cp /tmp/media/nand/TmToVosk_dev_mapping /tmp/trend/TmToVosk_dev_mapping",
          "cp /tmp/media/nand/TMDPI/archive/a /tmp/trend", "ls /tmp/media/nand/TMDPI/archive/a",
          "bcmiqosd start"}},
        {"stop_iqos", {"bcmiqosd stop"}},
        {"restart_iqos", {"bcmiqosd restart"}},
        {"pause_iqos", {"bcmiqosd pause"}},
        {"start", {}}};
    for (const char *tool : {"rm", "cp", "ls", "bcmiqosd"})
        rig::fakeCommand(tool, "echo ran");
    rig::writeFile("/tmp/media/nand/TMDPI/archive/a", "");
    rig::writeFile("/tmp/media/nand/TmToVosk_dev_mapping", "5\nx 99\n");
    std::string printed;
    for (const auto &[action, commands] : rows) {
        for (const char *firmware : {"4", "5", "6"}) {
            rig::writeFile("/usr/sbin/TmToVosk_dev_mapping",
                           "# version\n3\n" + std::string(firmware) + " devices\n-4\n");
            rig::writeFile("/dev/console", "");
            rig::forgetCommands();
            Commands expected = *firmware == '6' ? removal : Commands();
            expected.insert(expected.end(), commands.begin(), commands.end());
            printed = rig::standardOutput([&] { EXPECT_EQ(iqos_service(action), 0); });
            EXPECT_EQ(rig::recordedCommands(), expected) << action << firmware;
        }
    }
    EXPECT_EQ(printed, "iqos_service(4234) action=start\nfirmware supports 6 flash supports 5\n"
                       "remove QoS database on flashran\n" // by the shell
                       "iqos_service(4266): action start not supported \n");
    EXPECT_EQ(rig::readFile("/dev/console"), "ran\nran\nran\n");
    remove("/usr/sbin/TmToVosk_dev_mapping");
    rig::writeFile("/tmp/media/nand/TmToVosk_dev_mapping", "0\n");
    EXPECT_EQ(newer_iqos_database(), 0);
}

TEST_F(IqosService, TheNatBitsFollowTheSwitchesAndLeaveTheOthers) {
    rig::setSetting("broadstream_iqos_enable", "1");
    rig::natWord = 0x8000001F;
    kelpnat_set_features();
    EXPECT_EQ(rig::natWord, 0x80000007);
    rig::setSetting("broadstream_iqos_enable", "0");
    rig::setSetting("enable_circle_control", "1");
    iqos_service(nullptr);
    EXPECT_EQ(rig::natWord, 0x8000001F);
    rig::natReadFails = true;
    kelpnat_set_features();
    EXPECT_EQ(rig::natWord, 24u);
}
