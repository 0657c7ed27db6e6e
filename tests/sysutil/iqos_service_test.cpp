#include "device_lists.h"

#include <vector>

namespace {

constexpr const char *kFlash = "/tmp/media/nand/TmToVosk_dev_mapping";
const std::string kArchived = "/tmp/media/nand/TMDPI/archive/a /tmp/media/nand/TMDPI/archive/b";

} // namespace

class IqosService : public rig::Fixture {
  protected:
    // What the service printed; what its tools print is "ran".
    static std::string run(const char *action) {
        return rig::standardOutput([=] { EXPECT_EQ(iqos_service(action), 0); });
    }
};

TEST_F(IqosService, EveryActionRunsItsCommandsAfterRemovingOutdatedDatabases) {
    using Commands = std::vector<std::string>;
    const Commands removal = {"rm /tmp/media/nand/qos.conf", "rm /tmp/media/nand/rule.trf",
                              "rm /tmp/media/nand/TmToVosk_dev_mapping", "rm " + kArchived};
    const std::pair<const char *, Commands> rows[] = {
        {"start_iqos",
         {"cp /tmp/media/nand/qos.conf /tmp/trend/qos.conf",
          "cp /tmp/media/nand/rule.trf /tmp/trend/rule.trf",
          "cp /tmp/media/nand/TmToVosk_dev_mapping /tmp/trend/TmToVosk_dev_mapping",
          "cp " + kArchived + " /tmp/trend", "ls " + kArchived, "bcmiqosd start"}},
        {"stop_iqos", {"bcmiqosd stop"}},
        {"restart_iqos", {"bcmiqosd restart"}},
        {"pause_iqos", {"bcmiqosd pause"}},
        {"start", {}}};
    for (const char *name : {"a", "b"})
        rig::writeFile(std::string("/tmp/media/nand/TMDPI/archive/") + name, "");
    for (const char *tool : {"rm", "cp", "ls", "bcmiqosd"})
        rig::fakeCommand(tool, "echo ran");
    rig::writeFile(kFlash, "5\nx 99\n");
    for (const auto &[action, commands] : rows) {
        for (const char *firmware : {"4", "5", "6"}) {
            rig::writeFile("/usr/sbin/TmToVosk_dev_mapping",
                           "# version\n3\n" + std::string(firmware) + " devices\n-4\n");
            rig::writeFile("/dev/console", "");
            rig::forgetCommands();
            Commands expected = *firmware == '6' ? removal : Commands();
            expected.insert(expected.end(), commands.begin(), commands.end());
            run(action);
            EXPECT_EQ(rig::recordedCommands(), expected) << action << firmware;
        }
    }
    EXPECT_EQ(run("start_iqos"), "iqos_service(4234) action=start_iqos\n"
                                 "firmware supports 6 flash supports 5\n"
                                 "remove QoS database on flashran\nran\nran\nran\n");
    EXPECT_EQ(rig::readFile("/dev/console"), "ran\nran\nran\nran\nran\nran\nran\nran\nran\n");
}

TEST_F(IqosService, WithoutAFlashCopyOrAKnownActionNothingIsRun) {
    EXPECT_EQ(run("go"), "iqos_service(4234) action=go\n"
                         "QoS database file on nflash is not existed"
                         "iqos_service(4266): action go not supported \n");
    EXPECT_THAT(run(nullptr), testing::HasSubstr("iqos_service(4266): action  not supported \n"));
    rig::writeFile(kFlash, "");
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(newer_iqos_database(), 0); }),
              "firmware supports 0 flash supports 0\n");
}

TEST_F(IqosService, TheNatBitsFollowTheSwitchesAndLeaveTheOthers) {
    rig::setSetting("broadstream_iqos_enable", "1");
    rig::natWord = 0x8000000F;
    run("");
    EXPECT_EQ(rig::natWord, 0x80000007);
    rig::setSetting("broadstream_iqos_enable", "0");
    rig::setSetting("enable_circle_control", "1");
    run("");
    EXPECT_EQ(rig::natWord, 0x8000001F);
    rig::natReadFails = true;
    EXPECT_EQ(kelpnat_set_features(), 0);
    EXPECT_EQ(rig::natWord, 24u);
}
