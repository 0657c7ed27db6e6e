#include "common/quill_util.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

using testing::ElementsAre;

using LogAndCommand = rig::Fixture;

namespace {

constexpr const char *kLogDevice = "/dev/aglog";

int writes;
std::string traced;

// What stands in the log afterwards.
std::string writeLog(const std::string &text, int length, int type) {
    rig::writeFile(kLogDevice, "");
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('#'); // no byte more than promised
    writes = 0;
    EXPECT_EQ(quillWriteLog(buffer.data(), length, type), 0);
    return rig::readFile(kLogDevice);
}

} // namespace

// A program's own.
extern "C" void trace(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char text[2048];
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    traced += text;
}

extern "C" ssize_t write(int descriptor, const void *data, std::size_t size) {
    ++writes;
    return syscall(SYS_write, descriptor, data, size);
}

TEST_F(LogAndCommand, ALogLineGoesOutWithItsNulInOneWrite) {
    EXPECT_EQ(writeLog("abcdef", 6, 1 << 16), std::string("abcdef\0", 7));
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(writeLog("abcdef", 3, 1 << 16), std::string("abc\0", 4));
    EXPECT_EQ(writeLog("abc", -1, 1 << 16), "");
}

TEST_F(LogAndCommand, TheFilterChoosesByTheUpperHalfOfTheType) {
    const std::tuple<const char *, int, bool> rows[] = {
        {"", 1 << 16, true}, {"", 0xFFFF, false}, {"2", 1 << 16, false}, {"2", 3 << 16, true}};
    for (const auto &[filter, type, written] : rows) {
        rig::setSetting("log_filter", filter);
        EXPECT_EQ(!writeLog("line", 4, type).empty(), written) << filter << " " << type;
    }
}

TEST_F(LogAndCommand, TheFilterMaskReachesTheLogDevice) {
    rig::onIoctl([](int, unsigned long request, void *argument) {
        uint32_t mask = 0;
        memcpy(&mask, argument, sizeof mask);
        return request == 0x40047B0C && mask == 0x80000001 ? 0 : -1;
    });
    rig::writeFile(kLogDevice, "");
    EXPECT_EQ(quillSetLogFilter(0x80000001), 0);
    const auto set = [] { EXPECT_EQ(quillSetLogFilter(1), -1); };
    EXPECT_EQ(rig::standardOutput(set), "quillSetLogFilter:ioctl /dev/aglog fail\n");
    std::filesystem::remove(kLogDevice);
    EXPECT_EQ(rig::standardOutput(set), "quillSetLogFilter:open /dev/aglog fail\n");
    char text[5] = "line";
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(quillWriteLog(text, 4, 1 << 16), -1); }),
              "quillWriteLog:open /dev/aglog fail\n");
    rig::setSetting("enable_extender_mode", "1");
    EXPECT_EQ(quillSetLogFilter(1), 0);
}

TEST_F(LogAndCommand, CommandsRunAndAreCutAtTheirDocumentedLength) {
    rig::fakeCommand("tool", "exit 3");
    const std::string word(3000, 'w');
    EXPECT_EQ(doSystem("tool %s %d", "$(echo a) b", 7), 3 << 8);
    EXPECT_EQ(traced, "run: tool $(echo a) b 7\n");
    traced.clear();
    doSystem("tool %s", word.c_str());
    const std::string cut = "tool " + word.substr(0, 1018) + "\n";
    EXPECT_EQ(traced, "cut from 3005 characters: " + cut + "run: " + cut);
    EXPECT_EQ(SYSTEM("tool %s", word.c_str()), 0);
    rig::setSetting("system_dbg", "1");
    EXPECT_EQ(rig::standardOutput([] { SYSTEM("echo %d", 7); }), "system: echo 7 <7\n");
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("tool a b 7", "tool " + word.substr(0, 1018),
                                                     "tool " + word.substr(0, 2042)));
    const rig::Fault noMemory(rig::Call::kAllocate, 1, true);
    EXPECT_EQ(doSystem("tool") + doKillPid("/tmp"), 0);
}

TEST_F(LogAndCommand, KillPidKillsWhatThePidFileNamesUnlessItsCommandWouldBeCut) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        pause();
    }
    rig::writeFile("/tmp/1.pid", std::to_string(child) + "\n");
    const std::string padding(1012 - strlen("tmp/1.pid"), '/');
    EXPECT_EQ(doKillPid("/%stmp/%d.pid", padding.c_str(), 1), 0);
    EXPECT_TRUE(rig::fileExists("/tmp/1.pid"));
    EXPECT_EQ(doKillPid("%stmp/%d.pid", padding.c_str(), 1), 0);
    EXPECT_FALSE(rig::fileExists("/tmp/1.pid"));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, SIGTERM);
}

TEST_F(LogAndCommand, TheRegionIsRussiaByItselfOrByTheLanguageOfTheWorldwideOne) {
    const std::tuple<const char *, const char *, int> rows[] = {
        {"RU", "", 1}, {"WW", "Russian", 1}, {"WW", "", 0}, {"NA", "Russian", 0}};
    for (const auto &[sku, gui, russian] : rows) {
        rig::setSetting("sku_name", sku);
        rig::setSetting("gui_region", gui);
        EXPECT_EQ(is_russian_case(), russian) << sku << gui;
    }
}

TEST_F(LogAndCommand, AnIndexedNameIsCutAtItsBuffer) {
    EXPECT_STREQ(racat(racat("wan", 1), -12), "wan1-12");
    EXPECT_EQ(racat(std::string(100, 'n').c_str(), 1), std::string(63, 'n'));
}
