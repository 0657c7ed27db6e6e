#include "usage/uplink/schedule.h"

#include <algorithm>
#include <utility>

namespace uplink {
namespace {

Schedule::Clock::duration part(Schedule::Clock::duration whole, double share) {
    return std::chrono::duration_cast<Schedule::Clock::duration>(whole * share);
}

} // namespace

Schedule::Schedule(const Waits &waits, std::function<double()> random)
    : waits_(waits), random_(std::move(random)), bound_(waits.first) {}

void Schedule::wanted(Clock::time_point now) {
    if (pending_)
        return;
    pending_ = true;
    due_ = now + part(waits_.spread, random_());
}

// Between half the bound and all of it: spread out, and yet no storm of early tries.
void Schedule::failed(Clock::time_point now, bool progress) {
    if (progress)
        bound_ = waits_.first;
    pending_ = true;
    due_ = now + part(bound_, 0.5 + random_() / 2);
    bound_ = std::min(bound_ * 2, waits_.longest);
}

void Schedule::done() {
    pending_ = false;
    bound_ = waits_.first;
}

} // namespace uplink
