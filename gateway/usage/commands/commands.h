// What the commands do with a service's answers. The result is the exit status; they throw as
// Service does.
#pragma once

#include "usage/commands/client.h"

#include <optional>

namespace usage {

inline constexpr int kQuotaPassed = 4;

struct ShowOptions {
    Parameters parameters; // of the question
    std::string format = "table";
};
int show(Service &service, const ShowOptions &options);

// Until interrupted, or so many times.
int live(Service &service, std::optional<std::uint64_t> times);

int nameDevice(Service &service, const std::string &mac, const std::string &name);
int forgetDevice(Service &service, const std::string &mac);

struct QuotaOptions {
    std::string mac; // "" for all devices
    std::string total;
    std::string per;
    int startsOn = 1;
};
int setQuota(Service &service, const QuotaOptions &options);
int listQuotas(Service &service, bool asJson);
int removeQuota(Service &service, std::uint64_t number);
int checkQuotas(Service &service);

int exportHistory(Service &service);
int backUp(Service &service, const std::string &file);

} // namespace usage
