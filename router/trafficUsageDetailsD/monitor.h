// Start-up and the monitor loop.
#pragma once

#include "trafficUsageDetailsD/signals.h"

constexpr const char *kPidFile = "/var/run/trafficUsageDetailsD.pid";

// Prints the usage line with the program's own name.
void showHelp(int argc, char **argv);

// Detaches into the background, writes the pid file and runs a pass every 10 seconds. Never
// returns: ends the process with status 0 on SIGTERM or SIGINT (at once while waiting, at the end
// of a running pass otherwise, see guaranteeTermination; the table freed, the pid file removed, no
// report), with status 1 when it cannot detach.
[[noreturn]] void monitorTrafficUsage();
