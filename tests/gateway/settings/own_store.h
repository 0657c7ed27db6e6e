// A settings store of the test's own, and the processes that share it.
#pragma once

#include "gateway/engine/scratch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

// Starts every test with an empty folder, which NVRAM_DIR names. The test's own process never opens
// the store: it would keep it open for the next test.
class OwnStore : public testing::Test {
  protected:
    OwnStore() { setenv("NVRAM_DIR", folder.c_str(), 1); }

    Scratch scratch;
    const std::filesystem::path &folder = scratch.path();
};

// Runs the body in a process that fails when one of its expectations does.
inline pid_t startProcess(const std::function<void()> &body) {
    fflush(nullptr);
    const pid_t process = fork();
    if (process != 0)
        return process;
    alarm(30); // a deadlock fails the test
    body();
    exit(testing::Test::HasFailure() ? 1 : 0);
}

// Waits for a process: its exit status, or the negative signal that ended it.
inline int statusOf(pid_t process) {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// Runs the body in a process of its own, to its end.
inline void inProcess(const std::function<void()> &body) {
    EXPECT_EQ(statusOf(startProcess(body)), 0);
}
