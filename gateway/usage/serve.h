// The service: one loop that samples, commits and answers.
#pragma once

#include "usage/clock.h"
#include "usage/instance.h"
#include "usage/settings.h"

#include <cstdint>

namespace usage {

struct ServeOptions {
    Place place;
    Seconds every = 5;
    std::string listen; // as HttpOptions has it; "" for 127.0.0.1:8080, if nobody is there
    Settings settings;  // the password and the broker
    std::uint64_t limit = 64U << 20U;
};

// Runs until SIGTERM, SIGINT or SIGHUP; then takes a last sample and commits. Throws
// std::runtime_error when it can't begin. The exit status: 1 when the last commit failed.
int serve(const ServeOptions &options);

} // namespace usage
