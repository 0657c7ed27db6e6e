#include "trafficUsageDetailsD/signals.h"

volatile sig_atomic_t got_sigusr1 = 0;
volatile sig_atomic_t got_sigusr2 = 0;

namespace {

volatile sig_atomic_t terminating = 0;

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
        terminating = 1;
        break;
    default:
        break;
    }
}

bool terminationRequested() {
    return terminating != 0;
}
