#include "trafficUsageDetailsD/signals.h"

#include <cstdlib>
#include <unistd.h>

volatile sig_atomic_t got_sigusr1 = 0;
volatile sig_atomic_t got_sigusr2 = 0;

namespace {

volatile sig_atomic_t terminating = 0;
const char *volatile fileToRemove = nullptr;

// Only what is allowed in a handler: whatever is unwritten of the log stays so.
[[noreturn]] void leaveAtOnce(int) {
    unlink(fileToRemove);
    _exit(EXIT_SUCCESS);
}

} // namespace

void sigHandler(int signal_number) {
    switch (signal_number) {
    case SIGUSR1:
        got_sigusr1 = 1;
        break;
    case SIGUSR2:
        got_sigusr2 = 1;
        break;
    case SIGTERM:
    case SIGINT:
    case SIGKILL:
        if (terminating == 0 && fileToRemove != nullptr)
            alarm(kSecondsToLeave);
        terminating = 1;
        break;
    default:
        break;
    }
}

void guaranteeTermination(const char *pidFile) {
    signal(SIGALRM, leaveAtOnce);
    fileToRemove = pidFile;
    constexpr int kOurs[] = {SIGUSR1, SIGUSR2, SIGTERM, SIGINT, SIGALRM};
    if (terminating != 0)
        alarm(kSecondsToLeave);
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int number : kOurs)
        sigaddset(&blocked, number);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
}

bool terminationRequested() {
    return terminating != 0;
}
