#include "usage/commands/commands.h"

#include "usage/answers/format.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <iostream>

namespace usage {
namespace {

using Json = nlohmann::json;

constexpr const char *kHomeAndClear = "\x1b[H\x1b[J";

// Waits for an interruption; false when none came in that time.
bool interruptedWithin(const sigset_t &ending, time_t seconds) {
    const timespec patience{.tv_sec = seconds, .tv_nsec = 0};
    return sigtimedwait(&ending, nullptr, &patience) > 0;
}

std::string lines(const Json &now) {
    std::string text;
    for (const Json &row : now["rows"])
        text += now["sampled"].get<std::string>() + " " + row["device"]["mac"].get<std::string>() +
                " " + row["down_per_second"].dump() + " " + row["up_per_second"].dump() + " " +
                row["device"]["name"].get<std::string>() + ": " +
                row["application"].get<std::string>() + "\n";
    return text;
}

} // namespace

int live(Service &service, std::optional<std::uint64_t> times) {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    Json shown;
    for (std::uint64_t i = 0; !times || i < *times;) {
        const Json now = Json::parse(service.get("/api/v1/now").body);
        if (now["sampled"] != shown) {
            shown = now["sampled"];
            const Look look = lookOfOutput();
            std::cout << (look.human ? kHomeAndClear + nowTable(now, look) : lines(now))
                      << std::flush;
            ++i;
        }
        if (!std::cout || (times && i >= *times) || interruptedWithin(ending, 1))
            break;
    }
    return std::cout ? 0 : 1;
}

} // namespace usage
