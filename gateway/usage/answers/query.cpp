#include "usage/answers/query.h"

#include "usage/answers/tally.h"
#include "usage/store/rollup.h"
#include "usage/store/slot.h"

#include <algorithm>
#include <tuple>

namespace usage {
namespace {

constexpr std::array<Seconds, kLevels> kResolutions = {kSlotSeconds, kHourSeconds, kDaySeconds,
                                                       30 * kDaySeconds};

// A key of the tally: number of the step, device, application or category.
constexpr unsigned kApplicationBits = 20;
constexpr unsigned kDeviceBits = 24;
constexpr std::uint64_t kApplicationMask = (1U << kApplicationBits) - 1;
constexpr std::uint64_t kDeviceMask = (1U << kDeviceBits) - 1;

// The finest level that is kept for everything from that time on.
Level finestKept(const Present &present, Seconds from) {
    for (const Level level : {Level::kSlot, Level::kHour, Level::kDay}) {
        if (from >= present.trimmed[indexOf(level)])
            return level;
    }
    return Level::kMonth;
}

// A row while it is summed: a third of what a whole one takes.
struct Entry {
    std::uint64_t key = 0;
    Bytes bytes;

    [[nodiscard]] DeviceId device() const { return key >> kApplicationBits & kDeviceMask; }
    // Or the number of a category.
    [[nodiscard]] std::uint32_t application() const { return key & kApplicationMask; }
    [[nodiscard]] std::uint64_t step() const { return key >> (kApplicationBits + kDeviceBits); }
};

std::uint64_t rank(Sort sort, const Bytes &bytes) {
    switch (sort) {
    case Sort::kDown:
        return bytes.down;
    case Sort::kUp:
        return bytes.up;
    case Sort::kTotal:
        return bytes.total();
    case Sort::kName:
        break;
    }
    return 0;
}

// Where each id stands in the order of what it is called; the same place for the same text.
template <typename Entries, typename TextOf>
std::vector<std::uint32_t> placesOf(const Entries &entries, TextOf &&textOf) {
    std::map<decltype(textOf(entries.begin()->second)), std::vector<std::uint32_t>> ordered;
    for (const auto &[id, entry] : entries)
        ordered[textOf(entry)].push_back(id);
    std::vector<std::uint32_t> places(entries.empty() ? 1 : entries.rbegin()->first + 1);
    std::uint32_t place = 0;
    for (const auto &[text, ids] : ordered) {
        ++place;
        for (const std::uint32_t id : ids)
            places[id] = place;
    }
    return places;
}

std::uint32_t placeOf(const std::vector<std::uint32_t> &places, std::uint32_t id) {
    return id < places.size() ? places[id] : 0;
}

// The places of all names, for rows that their bytes don't order.
struct Places {
    explicit Places(const Directory &directory)
        : deviceName(
              placesOf(directory.devices(), [](const Device &device) { return device.name(); })),
          mac(placesOf(directory.devices(), [](const Device &device) { return device.mac; })),
          application(placesOf(directory.applications(), [](const Application &known) {
              return std::pair(known.name.name, known.name.category);
          })) {}
    std::vector<std::uint32_t> deviceName;
    std::vector<std::uint32_t> mac;
    std::vector<std::uint32_t> application;
};

// Sums entries into rows of the question.
class Summing {
  public:
    Summing(const Present &present, const Question &question)
        : present_(present), question_(question) {}

    void beginPeriod(Seconds start) {
        if (!question_.step)
            return;
        if (start >= step_.to || start < step_.from || steps_.empty()) {
            endStep();
            step_ = periodAt(*question_.step, start);
            steps_.push_back(std::max(step_.from, question_.range.from));
        }
    }

    void add(const Pair &pair, const Bytes &bytes) {
        if (!isWanted(pair))
            return;
        total += bytes;
        if (pair == Pair{}) {
            others += bytes;
            hasStoredOthers_ = hasStoredOthers_ || bytes.any();
            return;
        }
        const std::uint64_t step = steps_.empty() ? 0 : steps_.size() - 1;
        const std::uint64_t device = question_.byDevice ? pair.device : 0;
        tally_[(step << kDeviceBits | (device & kDeviceMask)) << kApplicationBits |
               (applicationKey(pair.application) & kApplicationMask)] += bytes;
    }

