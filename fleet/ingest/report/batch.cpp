#include "ingest/report/batch.h"

namespace fleet {

void Batch::add(std::string_view rows, std::size_t count, std::string_view arrival,
                Clock::time_point now) {
    if (empty())
        begun_ = now;
    rows_ += rows;
    arrivals_ += arrival;
    marks_.push_back({rows_.size(), arrivals_.size(), before(size()).count + count});
}

bool Batch::isDue(Clock::time_point now) const {
    return !empty() && (marks_.back().count >= kBatchRows || rows_.size() >= kBatchBytes ||
                        arrivals_.size() >= kBatchBytes || now - begun_ >= kBatchAge);
}

Batch::Mark Batch::before(std::size_t index) const {
    return index == 0 ? Mark{0, 0, 0} : marks_[index - 1];
}

std::string_view Batch::rows(Range range) const {
    const std::size_t from = before(range.first).rows;
    return std::string_view(rows_).substr(from, before(range.last).rows - from);
}

std::string_view Batch::arrivals(Range range) const {
    const std::size_t from = before(range.first).arrivals;
    return std::string_view(arrivals_).substr(from, before(range.last).arrivals - from);
}

std::size_t Batch::rowCount(Range range) const {
    return before(range.last).count - before(range.first).count;
}

void Batch::clear() {
    rows_.clear();
    arrivals_.clear();
    marks_.clear();
}

void settle(const Batch &batch, const Settlement &settlement) {
    std::vector<Range> open;
    if (!batch.empty())
        open.push_back(batch.all());
    bool away = false;
    while (!open.empty()) {
        const Range range = open.back();
        open.pop_back();
        const Verdict verdict = away ? Verdict::kAway : settlement.store(range);
        if (verdict == Verdict::kStored) {
            settlement.stored(range);
        } else if (verdict == Verdict::kAway) {
            away = true;
            settlement.left(range);
        } else if (range.size() == 1) {
            settlement.refused(range.first);
        } else {
            const std::size_t middle = range.first + range.size() / 2;
            open.push_back({middle, range.last});
            open.push_back({range.first, middle});
        }
    }
}

} // namespace fleet
