#include "common/command.h"

#include "common/file.h"
#include "support/faults.h"
#include "support/fixture.h"

#include <climits>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using testing::ElementsAre;

using Command = rig::Fixture;

TEST_F(Command, PlainWordsStandAsTheyAreAndOthersAreQuoted) {
    char line[128];
    EXPECT_TRUE(format_command(line, sizeof line, "t %s%s %d %u 100%% %s", "/tmp/a_b-c.1:@%+=,", "",
                               INT_MIN, UINT_MAX, "-rf"));
    EXPECT_STREQ(line, "t /tmp/a_b-c.1:@%+=, -2147483648 4294967295 100% '-rf'");
    rig::fakeCommand("tool");
    for (const char *word : {"a b", "$(reboot)", "`reboot`", "x;reboot", "it's", "a\nb", "\"", "*",
                             "\\", "#", "~", "\xff\xfe"}) {
        rig::forgetCommands();
        EXPECT_EQ(run_command(1024, "tool %s", word), 0);
        EXPECT_THAT(rig::recordedWords(0), ElementsAre("tool", word));
    }
}

TEST_F(Command, WhatDoesNotFitIsNeverRun) {
    rig::fakeCommand("tool");
    EXPECT_EQ(run_command(8, "tool ab"), 0);
    EXPECT_EQ(run_command(8, "tool abc"), -1);
    const std::string longWord(kLargestCommand, 'x');
    EXPECT_EQ(run_command(1u << 20, "tool %s", longWord.c_str()), -1);
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("tool ab"));
    char line[8] = "old";
    EXPECT_FALSE(format_command(line, sizeof line, "tool %d", 123));
    EXPECT_STREQ(line, "");
    EXPECT_FALSE(format_command(line, sizeof line, "%x", 1u)) << "an unknown conversion";
    EXPECT_FALSE(has_run(run_command(8, "tool abc")));
}

TEST_F(Command, AProgramGetsItsWordsWithoutAShellAndAppendsToAFileThatExists) {
    rig::fakeCommand("tool", "echo said; echo complained >&2; exit 3");
    rig::writeFile("/dev/console", "before\n");
    const char *const hostile[] = {"tool", "a b", "$(reboot)", "*", "", "it's;x", nullptr};
    EXPECT_EQ(run_program(hostile, "/dev/console"), 3 << 8);
    EXPECT_THAT(rig::recordedWords(0), ElementsAre("tool", "a b", "$(reboot)", "*", "", "it's;x"));
    const char *const missing[] = {"no-such-program", nullptr};
    EXPECT_EQ(run_program(missing, "/dev/console"), 127 << 8);
    EXPECT_EQ(rig::readFile("/dev/console"), "before\nsaid\ncomplained\n");
    const std::size_t descriptors = rig::openDescriptors();
    const auto before = signal(SIGCHLD, SIG_IGN); // nobody to wait for
    EXPECT_EQ(run_program(hostile, "/dev/console"), -1);
    signal(SIGCHLD, before);
    const rig::Fault noProcess(rig::Call::kFork, 1);
    EXPECT_EQ(run_program(missing, "/dev/console"), -1);
    EXPECT_EQ(rig::openDescriptors(), descriptors);
}

TEST_F(Command, WhatItPrintsFollowsWhatWasPrintedBefore) {
    EXPECT_EQ(rig::standardOutput([] {
                  printf("1 ");
                  run_command(64, "echo 2");
                  printf("3 ");
                  const char *const echo[] = {"echo", "4", nullptr};
                  run_program(echo, "/dev/absent");
              }),
              "1 2\n3 4\n");
}

TEST_F(Command, ADescriptorIsClosedWhateverItsNumber) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO); // as in a daemon: the next one opened has its number
    {
        const Descriptor first(open("/dev/null", O_RDONLY));
        EXPECT_EQ(first.get(), STDIN_FILENO);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(input, STDIN_FILENO);
    close(input);
}
