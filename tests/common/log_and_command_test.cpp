#include "common/quill_util.h"

#include "support/fixture.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kLogDevice = "/dev/aglog";

// The sizes of the writes since it was last emptied.
std::vector<std::size_t> writes;

class LogAndCommand : public rig::Fixture {};

int writeLog(const std::string &text, int length, int type) {
    // No byte more than promised: the sanitizer watches the end.
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('#');
    writes.clear();
    return quillWriteLog(buffer.data(), length, type);
}

struct Formatted {
    int length;
    std::optional<std::string> text;
    bool operator==(const Formatted &) const = default;
};

[[gnu::format(printf, 2, 3)]] Formatted formatted(int limit, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *out = nullptr;
    const int length = fmtValloc(&out, limit, format, args);
    va_end(args);
    Formatted result{length, std::nullopt};
    if (out != nullptr)
        result.text = out;
    free(out);
    return result;
}

} // namespace

extern "C" ssize_t write(int descriptor, const void *data, std::size_t size) {
    writes.push_back(size);
    return syscall(SYS_write, descriptor, data, size);
}

TEST_F(LogAndCommand, ALogLineGoesOutWithItsNulInOneWrite) {
    for (const std::size_t length : {0u, 5u, 4095u, 4096u, 70000u}) {
        rig::writeFile(kLogDevice, "");
        const std::string text(length, 't');
        EXPECT_EQ(writeLog(text, static_cast<int>(length), 1 << 16), 0);
        EXPECT_THAT(writes, ElementsAre(length + 1));
        EXPECT_EQ(rig::readFile(kLogDevice), text + '\0');
    }
    rig::writeFile(kLogDevice, "");
    EXPECT_EQ(writeLog("abcdef", 3, 1 << 16), 0);
    EXPECT_EQ(rig::readFile(kLogDevice), std::string("abc\0", 4));
    EXPECT_EQ(writeLog("abc", -1, 1 << 16), 0);
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(LogAndCommand, TheFilterChoosesByTheUpperHalfOfTheType) {
    struct {
        const char *filter;
        int type;
        bool written;
    } const rows[] = {
        {"", 1 << 16, true},      {"", 0xFFFF, false},       {"0", 1 << 16, false},
        {"2", 1 << 16, false},    {"2", 3 << 16, true},      {"", -1, true},
        {"x", 1 << 16, false},    {"65536", -65536, true},   {"0x1", 1 << 16, false},
        {"-1", 0x7FFFFFFF, true}, {"99999999999", -1, true}, {"32768", INT_MIN, true},
    };
    for (const auto &row : rows) {
        rig::setSetting("log_filter", row.filter);
        rig::writeFile(kLogDevice, "");
        EXPECT_EQ(writeLog("line", 4, row.type), 0);
        EXPECT_EQ(rig::readFile(kLogDevice).empty(), !row.written) << row.filter << " " << row.type;
    }
}

TEST_F(LogAndCommand, AMissingLogDeviceIsSaidAndOnlyWhenItIsNeeded) {
    EXPECT_EQ(rig::standardOutput([] {
                  EXPECT_EQ(writeLog("line", 4, 0), 0);
                  EXPECT_EQ(writeLog("line", 4, 1 << 16), -1);
                  EXPECT_EQ(quillSetLogFilter(1), -1);
                  rig::setSetting("enable_extender_mode", "1");
                  EXPECT_EQ(quillSetLogFilter(1), 0);
              }),
              "quillWriteLog:open /dev/aglog fail\nquillSetLogFilter:open /dev/aglog fail\n");
}

TEST_F(LogAndCommand, TheFilterMaskReachesTheLogDevice) {
    rig::writeFile(kLogDevice, "");
    unsigned long seenRequest = 0;
    uint32_t seenMask = 0;
    rig::onIoctl([&](int, unsigned long request, void *argument) {
        seenRequest = request;
        memcpy(&seenMask, argument, sizeof seenMask);
        return 0;
    });
    EXPECT_EQ(quillSetLogFilter(0x80000001), 0);
    EXPECT_EQ(seenRequest, 0x40047B0Cul);
    EXPECT_EQ(seenMask, 0x80000001u);
    rig::onIoctl(nullptr);
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(quillSetLogFilter(1), -1); }),
              "quillSetLogFilter:ioctl /dev/aglog fail\n");
}