    // The rows in their order; what is beyond the top is among the others.
    std::vector<Row> takeRows() {
        endStep();
        keepTop(0);
        othersCount += hasStoredOthers_ ? 1 : 0;
        const auto before = [this](const Entry &a, const Entry &b) { return isBefore(a, b); };
        std::sort(entries_.begin(), entries_.end(), before);
        std::vector<Row> rows;
        rows.reserve(entries_.size());
        for (const Entry &entry : entries_)
            rows.push_back(row(entry));
        return rows;
    }

    Bytes total;
    Bytes others;
    std::size_t othersCount = 0; // rows in others

  private:
    [[nodiscard]] bool isWanted(const Pair &pair) const {
        return (!question_.devices || question_.devices->contains(pair.device)) &&
               (!question_.applications || question_.applications->contains(pair.application));
    }

    std::uint64_t applicationKey(ApplicationId application) {
        if (question_.byApplication)
            return application;
        return question_.byCategory ? categoryNumber(application) : 0;
    }

    std::uint64_t categoryNumber(ApplicationId application) {
        if (application >= categoryOf_.size())
            categoryOf_.resize(application + 1);
        std::uint32_t &number = categoryOf_[application];
        if (number == 0) {
            const ApplicationName *name = present_.directory.application(application);
            const std::string category = name == nullptr ? "" : name->category;
            const auto found = std::find(categories_.begin(), categories_.end(), category);
            number = static_cast<std::uint32_t>(found - categories_.begin()) + 1;
            if (found == categories_.end())
                categories_.push_back(category);
        }
        return number;
    }

    // What was summed in a step won't change any more: a year of days has more rows than anybody
    // asks for, and only those that may be at the top are kept.
    void endStep() {
        tally_.each([&](std::uint64_t key, const Bytes &bytes) {
            entries_.push_back({key, bytes});
        });
        tally_.clear();
        keepTop(question_.top);
    }

    // The rows of the top, and at most so many more.
    void keepTop(std::size_t more) {
        if (entries_.size() <= question_.top + more || entries_.size() <= question_.top)
            return;
        const auto rest = entries_.begin() + static_cast<std::ptrdiff_t>(question_.top);
        std::nth_element(entries_.begin(), rest, entries_.end(),
                         [this](const Entry &a, const Entry &b) { return isBefore(a, b); });
        for (auto entry = rest; entry != entries_.end(); ++entry) {
            others += entry->bytes;
            ++othersCount;
        }
        entries_.erase(rest, entries_.end());
    }

    [[nodiscard]] auto ties(const Entry &entry) const {
        const bool byName = question_.sort == Sort::kName;
        const bool byCategory = question_.byCategory && !question_.byApplication;
        return std::tuple(
            byName ? placeOf(places_->deviceName, entry.device()) : 0,
            placeOf(places_->mac, entry.device()),
            question_.byApplication ? placeOf(places_->application, entry.application()) : 0,
            byCategory ? std::string_view(categories_[entry.application() - 1])
                       : std::string_view(),
            entry.step());
    }

    bool isBefore(const Entry &a, const Entry &b) {
        const std::uint64_t first = rank(question_.sort, a.bytes);
        const std::uint64_t second = rank(question_.sort, b.bytes);
        if (first != second)
            return first > second;
        if (!places_)
            places_.emplace(present_.directory);
        return ties(a) < ties(b);
    }

    [[nodiscard]] Row row(const Entry &entry) const {
        Row row;
        row.bytes = entry.bytes;
        row.device = entry.device();
        if (!steps_.empty())
            row.start = steps_[entry.step()];
        if (question_.byApplication) {
            row.application = entry.application();
            if (const ApplicationName *name = present_.directory.application(row.application))
                row.category = name->category;
        } else if (question_.byCategory) {
            row.category = categories_[entry.application() - 1];
        }
        return row;
    }

