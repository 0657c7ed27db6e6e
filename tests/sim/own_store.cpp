#include "sim/own_store.h"

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

OwnStore::OwnStore() {
    std::string pattern = std::filesystem::temp_directory_path() / "settings-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        abort();
    folder = pattern;
    setenv("NVRAM_DIR", folder.c_str(), 1);
}

OwnStore::~OwnStore() {
    std::filesystem::remove_all(folder);
}

pid_t startProcess(const std::function<void()> &body) {
    fflush(nullptr);
    const pid_t process = fork();
    if (process != 0)
        return process;
    alarm(30); // a deadlock fails the test
    body();
    exit(testing::Test::HasFailure() ? 1 : 0);
}

int statusOf(pid_t process) {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

void inProcess(const std::function<void()> &body) {
    EXPECT_EQ(statusOf(startProcess(body)), 0);
}
