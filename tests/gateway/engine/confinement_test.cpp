// What a confined process can still do, and what ends it.
#include "scratch.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace idpfwd {
namespace {

// Runs it in the folder: its exit status, or the signal that ended it and 1000.
int confined(const Scratch &folder, const char *action, const char *packets = nullptr) {
    const pid_t child = fork();
    if (child == 0) {
        if (chdir(folder.path().c_str()) == 0)
            execl(CONFINED, "confined", action, packets, nullptr);
        _exit(126);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(Confinement, LeavesTheWorkAndEndsTheProcessAtAnythingElse) {
    const Scratch folder;
    for (const char *packets : {static_cast<const char *>(nullptr), "packets"}) {
        EXPECT_EQ(confined(folder, "work", packets), 0);
        EXPECT_EQ(confined(folder, "rights", packets), 0);
        for (const char *action : {"fork", "exec", "code"})
            EXPECT_EQ(confined(folder, action, packets), 1000 + SIGSYS) << action;
    }
    EXPECT_EQ(folder.read("whole"), "text");
    EXPECT_EQ(confined(folder, "connect"), 1000 + SIGSYS);
}

} // namespace
} // namespace idpfwd
