// What Prometheus scrapes: counters since the service started.
#pragma once

#include "usage/history.h"

#include <map>
#include <string>
#include <utility>

namespace usage {

class Metrics {
  public:
    // Takes over what the latest sample added; one that was taken already changes nothing.
    void count(const Present &present, const Rates &rates);

    // The exposition format, whole numbers only. A series that was once in it stays; beyond a cap
    // what is new goes to the device and category "other".
    [[nodiscard]] std::string text(const Present &present, const Status &status) const;

  private:
    using Series = std::pair<std::string, std::string>; // MAC address, category

    Bytes &of(const Series &series);

    std::map<Series, Bytes> series_;
    std::uint64_t counted_ = 0; // the latest sample
};

// The type that goes with the text.
inline constexpr const char *kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

} // namespace usage