    const Present &present_;
    const Question &question_;
    Tally tally_; // of the present step
    std::vector<Entry> entries_;
    bool hasStoredOthers_ = false; // of what has no device any more
    std::optional<Places> places_; // when they are first needed
    Span step_;
    std::vector<Seconds> steps_;
    std::vector<std::uint32_t> categoryOf_; // by application: a number from 1 on, 0 for not yet
    std::vector<std::string> categories_;
};

// Whole periods; one that was made in another zone counts with its own borders.
Span widen(const Store &store, Level level, Span range) {
    range.from = periodAt(level, range.from).from;
    if (range.to > range.from && periodAt(level, range.to - 1).to > range.to)
        range.to = periodAt(level, range.to - 1).to;
    if (level != Level::kSlot) {
        if (const auto cut = store.periodAround(level, range.from))
            range.from = cut->from;
        if (const auto cut = store.periodAround(level, range.to))
            range.to = cut->to;
    }
    return range;
}

} // namespace

std::vector<std::pair<Level, Span>> finestSpans(const Present &present, const Store &store) {
    std::vector<std::pair<Level, Span>> spans;
    Seconds from = 0;
    for (const Level level : {Level::kMonth, Level::kDay, Level::kHour}) {
        // The period that lost some of its parts stands in for all of them.
        const Seconds trimmed = present.trimmed[indexOf(finer(level))];
        const auto cut = store.periodAround(level, trimmed);
        const Seconds to = std::max(from, cut ? cut->to : trimmed);
        spans.push_back({level, {from, to}});
        from = to;
    }
    spans.push_back({Level::kSlot, {from, kLatest}});
    return spans;
}

Span untilNow(Seconds from, Seconds now) {
    return {from, std::max(from, now) + 1};
}

void eachPeriod(const Store &store, Level level, const Span &span, const Store::Visitor &visit) {
    const auto below = [&](const Span &hole) {
        if (level != Level::kSlot && hole.from < hole.to)
            eachPeriod(store, finer(level), hole, visit);
    };
    Seconds done = span.from;
    store.each(level, span, [&](const Span &period, PackedView packed) {
        below({done, period.from});
        visit(period, packed);
        done = period.to;
    });
    below({done, span.to});
}

Answer ask(const Present &present, const Store &store, const Question &asked) {
    Question question = asked;
    const Level level = finestKept(present, question.range.from);
    if (question.step)
        question.step = std::max(*question.step, level);
    question.top = std::min(question.top, kMostRows);
    question.range = widen(store, level, question.range);
    // A month has fewer devices than its days: it only stands in where those are gone.
    const Level coarsest = std::min(question.step.value_or(Level::kDay), Level::kDay);
    const Seconds daysFrom = std::clamp(finestSpans(present, store).front().second.to,
                                        question.range.from, question.range.to);

    Summing summing(present, question);
    const auto add = [&](const Pair &pair, const Bytes &bytes) { summing.add(pair, bytes); };
    const auto addPacked = [&](const Span &period, PackedView packed) {
        summing.beginPeriod(period.from);
        if (!visitTraffic(packed, add))
            throw SqlDamage("a period is damaged");
    };
    eachPeriod(store, Level::kMonth, {question.range.from, daysFrom}, addPacked);
    eachPeriod(store, coarsest, {daysFrom, question.range.to}, addPacked);
    const auto end = present.slots.lower_bound(question.range.to);
    for (auto slot = present.slots.lower_bound(question.range.from); slot != end; ++slot) {
        summing.beginPeriod(slot->first);
        for (const auto &[pair, bytes] : slot->second)
            add(pair, bytes);
    }

    Answer answer{.range = question.range,
                  .resolution = kResolutions[indexOf(level)],
                  .step = question.step,
                  .total = summing.total,
                  .rows = {},
                  .othersCount = 0,
                  .others = {}};
    answer.rows = summing.takeRows();
    answer.others = summing.others;
    answer.othersCount = summing.othersCount;
    return answer;
}

} // namespace usage
