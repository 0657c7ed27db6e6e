// A settings store of the test's own, and the processes that share it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sys/types.h>

// Starts every test with an empty folder, which NVRAM_DIR names. The test's own process never opens
// the store: it would keep it open for the next test.
class OwnStore : public testing::Test {
  protected:
    OwnStore();
    ~OwnStore() override;

    std::filesystem::path folder;
};

// Runs the body in a process that fails when one of its expectations does.
pid_t startProcess(const std::function<void()> &body);

// Waits for a process: its exit status, or the negative signal that ended it.
int statusOf(pid_t process);

// Runs the body in a process of its own, to its end.
void inProcess(const std::function<void()> &body);
