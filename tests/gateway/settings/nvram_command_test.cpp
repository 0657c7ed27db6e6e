#include "platform/nvram.h"

#include "gateway/settings/own_store.h"

#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <sys/wait.h>

using testing::HasSubstr;

namespace {
class NvramCommand : public OwnStore {};

// What the command prints with these words of the shell, on both its outputs.
std::string nvram(const std::string &words, int status = 0) {
    std::string printed;
    FILE *output = popen((NVRAM_COMMAND " 2>&1 " + words).c_str(), "r");
    for (int character = fgetc(output); character != EOF; character = fgetc(output))
        printed += static_cast<char>(character);
    EXPECT_EQ(WEXITSTATUS(pclose(output)), status) << words << '\n' << printed;
    return printed;
}
} // namespace

TEST_F(NvramCommand, SettingsAreSetShownAndUnset) {
    EXPECT_EQ(nvram("set b=2 a=1 'c= x=y '"), "");
    EXPECT_EQ(nvram("get c"), " x=y \n");
    inProcess([] { EXPECT_EQ(kelpNvramConfig_set("b", ""), 0); });
    EXPECT_EQ(nvram("show"), "a=1\nb=\nc= x=y \n");
    EXPECT_EQ(nvram("unset a none"), "");
    EXPECT_EQ(nvram("get a"), "\n");
}

TEST_F(NvramCommand, WrongUsageIsToldApartFromFailureAndChangesNothing) {
    for (const char *words :
         {"", "frob", "get", "get a b", "set a=1 b", "set a=1 =x", "unset a ''"})
        EXPECT_THAT(nvram(words, 2), HasSubstr("Try 'nvram --help'"));
    EXPECT_EQ(nvram("show"), "");
    EXPECT_THAT(nvram("--help >/dev/full", 1), HasSubstr("No space left"));
    setenv("NVRAM_DIR", "/proc/none", 1);
    for (const char *words : {"get a", "set a=1", "unset a", "show", "save", "import /dev/null"})
        EXPECT_THAT(nvram(words, 1), HasSubstr("/proc/none: No such file"));
}

TEST_F(NvramCommand, AnImportIsWholeOrNotAtAll) {
    const std::string file = folder / "settings";
    std::ofstream(file) << "# a router\n\n \t\r\nname=a\\nb\n  # note\n x = 1 \nname=last\nend=";
    EXPECT_EQ(nvram("import - <'" + file + "'"), "");
    EXPECT_EQ(nvram("show"), " x = 1 \nend=\nname=last\n");

    const std::string largest(65536, 'v');
    for (const std::string &wrong :
         {std::string("word"), std::string("=x"), std::string("a=b\0", 4), "v=v" + largest}) {
        std::ofstream(file) << "name=new\nlarge=" << largest << "\n#\n" << wrong << "\n";
        EXPECT_THAT(nvram("import '" + file + "'", 1), HasSubstr(file + ":4: "));
        EXPECT_EQ(nvram("get name"), "last\n");
    }
}

TEST_F(NvramCommand, WhatIsShownCanBeImportedAndNoValuePassesForASetting) {
    inProcess([] {
        kelpNvramConfig_set("good", "\\n\t\"\xff#=");
        kelpNvramConfig_set("lines", "x\ngood=0");
        for (const char *name : {"a=b", "a\nb", "#c", " "})
            kelpNvramConfig_set(name, "1");
    });
    const std::string shown = folder / "shown";
    std::ofstream(shown) << nvram("show");
    setenv("NVRAM_DIR", (folder / "copy").c_str(), 1);
    EXPECT_EQ(nvram("import '" + shown + "'"), "");
    EXPECT_EQ(nvram("show"), "good=\\n\t\"\xff#=\n");
}

// LMDB's calls too. What was there is there, or what was to be set; and done means done.
TEST_F(NvramCommand, ASettingIsTheOldOneOrTheNewOneWhateverCallFails) {
#ifdef EMULATOR
    GTEST_SKIP() << "the emulator itself would be preloaded";
#endif
    const auto mark = folder / "failed";
    for (const std::string kind : {"open", "read", "write", "map", "allocate"}) {
        for (int n = 1; n < 30; ++n) {
            SCOPED_TRACE(kind + " " + std::to_string(n));
            std::filesystem::remove(mark);
            nvram("set name=old");
            const std::string command =
                "FAIL_CALL=" + kind + ":" + std::to_string(n) + " FAIL_MARK='" + mark.string() +
                "' ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0"
                " LD_PRELOAD=/proc/self/fd/9 " NVRAM_COMMAND " set name=new 9<'" FAIL_CALL "' 2>'" +
                (folder / "said").string() + "'";
            const int status = WEXITSTATUS(system(command.c_str()));
            EXPECT_THAT(status, testing::AnyOf(0, 1));
            EXPECT_EQ(status == 0, std::filesystem::file_size(folder / "said") == 0);
            const std::string found = nvram("get name");
            EXPECT_THAT(found, testing::AnyOf("new\n", "old\n"));
            EXPECT_TRUE(status == 1 || found == "new\n");
            const bool failed = std::filesystem::exists(mark);
            EXPECT_TRUE(failed || n > 1) << "no call fails";
            if (!failed || HasFailure())
                break;
        }
    }
}
