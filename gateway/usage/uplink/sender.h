// One delivery: connects to the broker over TLS, sends what the outbox holds, and disconnects. What
// the broker acknowledges (QoS 1) leaves the outbox; all else stays for the next delivery.
#pragma once

#include "usage/uplink/config.h"
#include "usage/uplink/outbox.h"

#include <cstddef>
#include <functional>
#include <string>

namespace uplink {

struct Delivery {
    bool stopped = false;         // by goOn
    std::size_t acknowledged = 0; // reports
    std::string failure;          // "" when nothing was left to send
};

// Returns when the outbox is empty, the broker fails or shows no progress for config.patience, or
// goOn, which is called several times a second and may put reports into the outbox, gives false.
// Connecting is not watched by goOn: ten seconds at most for each address of the broker. Throws
// SqlError. Takes SIGALRM for itself meanwhile. mosquitto_lib_init() must have been called.
Delivery deliver(Outbox &outbox, const Config &config, const std::function<bool()> &goOn);

} // namespace uplink
