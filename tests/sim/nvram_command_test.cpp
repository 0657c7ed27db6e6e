#include "platform/nvram.h"

#include "sim/own_store.h"

#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <sys/wait.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {
class NvramCommand : public OwnStore {};

struct Outcome {
    int status;
    std::string output;
};

// Runs the command with these words of the shell, both its outputs together.
Outcome nvram(const std::string &words) {
    Outcome outcome{};
    FILE *output = popen((NVRAM_COMMAND " 2>&1 " + words).c_str(), "r");
    for (int character = fgetc(output); character != EOF; character = fgetc(output))
        outcome.output += static_cast<char>(character);
    outcome.status = WEXITSTATUS(pclose(output));
    return outcome;
}

std::string printed(const std::string &words) {
    const Outcome outcome = nvram(words);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    return outcome.output;
}

void expectProblem(const std::string &words, int status, const std::string &problem) {
    const Outcome outcome = nvram(words);
    EXPECT_EQ(outcome.status, status) << words;
    EXPECT_THAT(outcome.output, StartsWith("nvram: ")) << words;
    EXPECT_THAT(outcome.output, HasSubstr(problem)) << words;
}
} // namespace

TEST_F(NvramCommand, SettingsAreSetShownAndUnset) {
    EXPECT_EQ(printed("set b=2 a=1 'c= x=y '"), "");
    EXPECT_EQ(printed("get c"), " x=y \n");
    inProcess([] {
        EXPECT_STREQ(kelpNvramConfig_get("b"), "2");
        EXPECT_EQ(kelpNvramConfig_set("b", ""), 0);
    });
    EXPECT_EQ(printed("show"), "a=1\nb=\nc= x=y \n");
    EXPECT_EQ(printed("unset a none"), "");
    EXPECT_EQ(printed("get a"), "\n");
    EXPECT_EQ(printed("save"), "");
    EXPECT_EQ(printed("show"), "b=\nc= x=y \n");
}

TEST_F(NvramCommand, WrongUsageIsToldApartFromFailureAndChangesNothing) {
    const std::string longName(512, 'n');
    for (const auto &[words, problem] : std::initializer_list<std::pair<std::string, const char *>>{
             {"", "no command"},
             {"frob", "unknown command 'frob'"},
             {"get", "missing"},
             {"get a b", "too many"},
             {"get ''", "empty"},
             {"set a=1 b", "no '=' in 'b'"},
             {"set a=1 =x", "empty"},
             {"set a=1 " + longName + "=x", "longer than 511"},
             {"unset " + longName, "longer than 511"},
         })
        expectProblem(words, 2, problem);
    EXPECT_EQ(printed("show"), "");
    EXPECT_THAT(printed("--help"), HasSubstr("NAME=VALUE"));
    expectProblem("--version >/dev/full", 1, "No space left");
    expectProblem("import /", 1, "/: Is a directory");
    expectProblem("import /proc/none", 1, "/proc/none: No such file");
    setenv("NVRAM_DIR", "/proc/none", 1);
    for (const char *words : {"get a", "set a=1", "unset a", "show", "save", "import /dev/null"})
        expectProblem(words, 1, "/proc/none: No such file");
}

TEST_F(NvramCommand, AnImportIsWholeOrNotAtAll) {
    const std::string file = folder / "settings";
    std::ofstream(file) << "# a router\n\n \t\r\nname=a\\nb\n  # note\n x = 1 \nname=last\nend=";
    EXPECT_EQ(printed("import - <" + file), "");
    EXPECT_EQ(printed("show"), " x = 1 \nend=\nname=last\n");

    const std::string largest(65536, 'v');
    for (const std::string &wrong :
         {std::string("word"), std::string("=x"), std::string("a=b\0", 4), "v=v" + largest}) {
        std::ofstream(file) << "name=new\nlarge=" << largest << "\n#\n" << wrong << "\n";
        expectProblem("import " + file, 1, file + ":4: ");
        EXPECT_EQ(printed("get name"), "last\n");
    }
}

TEST_F(NvramCommand, WhatIsShownCanBeImportedAndNoValuePassesForASetting) {
    inProcess([] {
        kelpNvramConfig_set("good", "\\n\t\"\xff#=");
        kelpNvramConfig_set("lines", "x\ngood=0");
        for (const char *name : {"a=b", "a\nb=c", "#c", " "})
            kelpNvramConfig_set(name, "1");
    });
    const std::string shown = folder / "shown";
    std::ofstream(shown) << printed("show");
    EXPECT_THAT(printed("show"), HasSubstr("# no line can hold this setting: a b=c\n"));
    setenv("NVRAM_DIR", (folder / "copy").c_str(), 1);
    EXPECT_EQ(printed("import " + shown), "");
    EXPECT_EQ(printed("show"), "good=\\n\t\"\xff#=\n");
}
