#include "usage/query.h"

#include "usage/rollup.h"
#include "usage/slot.h"
#include "usage/tally.h"

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

// Sums entries into rows of the question.
class Summing {
  public:
    Summing(const Present &present, const Question &question)
        : present_(present), question_(question) {}

    void beginPeriod(Seconds start) {
        if (!question_.step)
            return;
        if (start >= step_.to || start < step_.from || steps_.empty()) {
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
            return;
        }
        const std::uint64_t step = steps_.empty() ? 0 : steps_.size() - 1;
        const std::uint64_t device = question_.byDevice ? pair.device : 0;
        tally_[(step << kDeviceBits | (device & kDeviceMask)) << kApplicationBits |
               (applicationKey(pair.application) & kApplicationMask)] += bytes;
    }

    [[nodiscard]] std::vector<Row> rows() const {
        std::vector<Row> rows;
        tally_.each(
            [&](std::uint64_t key, const Bytes &bytes) { rows.push_back(row(key, bytes)); });
        return rows;
    }

    Bytes total;
    Bytes others;

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

    [[nodiscard]] Row row(std::uint64_t key, const Bytes &bytes) const {
        Row row;
        row.bytes = bytes;
        const auto application = static_cast<std::uint32_t>(key & kApplicationMask);
        row.device = static_cast<DeviceId>(key >> kApplicationBits & kDeviceMask);
        if (!steps_.empty())
            row.start = steps_[key >> (kApplicationBits + kDeviceBits)];
        if (question_.byApplication) {
            row.application = application;
            if (const ApplicationName *name = present_.directory.application(application))
                row.category = name->category;
        } else if (question_.byCategory) {
            row.category = categories_[application - 1];
        }
        return row;
    }

    const Present &present_;
    const Question &question_;
    Tally tally_;
    Span step_;
    std::vector<Seconds> steps_;
    std::vector<std::uint32_t> categoryOf_; // by application: a number from 1 on, 0 for not yet
    std::vector<std::string> categories_;
};

// What rows are ordered by, beside their bytes.
struct RowName {
    std::string device;
    Mac mac{};
    std::string application;
    std::string category;
    Seconds start = 0;
    auto ties() const { return std::tie(mac, application, category, start); }
};

RowName nameOf(const Directory &directory, const Row &row) {
    RowName name{
        .device = {}, .mac = {}, .application = {}, .category = row.category, .start = row.start};
    if (const Device *device = directory.find(row.device)) {
        name.device = device->name();
        name.mac = device->mac;
    }
    if (const ApplicationName *application = directory.application(row.application))
        name.application = application->name;
    return name;
}

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

std::vector<Row> sorted(const Directory &directory, Sort sort, std::vector<Row> rows) {
    const auto before = [&](const Row &a, const Row &b) {
        if (rank(sort, a.bytes) != rank(sort, b.bytes))
            return rank(sort, a.bytes) > rank(sort, b.bytes);
        const RowName first = nameOf(directory, a);
        const RowName second = nameOf(directory, b);
        if (sort == Sort::kName && first.device != second.device)
            return first.device < second.device;
        return first.ties() < second.ties();
    };
    std::sort(rows.begin(), rows.end(), before);
    return rows;
}

void keepTop(std::size_t top, Answer &answer) {
    answer.othersCount = answer.others.any() ? 1 : 0;
    for (std::size_t i = top; i < answer.rows.size(); ++i) {
        answer.others += answer.rows[i].bytes;
        ++answer.othersCount;
    }
    answer.rows.resize(std::min(top, answer.rows.size()));
}

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
            throw SqlError("a period is damaged", SQLITE_CORRUPT);
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
                  .rows = summing.rows(),
                  .othersCount = 0,
                  .others = summing.others};
    answer.rows = sorted(present.directory, question.sort, std::move(answer.rows));
    keepTop(std::min(question.top, kMostRows), answer);
    return answer;
}

} // namespace usage
