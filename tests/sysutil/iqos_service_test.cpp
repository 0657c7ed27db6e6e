#include "device_lists.h"

#include "support/fixture.h"

using testing::ElementsAreArray;
using testing::HasSubstr;

namespace {

constexpr const char *kFirmware = "/usr/sbin/TmToVosk_dev_mapping";
constexpr const char *kFlash = "/tmp/media/nand/TmToVosk_dev_mapping";

} // namespace

class IqosService : public rig::Fixture {
  protected:
    struct Run {
        std::string printed, complained;
        std::vector<std::string> commands;
    };
    static Run run(const char *action) {
        rig::forgetCommands();
        Run result;
        result.complained = rig::standardError([&] {
            result.printed = rig::standardOutput([&] { EXPECT_EQ(iqos_service(action), 0); });
        });
        result.commands = rig::recordedCommands();
        return result;
    }
    static void install(int firmware, int flash) {
        rig::writeFile(kFirmware, "# version\n3\n" + std::to_string(firmware) + " devices\n-4\n");
        rig::writeFile(kFlash, std::to_string(flash) + "\nx 99\n");
        rig::writeFile("/tmp/media/nand/qos.conf", "from flash");
        rig::writeFile("/tmp/media/nand/TMDPI/archive/a", "archived");
        rig::writeFile("/tmp/media/nand/TMDPI/archive/b", "archived");
        rig::writeFile("/tmp/trend/qos.conf", "in use");
        rig::writeFile("/dev/console", "");
        for (const char *tool : {"rm", "cp", "ls"})
            rig::fakeCommand(tool, std::string("busybox ") + tool + " \"$@\"");
        rig::fakeCommand("bcmiqosd", "echo qos daemon");
    }
};

TEST_F(IqosService, EveryActionRunsItsCommands) {
    const std::vector<std::string> removal = {
        "rm /tmp/media/nand/qos.conf", "rm /tmp/media/nand/rule.trf",
        "rm /tmp/media/nand/TmToVosk_dev_mapping",
        "rm /tmp/media/nand/TMDPI/archive/a /tmp/media/nand/TMDPI/archive/b"};
    const auto start = [](const std::string &archive) -> std::vector<std::string> {
        return {"cp /tmp/media/nand/qos.conf /tmp/trend/qos.conf",
                "cp /tmp/media/nand/rule.trf /tmp/trend/rule.trf",
                "cp /tmp/media/nand/TmToVosk_dev_mapping /tmp/trend/TmToVosk_dev_mapping",
                "cp " + archive + " /tmp/trend",
                "ls " + archive,
                "bcmiqosd start"};
    };
    const std::string archived = "/tmp/media/nand/TMDPI/archive/a /tmp/media/nand/TMDPI/archive/b";
    struct {
        const char *action;
        std::vector<std::string> newer, older;
    } const rows[] = {
        {"start_iqos", start("/tmp/media/nand/TMDPI/archive/*"), start(archived)},
        {"stop_iqos", {"bcmiqosd stop"}, {"bcmiqosd stop"}},
        {"restart_iqos", {"bcmiqosd restart"}, {"bcmiqosd restart"}},
        {"pause_iqos", {"bcmiqosd pause"}, {"bcmiqosd pause"}},
        {"start", {}, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.action);
        install(6, 5);
        std::vector<std::string> expected = removal;
        expected.insert(expected.end(), row.newer.begin(), row.newer.end());
        EXPECT_EQ(run(row.action).commands, expected);
        install(5, 6);
        EXPECT_EQ(run(row.action).commands, row.older);
        install(5, 5);
        EXPECT_EQ(run(row.action).commands, row.older);
    }
}

TEST_F(IqosService, StartingUsesTheFlashCopiesUnlessTheFirmwareIsNewer) {
    install(5, 6);
    const Run older = run("start_iqos");
    EXPECT_EQ(older.printed, "iqos_service(4234) action=start_iqos\n"
                             "firmware supports 5 flash supports 6\n"
                             "/tmp/media/nand/TMDPI/archive/a\n/tmp/media/nand/TMDPI/archive/b\n"
                             "qos daemon\n");
    EXPECT_EQ(rig::readFile("/tmp/trend/qos.conf"), "from flash");
    EXPECT_EQ(rig::readFile("/tmp/trend/b"), "archived");
    EXPECT_THAT(rig::readFile("/dev/console"), HasSubstr("/tmp/media/nand/rule.trf"));

    install(7, 6);
    const Run newer = run("start_iqos");
    EXPECT_EQ(newer.printed, "iqos_service(4234) action=start_iqos\n"
                             "firmware supports 7 flash supports 6\n"
                             "remove QoS database on flashqos daemon\n");
    EXPECT_EQ(rig::readFile("/tmp/trend/qos.conf"), "in use");
    EXPECT_FALSE(rig::fileExists("/tmp/media/nand/TMDPI/archive/a"));
}

TEST_F(IqosService, WithoutAFlashCopyNothingIsRemoved) {
    install(9, 1);
    std::remove(kFlash);
    const Run stopped = run("stop_iqos");
    EXPECT_EQ(stopped.printed, "iqos_service(4234) action=stop_iqos\n"
                               "QoS database file on nflash is not existedqos daemon\n");
    EXPECT_THAT(stopped.commands, testing::ElementsAre("bcmiqosd stop"));
    EXPECT_THAT(run("go").printed, HasSubstr("iqos_service(4266): action go not supported \n"));
    EXPECT_THAT(run(nullptr).printed, HasSubstr("iqos_service(4266): action  not supported \n"));
    rig::writeFile(kFlash, "");
    std::remove(kFirmware);
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
        run("pause_iqos");
        EXPECT_EQ(rig::natWord, row.after) << row.qos << row.parental;
    }
    rig::natReadFails = true;
    EXPECT_EQ(kelpnat_set_features(), 0);
    EXPECT_EQ(rig::natWord, 8u);
}
