#include "ingest/ingest.h"

#include "ingest/log.h"
#include "ingest/report/rows.h"

#include <algorithm>
#include <thread>

namespace fleet {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Reports in one fetch: 64 MB at the very most, and one of them is usually 5 KB.
constexpr int kFetch = 256;
constexpr milliseconds kFetchPatience{250};

constexpr seconds kLookEvery{5};
constexpr seconds kLongestPause{30};

} // namespace

Ingester::Ingester(Buffer &buffer, Store &store, const DeviceKey &key, Gauges &gauges,
                   const std::atomic<bool> &stop)
    : buffer_(buffer), store_(store), key_(key), gauges_(gauges), stop_(stop) {
    store_.onWait([this] { keepAlive(); });
}

void Ingester::run() {
    while (!stop_) {
        lookAtBacklog();
        fetch();
        if (batch_.isDue(Clock::now()))
            settleBatch();
    }
    settleBatch();
    buffer_.flush();
}

void Ingester::fetch() {
    try {
        for (Message &message : buffer_.fetch(kFetch, kFetchPatience))
            take(std::move(message));
    } catch (const BufferError &error) {
        ++gauges_.bufferErrors;
        logLine("buffer: " + std::string(error.what()));
        gauges_.consumer = false;
        sleepFor(seconds(1));
    }
}

void Ingester::take(Message message) {
    auto read = readEnvelope(message.subject(), message.body());
    if (const auto *refusal = std::get_if<Refusal>(&read)) {
        bury(message, refusal->reason, refusal->text);
        return;
    }
    const auto &envelope = std::get<Envelope>(read);
    const std::int64_t received = message.received();
    std::string rows;
    std::string arrival;
    appendReportRows(rows, envelope, received, key_);
    appendArrivalRow(arrival, envelope, received);
    if (batch_.empty())
        aliveAt_ = Clock::now();
    batch_.add(rows, envelope.records.size(), arrival, Clock::now());
    messages_.push_back(std::move(message));
    gauges_.inFlight = messages_.size();
}

// The letter is safe before the report is let go; when it can't be written, the report comes again.
void Ingester::bury(Message &message, Reason reason, std::string_view text) {
    try {
        buffer_.bury(reasonName(reason), text, message);
        message.acknowledge();
        ++gauges_.dead.at(static_cast<std::size_t>(reason));
    } catch (const BufferError &error) {
        ++gauges_.bufferErrors;
        logLine("a dead letter has to wait: " + std::string(error.what()));
    }
}

void Ingester::settleBatch() {
    settle(batch_, {.store = [this](Range range) { return store(range); },
                    .stored = [this](Range range) { stored(range); },
                    .refused =
                        [this](std::size_t index) {
                            bury(messages_[index], Reason::kRefused, "the store refused its rows");
                        },
                    .left = [this](Range range) { left(range); }});
    batch_.clear();
    messages_.clear();
    gauges_.inFlight = 0;
}

// Tries until there is an answer: while the store is away, the reports are kept here and the rest
// waits in the buffer.
Verdict Ingester::store(Range range) {
    for (int attempt = 0;; ++attempt) {
        const auto begin = Clock::now();
        const Answer answer = insert(range);
        gauges_.storeMicroseconds += static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count());
        gauges_.store = answer.result != StoreResult::kAway;
        if (answer.result == StoreResult::kDone)
            return Verdict::kStored;
        logLine("store: " + answer.text.substr(0, 300));
        if (answer.result == StoreResult::kRefused) {
            ++gauges_.refusals;
            return Verdict::kRefused;
        }
        ++gauges_.storeErrors;
        if (stop_)
            return Verdict::kAway;
        pauseBefore(attempt + 1);
    }
}

// The rows first: a report that has its row in `arrivals` has all its records in `reports`.
Answer Ingester::insert(Range range) {
    Answer answer =
        store_.insert("usage.reports " + std::string(reportColumns()), batch_.rows(range));
    if (answer.result != StoreResult::kDone)
        return answer;
    return store_.insert("usage.arrivals " + std::string(arrivalColumns()), batch_.arrivals(range));
}

void Ingester::stored(Range range) {
    for (std::size_t i = range.first; i < range.last; ++i)
        messages_[i].acknowledge();
    gauges_.reports += range.size();
    gauges_.rows += batch_.rowCount(range);
    ++gauges_.batches;
}

void Ingester::left(Range range) {
    for (std::size_t i = range.first; i < range.last; ++i)
        messages_[i].giveBack();
    gauges_.givenBack += range.size();
}

void Ingester::keepAlive() {
    if (Clock::now() - aliveAt_ >= aliveEvery_)
        keepAliveNow();
}

void Ingester::keepAliveNow() {
    for (Message &message : messages_)
        message.inProgress();
    aliveAt_ = Clock::now();
}

// 1, 2, 4 ... 30 seconds, each shortened at random by up to a half, so that ingesters don't return
// in step.
void Ingester::pauseBefore(int attempt) {
    const auto whole =
        std::min<milliseconds>(seconds(1) * (1 << std::min(attempt - 1, 5)), kLongestPause);
    const auto half = whole.count() / 2;
    std::uniform_int_distribution<milliseconds::rep> spread(
        std::max<milliseconds::rep>(half, 1000), std::max<milliseconds::rep>(whole.count(), 1000));
    sleepFor(milliseconds(spread(random_)));
}

void Ingester::sleepFor(milliseconds time) {
    const auto end = Clock::now() + time;
    while (!stop_ && Clock::now() < end) {
        keepAlive();
        lookAtBacklog(); // while the store is away, the lag is what people look at
        std::this_thread::sleep_for(milliseconds(100));
    }
}

void Ingester::lookAtBacklog() {
    if (Clock::now() - lookedAt_ < kLookEvery)
        return;
    lookedAt_ = Clock::now();
    try {
        const auto backlog = buffer_.backlog();
        gauges_.consumer = backlog.has_value();
        gauges_.waiting = backlog ? backlog->waiting : 0;
        gauges_.pending = backlog ? backlog->pending : 0;
        if (backlog)
            aliveEvery_ = backlog->ackWait / 4;
    } catch (const BufferError &error) {
        gauges_.consumer = false;
        logLine("buffer: " + std::string(error.what()));
    }
}

} // namespace fleet
