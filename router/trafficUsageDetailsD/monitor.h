// Start-up, signals and the monitor loop.
#pragma once

#include <csignal>

constexpr const char *kPidFile = "/var/run/trafficUsageDetailsD.pid";

// Requests from the rest of the router, set by the signal handler: a report at the next working
// pass (cleared by generateTudJson), a dump at the end of the next working pass.
extern volatile sig_atomic_t got_sigusr1;
extern volatile sig_atomic_t got_sigusr2;

// Prints the usage line with the program's own name.
void showHelp(int argc, char **argv);

// The one handler of all signals: SIGUSR1 and SIGUSR2 set their request flag, SIGTERM, SIGINT and
// SIGKILL ask for termination, any other number does nothing.
void sigHandler(int signal_number);

// Whether the daemon was asked to end. Nothing is reported from then on.
bool terminationRequested();

// Detaches into the background, writes the pid file and runs a pass every 10 seconds. Never
// returns: ends the process with status 0 on SIGTERM or SIGINT (at once while waiting, at the end
// of a running pass otherwise; the table freed, the pid file removed, no report), with status 1
// when it cannot detach.
[[noreturn]] void monitorTrafficUsage();
