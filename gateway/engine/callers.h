// Who asks for the tables. A caller that was there before this life of the engine may still keep
// the counters of the life before; it must not take the new ones for their continuation.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <sys/types.h>

namespace idpfwd {

enum class Table { kUsers, kRows };

class Callers {
  public:
    // How long those are held back whose age cannot be seen: three of the longest periods between
    // two readings, so that two readings fall into it whole.
    static constexpr std::chrono::seconds kLongestHold{30};

    // The engine's life begins: callers can reach it from now on, or could for a moment. Waits for
    // the end of the clock tick (at most 10 milliseconds) in which a process's age cannot be told.
    Callers();

    // Notes that the caller asks for a table: true when it is to get an empty one.
    //
    // Callers drop what two readings in a row have not seen, after they have settled it. So a
    // process that is older than this life is held back until it has asked twice for each of the
    // tables that it asks for; a younger one never is. A process whose age cannot be seen (it lives
    // in another process namespace, or /proc is not there) is held back for the longest hold.
    bool heldBack(pid_t caller, Table table);

    // The caller tells lives apart by itself, and is held back no longer.
    void knowsLives(pid_t caller);

  private:
    struct Reader {
        unsigned users = 0, rows = 0; // how often it was held back
        bool released = false;
    };

    enum class Age { kOlder, kYounger, kUnknown };
    struct Seen {
        Age age;
        Reader *reader; // of an older one, else null
    };
    Seen look(pid_t caller);

    // Those that are older, by its process id. One that ends and leaves its number to another makes
    // no difference: the other is younger than this life.
    std::map<pid_t, Reader> older_;
    std::uint64_t born_; // clock ticks since the machine started
    std::chrono::steady_clock::time_point end_;
    bool seesProcesses_;
};

} // namespace idpfwd
