// Takes the daemon's report out of the folder in which it is written: renamed, checked, put into
// the outbox, removed. A process may end at any step and go on from there at its next start.
#pragma once

#include "usage/uplink/outbox.h"

#include <ctime>
#include <filesystem>
#include <functional>
#include <string>

namespace uplink {

// Why a report is looked for: the daemon says that it is written, or it is only time to look.
enum class Occasion { kWritten, kTimer };

class Spool {
  public:
    // Reports that can't be sent are kept, the newest so many.
    static constexpr std::size_t kRejectedKept = 4;
    // Taken reports that wait for an outbox that can't be written; more stay where they are.
    static constexpr std::size_t kTakenKept = 16;
    // A file that changed less than so many seconds ago may still be being written.
    static constexpr time_t kSettled = 5;

    // tell gets a line for a person.
    Spool(std::filesystem::path folder, std::function<void(const std::string &line)> tell);

    // Takes what is there, oldest first; now is the system's time. What can't be taken now is left
    // for the next call. Throws SqlError and std::filesystem::filesystem_error.
    void take(Outbox &outbox, Occasion occasion, time_t now);

  private:
    void rename(Outbox &outbox, Occasion occasion, time_t now);
    bool settle(std::int64_t sequence, const std::filesystem::path &file, Outbox &outbox,
                time_t now);
    void reject(const std::filesystem::path &file, const std::string &reason);

    std::filesystem::path folder_;
    std::function<void(const std::string &)> tell_;
};

} // namespace uplink
