#include "common/quill_util.h"

#include "support/fixture.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tuple>

using testing::ElementsAre;

namespace {

constexpr const char *kLogDevice = "/dev/aglog";

// The sizes of the writes since it was last emptied.
std::vector<std::size_t> writes;

class LogAndCommand : public rig::Fixture {};

// What stands in the log afterwards.
std::string writeLog(const std::string &text, int length, int type) {
    rig::writeFile(kLogDevice, "");
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('#'); // no byte more than promised: the sanitizer watches the end
    writes.clear();
    EXPECT_EQ(quillWriteLog(buffer.data(), length, type), 0);
    return rig::readFile(kLogDevice);
}

// The length that fmtValloc gives, and the text if there is one.
[[gnu::format(printf, 2, 3)]] std::string formatted(int limit, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *out = nullptr;
    const std::string length = std::to_string(fmtValloc(&out, limit, format, args));
    va_end(args);
    const std::unique_ptr<char, decltype(&free)> owned(out, free);
    return out != nullptr ? length + ":" + out : length;
}

} // namespace

extern "C" ssize_t write(int descriptor, const void *data, std::size_t size) {
    writes.push_back(size);
    return syscall(SYS_write, descriptor, data, size);
}

TEST_F(LogAndCommand, ALogLineGoesOutWithItsNulInOneWrite) {
    for (const std::size_t length : {0u, 5u, 70000u}) {
        const std::string text(length, 't');
        EXPECT_EQ(writeLog(text, static_cast<int>(length), 1 << 16), text + '\0');
        EXPECT_THAT(writes, ElementsAre(length + 1));
    }
    EXPECT_EQ(writeLog("abcdef", 3, 1 << 16), std::string("abc\0", 4));
    EXPECT_EQ(writeLog("abc", -1, 1 << 16), "");
}

TEST_F(LogAndCommand, TheFilterChoosesByTheUpperHalfOfTheType) {
    const std::tuple<const char *, int, bool> rows[] = {
        {"", 1 << 16, true},  {"", 0xFFFF, false},   {"0", 1 << 16, false},  {"2", 1 << 16, false},
        {"2", 3 << 16, true}, {"x", 1 << 16, false}, {"65536", -65536, true}};
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
    EXPECT_EQ(rig::standardOutput([] {
                  char text[] = "line";
                  EXPECT_EQ(quillWriteLog(text, 4, 0), 0); // filtered out, so nothing is opened
                  EXPECT_EQ(quillWriteLog(text, 4, 1 << 16), -1);
                  EXPECT_EQ(quillSetLogFilter(0x80000001), -1);
                  rig::writeFile(kLogDevice, "");
                  EXPECT_EQ(quillSetLogFilter(0x80000001), 0);
                  EXPECT_EQ(quillSetLogFilter(1), -1);
                  rig::setSetting("enable_extender_mode", "1");
                  EXPECT_EQ(quillSetLogFilter(1), 0);
              }),
              "quillWriteLog:open /dev/aglog fail\nquillSetLogFilter:open /dev/aglog fail\n"
              "quillSetLogFilter:ioctl /dev/aglog fail\n");
}

TEST_F(LogAndCommand, CommandsRunAndAreCutAtTheirDocumentedLength) {
    rig::fakeCommand("tool", "echo out; exit 3");
    const std::string word(3000, 'w');
    EXPECT_EQ(rig::standardOutput([&] {
                  EXPECT_EQ(doSystem("tool %s %d", "$(echo a) b", 7), 3 << 8);
                  doSystem("tool %s", word.c_str());
                  SYSTEM("tool %s", word.c_str());
                  rig::setSetting("system_dbg", "1");
                  EXPECT_EQ(SYSTEM("tool %s", "c; tool d"), 0);
              }),
              "out\nout\nout\nsystem: tool c; tool d <out\nout\n");
    EXPECT_THAT(rig::recordedCommands(),
                ElementsAre("tool a b 7", "tool " + word.substr(0, 1018),
                            "tool " + word.substr(0, 2042), "tool c", "tool d"));
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
    EXPECT_EQ(rig::standardError([] { doKillPid("/tmp/1.pid"); }),
              ""); // without a file, no command
}

TEST_F(LogAndCommand, TextsAreFormattedIntoTheirLimit) {
    EXPECT_EQ(formatted(6, "%s-%d", "ab", 12), "5:ab-12");
    EXPECT_EQ(formatted(5, "%s", "abcde"), "5:abcd");
    EXPECT_EQ(formatted(0, "%s", "abcde"), "5");
    EXPECT_STREQ(racat(racat("wan", 1), -12), "wan1-12");
    EXPECT_EQ(racat(std::string(100, 'n').c_str(), 1), std::string(63, 'n'));
}

TEST_F(LogAndCommand, TheRussianCaseIsTheRegionOrTheWorldWideUserInterface) {
    const std::tuple<const char *, const char *, int> rows[] = {
        {"RU", "", 1}, {"WW", "Russian", 1}, {"WW", "English", 0}, {"NA", "Russian", 0}};
    for (const auto &[region, gui, result] : rows) {
        rig::setSetting("sku_name", region);
        rig::setSetting("gui_region", gui);
        EXPECT_EQ(is_russian_case(), result) << region << " " << gui;
    }
}
