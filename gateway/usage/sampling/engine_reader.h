// The engine behind "/dev/idpfw" and the names in its databases, through the router's own library.
#pragma once

#include "usage/sampling/reading.h"

#include <map>

namespace usage {

class EngineReader final : public Engine {
  public:
    // Users, rows, and users again: a device whose stay is not the same in both is left out,
    // because nobody knows whose its rows are.
    std::optional<Reading> read() override;
};

// Reads the databases when it is first asked, and again, at most once a minute, when it is asked
// for a number that they lacked.
class DatabaseNames final : public Names {
  public:
    ApplicationName nameOf(EngineIds ids, Seconds now) override;

  private:
    void load();

    Seconds loaded_ = 0;
    std::map<std::uint32_t, std::string> categories_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> applications_;
};

} // namespace usage
