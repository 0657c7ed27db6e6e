// Where an instance has its things.
#pragma once

#include <stdexcept>
#include <string>

namespace usage {

inline constexpr const char *kStateRoot = "/var/lib/traffic-usage";
inline constexpr const char *kRuntimeRoot = "/run/traffic-usage";

// Wrong words on the command line: exit status 2.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Place {
    std::string instance;
    std::string state;   // folder of the store
    std::string runtime; // folder of the socket and the scratch

    [[nodiscard]] std::string socket() const { return runtime + "/api.sock"; }
    [[nodiscard]] std::string scratch() const { return runtime + "/scratch"; }
};

// Completes what was given ("" for what was not). An instance that is not named is the one whose
// folders are given, else the only one that the roots have. Throws UsageError when there is not
// just one.
Place findPlace(Place given, const std::string &stateRoot = kStateRoot,
                const std::string &runtimeRoot = kRuntimeRoot);

} // namespace usage
