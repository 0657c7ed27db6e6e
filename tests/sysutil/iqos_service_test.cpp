#include "device_lists.h"

#include <cstdint>
#include <vector>

using testing::HasSubstr;

namespace {

constexpr const char *kFlash = "/tmp/media/nand/TmToVosk_dev_mapping";
const std::string kArchive = "/tmp/media/nand/TMDPI/archive/";
const std::vector<std::string> kRemoval = {
    "rm /tmp/media/nand/qos.conf", "rm /tmp/media/nand/rule.trf",
    "rm /tmp/media/nand/TmToVosk_dev_mapping", "rm " + kArchive + "a " + kArchive + "b"};

std::vector<std::string> start(const std::string &archived) {
    return {"cp /tmp/media/nand/qos.conf /tmp/trend/qos.conf",
            "cp /tmp/media/nand/rule.trf /tmp/trend/rule.trf",
            "cp /tmp/media/nand/TmToVosk_dev_mapping /tmp/trend/TmToVosk_dev_mapping",
            "cp " + archived + " /tmp/trend",
            "ls " + archived,
            "bcmiqosd start"};
}

} // namespace

class IqosService : public rig::Fixture {
  protected:
    static void install(int firmware, int flash) {
        rig::writeFile("/usr/sbin/TmToVosk_dev_mapping",
                       "# version\n3\n" + std::to_string(firmware) + " devices\n-4\n");
        rig::writeFile(kFlash, std::to_string(flash) + "\nx 99\n");
        rig::writeFile("/tmp/media/nand/qos.conf", "from flash");
        rig::writeFile(kArchive + "a", "archived");
        rig::writeFile(kArchive + "b", "archived");
        rig::writeFile("/tmp/trend/qos.conf", "in use");
        rig::writeFile("/dev/console", "");
        for (const std::string tool : {"rm", "cp", "ls"})
            rig::fakeCommand(tool, "busybox " + tool + " \"$@\"");
        rig::fakeCommand("bcmiqosd", "echo qos daemon");
        rig::forgetCommands();
    }
    // What the service printed.
    static std::string run(const char *action) {
        std::string printed;
        rig::standardError([&] { // the shell's commands complain there
            printed = rig::standardOutput([=] { EXPECT_EQ(iqos_service(action), 0); });
        });
        return printed;
    }
};

TEST_F(IqosService, EveryActionRunsItsCommandsAfterRemovingOutdatedDatabases) {
    struct {
        const char *action;
        std::vector<std::string> newer, older;
    } const rows[] = {
        {"start_iqos", start(kArchive + "*"), start(kArchive + "a " + kArchive + "b")},
        {"stop_iqos", {"bcmiqosd stop"}, {"bcmiqosd stop"}},
        {"restart_iqos", {"bcmiqosd restart"}, {"bcmiqosd restart"}},
        {"pause_iqos", {"bcmiqosd pause"}, {"bcmiqosd pause"}},
        {"start", {}, {}},
    };
    for (const auto &row : rows) {
        std::vector<std::string> expected = kRemoval;
        expected.insert(expected.end(), row.newer.begin(), row.newer.end());
        install(6, 5);
        run(row.action);
        EXPECT_EQ(rig::recordedCommands(), expected) << row.action;
        for (const int firmware : {4, 5}) {
            install(firmware, 5);
            run(row.action);
            EXPECT_EQ(rig::recordedCommands(), row.older) << row.action;
        }
    }
}

TEST_F(IqosService, StartingUsesTheFlashCopiesUnlessTheFirmwareIsNewer) {
    install(5, 6);
    EXPECT_EQ(run("start_iqos"), "iqos_service(4234) action=start_iqos\n"
                                 "firmware supports 5 flash supports 6\n" +
                                     kArchive + "a\n" + kArchive + "b\nqos daemon\n");
    EXPECT_EQ(rig::readFile("/tmp/trend/qos.conf"), "from flash");
    EXPECT_EQ(rig::readFile("/tmp/trend/b"), "archived");
    EXPECT_THAT(rig::readFile("/dev/console"), HasSubstr("/tmp/media/nand/rule.trf"));
    install(7, 6);
    EXPECT_EQ(run("start_iqos"), "iqos_service(4234) action=start_iqos\n"
                                 "firmware supports 7 flash supports 6\n"
                                 "remove QoS database on flashqos daemon\n");
    EXPECT_EQ(rig::readFile("/tmp/trend/qos.conf"), "in use");
}

TEST_F(IqosService, WithoutAFlashCopyOrAKnownActionNothingIsRun) {
    EXPECT_EQ(run("go"), "iqos_service(4234) action=go\n"
                         "QoS database file on nflash is not existed"
                         "iqos_service(4266): action go not supported \n");
    EXPECT_THAT(run(nullptr), HasSubstr("iqos_service(4266): action  not supported \n"));
    rig::writeFile(kFlash, "");
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(newer_iqos_database(), 0); }),
              "firmware supports 0 flash supports 0\n");
}

TEST_F(IqosService, TheNatBitsFollowTheSwitchesAndLeaveTheOthers) {
    struct {
        const char *qos, *parental;
        std::uint32_t before, after;
    } const rows[] = {
        {"1", "1", 0xFFFFFFFF, 0xFFFFFFF7},
        {"1", "0", 0xFFFFFFFF, 0xFFFFFFE7},
        {"0", "1", 0x80000001, 0x80000019},
        {"", "", 0xFFFFFFFF, 0xFFFFFFEF},
    };
    for (const auto &row : rows) {
        rig::setSetting("broadstream_iqos_enable", row.qos);
        rig::setSetting("enable_circle_control", row.parental);
        rig::natWord = row.before;
        run("");
        EXPECT_EQ(rig::natWord, row.after) << row.qos << row.parental;
    }
    rig::natReadFails = true;
    EXPECT_EQ(kelpnat_set_features(), 0);
    EXPECT_EQ(rig::natWord, 8u);
}
