#include "support/child.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace rig {

Child::Child(std::vector<std::string> words, const std::string &output,
             const std::vector<std::pair<const char *, std::string>> &environment)
    : process_(fork()) {
    if (process_ != 0)
        return;
    for (const auto &[name, value] : environment)
        setenv(name, value.c_str(), 1);
    dup2(creat(output.c_str(), 0644), STDOUT_FILENO);
    dup2(creat((output + ".err").c_str(), 0644), STDERR_FILENO);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(126);
}

Child::~Child() {
    signal(SIGKILL);
    wait();
}

void Child::signal(int number) const {
    if (process_ > 0) // -1 would be everybody
        kill(process_, number);
}

int exitStatus(pid_t process) {
    int status = 0;
    if (process <= 0 || waitpid(process, &status, 0) != process)
        return -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool eventually(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace rig
