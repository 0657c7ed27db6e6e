// The way that callers reach the engine.
#pragma once

#include "engine/requests.h"

#include <poll.h>
#include <span>
#include <string>
#include <vector>

namespace idpfwd {

class Device {
  public:
    virtual ~Device() = default;

    // Appends the descriptors to wait for.
    virtual void watch(std::vector<pollfd> &watched) const = 0;

    // Milliseconds until the device needs a turn even if nothing happens; -1 for never.
    [[nodiscard]] virtual int timeout() const = 0;

    // Serves the callers. The descriptors are those of watch, in its order.
    virtual void serve(std::span<const pollfd> watched, RequestServer &server) = 0;

    // Whether callers can be served now; a device can need some turns until it is there.
    [[nodiscard]] virtual bool ready() const = 0;

    // Why the device is gone for good; empty while it is not.
    [[nodiscard]] virtual std::string failure() const = 0;

    // Whether it reads and writes the memory of callers, who wait meanwhile.
    [[nodiscard]] virtual bool reachesIntoCallers() const = 0;

    // For people: what it is and where.
    [[nodiscard]] virtual std::string description() const = 0;
};

} // namespace idpfwd
