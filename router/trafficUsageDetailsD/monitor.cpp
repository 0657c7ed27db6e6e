#include "trafficUsageDetailsD/monitor.h"

#include "common/file.h"
#include "platform/nvram.h"
#include "trafficUsageDetailsD/record_buffer.h"
#include "trafficUsageDetailsD/usage_report.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr long kPassPeriodSeconds = 10;
constexpr long kNanosecondsPerSecond = 1000000000;

[[noreturn]] void leave() {
    freeTrafficUsageDTable();
    unlink(kPidFile);
    exit(EXIT_SUCCESS);
}

void writePidFile() {
    const File file(fopen(kPidFile, "w"));
    if (file == nullptr)
        perror("Can not open PID file.");
    else
        fprintf(file.get(), "%d", static_cast<int>(getpid()));
}

timespec addSeconds(timespec moment, long seconds) {
    moment.tv_sec += seconds;
    return moment;
}

// From a to b; zero when b has passed.
timespec between(const timespec &a, const timespec &b) {
    timespec rest{b.tv_sec - a.tv_sec, b.tv_nsec - a.tv_nsec};
    if (rest.tv_nsec < 0) {
        rest.tv_nsec += kNanosecondsPerSecond;
        --rest.tv_sec;
    }
    return rest.tv_sec < 0 ? timespec{} : rest;
}

// Waits the whole period: a request signal resumes the wait for its remainder, a termination ends
// it at once. The termination signals are blocked only between the look at the flag and the wait
// that unblocks them, so that none is missed and no command ever inherits the mask.
void waitForNextPass() {
    sigset_t termination;
    sigset_t unblocked;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    sigaddset(&termination, SIGINT);

    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const timespec end = addSeconds(now, kPassPeriodSeconds);
    sigprocmask(SIG_BLOCK, &termination, &unblocked);
    while (!terminationRequested()) {
        const timespec rest = between(now, end);
        if (pselect(0, nullptr, nullptr, nullptr, &rest, &unblocked) == 0 || errno != EINTR)
            break;
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
    sigprocmask(SIG_SETMASK, &unblocked, nullptr);
}

void runPass() {
    // Before the pass's own update: the report holds what was finished up to the previous pass.
    if (got_sigusr1 != 0 && !terminationRequested()) {
        generateTudJson();
        sendTUDReport2Cloud();
    }
    updateTrafficUsageDTable();
    updateTrafficBuffer();
    if (got_sigusr2 != 0 || kelpNvramConfig_match("tud_dbg", "1") == 1) {
        dumpTrafficUsageDTable();
        dumpMemoryBuffer();
        got_sigusr2 = 0;
    }
}

} // namespace

void showHelp(int argc, char **argv) {
    printf("Usage: %s\n", argc > 0 ? argv[0] : "");
}

void monitorTrafficUsage() {
    if (daemon(1, 1) != 0) {
        perror("daemon");
        exit(EXIT_FAILURE);
    }
    guaranteeTermination(kPidFile);
    writePidFile();
    memset(trafficBuffer, 0, sizeof trafficBuffer);
    while (!terminationRequested()) {
        if (kelpNvramConfig_match("enable_trafficUsageDetails", "1") == 1)
            runPass();
        waitForNextPass();
    }
    leave();
}
