// What the rest of the router asks for by signals. The handler only sets flags.
#pragma once

#include <csignal>

// Requests from the rest of the router, set by the signal handler: a report at the next working
// pass (cleared by generateTudJson), a dump at the end of the next working pass.
extern volatile sig_atomic_t got_sigusr1;
extern volatile sig_atomic_t got_sigusr2;

// The one handler of all signals: SIGUSR1 and SIGUSR2 set their request flag, SIGTERM, SIGINT and
// SIGKILL ask for termination, any other number does nothing.
void sigHandler(int signal_number);

// Makes sure that a termination ends the daemon: lets through what its starter blocked, and from
// then on ends the process (status 0, this file removed) when the orderly way out takes longer than
// kSecondsToLeave, as when the log's reader hangs.
void guaranteeTermination(const char *pidFile);

constexpr unsigned int kSecondsToLeave = 3;

// Whether the daemon was asked to end. Nothing is reported from then on.
bool terminationRequested();