TEST_F(LogAndCommand, CommandsRunAndAreCutAtTheirDocumentedLength) {
    rig::fakeCommand("tool", "exit 3");
    EXPECT_EQ(doSystem("tool %s %d", "$(echo a) b", 7), 3 << 8);
    EXPECT_EQ(SYSTEM("tool %s", "c; tool d"), 0);
    EXPECT_EQ(doSystem("%s", ""), 0);
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("tool a b 7", "tool c", "tool d"));

    rig::forgetCommands();
    const std::string word(3000, 'w');
    doSystem("tool %s", word.c_str());
    SYSTEM("tool %s", word.c_str());
    EXPECT_THAT(rig::recordedCommands(),
                ElementsAre("tool " + word.substr(0, 1018), "tool " + word.substr(0, 2042)));
}

TEST_F(LogAndCommand, SystemTellsItsCommandWhenAskedTo) {
    const auto run = [] { SYSTEM("echo %s", "out"); };
    EXPECT_EQ(rig::standardOutput(run), "out\n");
    rig::setSetting("system_dbg", "1");
    EXPECT_EQ(rig::standardOutput(run), "system: echo out <out\n");
}

TEST_F(LogAndCommand, KillPidKillsTheProcessOfThePidFileAndRemovesTheFile) {
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    rig::writeFile("/var/run/child1.pid", std::to_string(child) + "\n");
    EXPECT_EQ(doKillPid("/var/run/%s%d.pid", "child", 1), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    EXPECT_FALSE(rig::fileExists("/var/run/child1.pid"));
    EXPECT_EQ(rig::standardError([] { EXPECT_EQ(doKillPid("/var/run/child1.pid"), 0); }), "")
        << "no command runs without a pid file";
}

TEST_F(LogAndCommand, KillPidNeverTouchesAFileThatACutCommandWouldName) {
    const std::string folder = "/tmp/" + std::string(250, 'a') + "/" + std::string(250, 'b') + "/" +
                               std::string(250, 'c') + "/";
    const std::string longest = folder + std::string(1012 - folder.size(), 'd');
    for (const auto &[path, removed] : {std::pair{longest, true}, {longest + "d", false}}) {
        rig::writeFile(path, "none\n");
        rig::standardError([&name = path] { EXPECT_EQ(doKillPid("%s", name.c_str()), 0); });
        EXPECT_EQ(rig::fileExists(path), !removed);
    }
    EXPECT_EQ(doKillPid("%s", std::string(5000, 'd').c_str()), 0);
}

TEST_F(LogAndCommand, IndexedNamesAreCutAt63Characters) {
    EXPECT_STREQ(racat("wan", 3), "wan3");
    EXPECT_STREQ(racat("wan", 12), "wan12");
    EXPECT_STREQ(racat("", -1), "-1");
    EXPECT_STREQ(racat(racat("wan", 1), 2), "wan12");
    EXPECT_EQ(racat(std::string(100, 'n').c_str(), 1), std::string(63, 'n'));
}

TEST_F(LogAndCommand, TheRussianCaseIsTheRegionOrTheWorldWideUserInterface) {
    struct {
        const char *region;
        const char *gui;
        int result;
    } const rows[] = {{"RU", "", 1},
                      {"WW", "Russian", 1},
                      {"WW", "English", 0},
                      {"NA", "Russian", 0},
                      {"", "Russian", 0}};
    for (const auto &row : rows) {
        rig::setSetting("sku_name", row.region);
        rig::setSetting("gui_region", row.gui);
        EXPECT_EQ(is_russian_case(), row.result) << row.region << " " << row.gui;
    }
}

TEST_F(LogAndCommand, AllocatedTextsKeepWithinTheirLimit) {
    EXPECT_EQ(formatted(8, "%s-%d", "ab", 12), (Formatted{5, "ab-12"}));
    EXPECT_EQ(formatted(6, "%s", "abcde"), (Formatted{5, "abcde"}));
    EXPECT_EQ(formatted(5, "%s", "abcde"), (Formatted{5, "abcd"}));
    EXPECT_EQ(formatted(1, "%s", "abcde"), (Formatted{5, ""}));
    EXPECT_EQ(formatted(0, "%s", "abcde"), (Formatted{5, std::nullopt}));
    EXPECT_EQ(formatted(-1, "%s", "abcde"), (Formatted{5, std::nullopt}));
    EXPECT_EQ(formatted(8, "%s", ""), (Formatted{0, ""}));
}
