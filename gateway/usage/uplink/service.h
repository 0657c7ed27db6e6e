// The uplink at work: takes reports as they are written, sends them when a try is due.
#pragma once

#include "usage/uplink/config.h"
#include "usage/uplink/options.h"

#include <string>

namespace uplink {

// A line for a person, on standard error.
void say(const std::string &line);

// Blocks the signals that runService() takes, and ignores SIGPIPE: first of all, because the daemon
// may signal at any time.
void blockSignals();

// Runs until SIGTERM, SIGINT or SIGHUP; with options.once until what is there is sent or could not
// be. The process's exit status: 0, or 1 when something is left with options.once. Throws what
// std::exception stands for when there is no outbox to work with.
int runService(const Options &options, const Config &config);

} // namespace uplink
