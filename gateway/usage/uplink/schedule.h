// When the next delivery is tried: soon after a report, and after failures later and later, never
// at the same moment as every other router. Works on times that it is given.
#pragma once

#include <chrono>
#include <functional>

namespace uplink {

class Schedule {
  public:
    using Clock = std::chrono::steady_clock;

    struct Waits {
        Clock::duration spread; // a delivery begins within so long after the report came
        Clock::duration first;  // the longest wait after one failure; each further one doubles it
        Clock::duration longest;
    };

    // random gives numbers from 0 to below 1.
    Schedule(const Waits &waits, std::function<double()> random);

    // There is something to send: a try is due within the spread, unless one is due anyway.
    void wanted(Clock::time_point now);
    // The try has failed; progress when something was sent by it, which starts the growth anew.
    void failed(Clock::time_point now, bool progress);
    // Nothing is left to send.
    void done();

    [[nodiscard]] bool pending() const { return pending_; }
    // Of the next try; says nothing unless one is pending.
    [[nodiscard]] Clock::time_point due() const { return due_; }

  private:
    Waits waits_;
    std::function<double()> random_;
    Clock::duration bound_;
    Clock::time_point due_;
    bool pending_ = false;
};

} // namespace uplink
