#include "common/command.h"

#include "support/fixture.h"

using testing::ElementsAre;

class Command : public rig::Fixture {};

TEST_F(Command, PlainWordsStandAsTheyAreAndOthersAreQuoted) {
    rig::fakeCommand("tool");
    const char *const hostile[] = {"a b", "$(reboot)", "`reboot`", "x;reboot", "it's",
                                   "-rf", "a\nb",      "\"",       "*",        "\xff\xfe"};
    EXPECT_EQ(run_command(1024, "tool %s %d %u 100%%", "/tmp/a_b-c.1:@%+=,", -7, 7u), 0);
    EXPECT_EQ(rig::recordedCommands(),
              std::vector<std::string>{"tool /tmp/a_b-c.1:@%+=, -7 7 100%"});
    for (const char *word : hostile) {
        rig::forgetCommands();
        EXPECT_EQ(run_command(1024, "tool %s", word), 0);
        EXPECT_THAT(rig::recordedWords(0), ElementsAre("tool", word));
        EXPECT_EQ(rig::recordedCommands().size(), 1u) << word;
    }
}

TEST_F(Command, WhatDoesNotFitIsNeverRun) {
    rig::fakeCommand("tool");
    EXPECT_EQ(run_command(8, "tool ab"), 0);
    EXPECT_EQ(run_command(8, "tool abc"), -1);
    const std::string longWord(kLargestCommand, 'x');
    EXPECT_EQ(run_command(1u << 20, "tool %s", longWord.c_str()), -1);
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("tool ab"));
}

TEST_F(Command, ItCanBeFormattedToBePrintedBeforeItIsRun) {
    char line[sizeof "tool 'a b' 1"];
    EXPECT_TRUE(format_command(line, sizeof line, "tool %s %d", "a b", 1));
    EXPECT_STREQ(line, "tool 'a b' 1");
    EXPECT_FALSE(format_command(line, sizeof line, "tool %s %d", "a b", 12));
    EXPECT_STREQ(line, "");
}

TEST_F(Command, ItsOutputFollowsWhatWasPrintedBefore) {
    EXPECT_EQ(rig::standardOutput([] {
                  printf("first ");
                  run_command(64, "echo second");
              }),
              "first second\n");
}

TEST_F(Command, TheStatusIsThatOfTheShell) {
    EXPECT_EQ(run_command(64, "exit 3"), 3 << 8);
    EXPECT_EQ(run_command(64, "no-such-command 2>/dev/null"), 127 << 8);
}

TEST_F(Command, AProgramGetsItsWordsWithoutAShell) {
    rig::fakeCommand("tool", "exit 3");
    const char *const hostile[] = {"tool", "a b", "$(reboot)", "*", "", "it's;x", nullptr};
    EXPECT_EQ(run_program(hostile, "/dev/null"), 3 << 8);
    EXPECT_THAT(rig::recordedWords(0), ElementsAre("tool", "a b", "$(reboot)", "*", "", "it's;x"));
    const char *const missing[] = {"no-such-program", nullptr};
    EXPECT_EQ(run_program(missing, "/dev/null"), 127 << 8);
}

TEST_F(Command, AProgramPrintsAtTheEndOfItsOutputFileIfThatExists) {
    rig::fakeCommand("tool", "echo said; echo complained >&2");
    rig::writeFile("/dev/console", "before\n");
    const char *const tool[] = {"tool", nullptr};
    EXPECT_EQ(run_program(tool, "/dev/console"), 0);
    EXPECT_EQ(rig::readFile("/dev/console"), "before\nsaid\ncomplained\n");
    std::string printed;
    EXPECT_EQ(rig::standardError([&] {
                  printed = rig::standardOutput([&] {
                      printf("first ");
                      EXPECT_EQ(run_program(tool, "/dev/absent"), 0);
                  });
              }),
              "complained\n");
    EXPECT_EQ(printed, "first said\n");
    EXPECT_FALSE(rig::fileExists("/dev/absent"));
}
