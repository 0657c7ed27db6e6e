// Reports gathered for one insert, and how a batch that the store refuses is taken apart. Knows
// neither buffer nor store; what to do with a report is told by callbacks.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fleet {

// When a batch is closed, whatever comes first.
inline constexpr std::size_t kBatchRows = 50'000;
inline constexpr std::size_t kBatchBytes = 8'000'000;
inline constexpr std::chrono::milliseconds kBatchAge{1000};

// The reports from first to one before last.
struct Range {
    std::size_t first;
    std::size_t last;

    [[nodiscard]] std::size_t size() const { return last - first; }
    bool operator==(const Range &) const = default;
};

class Batch {
  public:
    using Clock = std::chrono::steady_clock;

    // Adds a report with its rows: so many rows of `reports`, and its row of `arrivals`.
    void add(std::string_view rows, std::size_t count, std::string_view arrival,
             Clock::time_point now);

    [[nodiscard]] bool isDue(Clock::time_point now) const;
    [[nodiscard]] std::size_t size() const { return marks_.size(); }
    [[nodiscard]] bool empty() const { return marks_.empty(); }
    [[nodiscard]] Range all() const { return {0, size()}; }

    // The text to insert for these reports; empty where none of them has a record.
    [[nodiscard]] std::string_view rows(Range range) const;
    [[nodiscard]] std::string_view arrivals(Range range) const;
    [[nodiscard]] std::size_t rowCount(Range range) const;

    void clear();

  private:
    // Where a report's text and rows end.
    struct Mark {
        std::size_t rows;
        std::size_t arrivals;
        std::size_t count;
    };

    [[nodiscard]] Mark before(std::size_t index) const;

    std::string rows_;
    std::string arrivals_;
    std::vector<Mark> marks_;
    Clock::time_point begun_;
};

enum class Verdict {
    kStored,
    kRefused, // the store has read the rows and does not take them
    kAway,    // nobody took them, and they are not to be tried again now
};

// What happens to the reports of a batch.
struct Settlement {
    std::function<Verdict(Range)> store;
    std::function<void(Range)> stored;
    std::function<void(std::size_t)> refused; // one report, on which every insert fails
    std::function<void(Range)> left;          // neither stored nor refused
};

// Stores a batch, in halves where the store refuses, down to the single report. Every report is
// told to exactly one of stored, refused and left.
void settle(const Batch &batch, const Settlement &settlement);

} // namespace fleet
