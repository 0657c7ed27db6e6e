// The engine's one loop: the source's work and the callers' requests, in turn, until it is told to
// end.
#pragma once

#include "engine/device/device.h"
#include "engine/source.h"

#include <functional>
#include <string>

namespace idpfwd {

struct LoopEvents {
    std::function<void()> ready;    // callers can be served from now on
    std::function<void()> finished; // the source has come to its end; serving goes on
    std::function<void()> overflow; // something did not fit since the last time, or the first time
    std::function<void()> dump;     // SIGUSR1
};

// Blocks SIGTERM, SIGINT and SIGUSR1 for the loop to take them: before anything else is started.
void blockSignals();

// Begins a life of the engine, which runs until SIGTERM or SIGINT: "", or why the device or the
// source is gone.
std::string runLoop(Source &source, Device &device, const LoopEvents &events);

} // namespace idpfwd
