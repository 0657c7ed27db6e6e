#include "check/questions.h"

#include <charconv>
#include <memory>
#include <stdexcept>

namespace fleet {
namespace {

// Simulated routers only: other ones may share the store, and are no matter of the ledger.
constexpr const char *kFingerprints =
    "SELECT router, outbox, sequence, count(), uniqExact(item), sum(halfMD5(concat("
    "toString(item), '|', region, '|', device, '|', device_type, '|', app_type, '|', app_name, "
    "'|', "
    "toString(start_time), '|', toString(end_time), '|', toString(duration), '|', "
    "toString(upload), '|', toString(download), '|', toString(upload_below_zero), '|', "
    "toString(download_below_zero), '|', toString(clock_bad), '|', toString(bytes_negative)))) "
    "FROM usage.reports FINAL WHERE router LIKE 'r-%' GROUP BY router, outbox, sequence";

constexpr const char *kArrivals =
    "SELECT router, outbox, sequence, count(), any(records), "
    "any(taken), any(dropped) FROM usage.arrivals FINAL WHERE router LIKE 'r-%' "
    "GROUP BY router, outbox, sequence";

constexpr const char *kSums =
    "SELECT router, app_name, sum(records), sum(upload), sum(download) "
    "FROM usage.daily FINAL WHERE router LIKE 'r-%' GROUP BY router, app_name";

std::string demand(const Answer &answer) {
    if (answer.result != StoreResult::kDone)
        throw std::runtime_error("the store: " + answer.text);
    return answer.text;
}

std::string ask(Store &store, const char *table, const char *question) {
    demand(store.ask(std::string("SYSTEM SYNC REPLICA usage.") + table));
    return demand(store.ask(question));
}

// The reverse of what the store does to a text in a tab-separated answer.
std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        constexpr std::string_view kLetters = "tnr0bf";
        constexpr std::string_view kBytes{"\t\n\r\0\b\f", 6};
        const std::size_t letter = kLetters.find(text[++i]);
        out += letter == std::string_view::npos ? text[i] : kBytes[letter];
    }
    return out;
}

template <typename Take>
void forEachRow(std::string_view text, Take take) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        std::vector<std::string> fields;
        for (std::size_t tab = 0; tab != std::string_view::npos;) {
            tab = line.find('\t');
            fields.push_back(unescaped(line.substr(0, tab)));
            line.remove_prefix(tab == std::string_view::npos ? line.size() : tab + 1);
        }
        take(fields);
    }
}

std::uint64_t number(const std::string &text) {
    std::uint64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

template <auto release>
struct Release {
    template <typename T>
    void operator()(T *object) const {
        release(object);
    }
};

} // namespace

Stored askReports(Store &store) {
    Stored stored;
    forEachRow(ask(store, "reports", kFingerprints), [&](const std::vector<std::string> &row) {
        StoredReport &report = stored[{row.at(0), row.at(1), number(row.at(2))}];
        report.rows = number(row.at(3));
        report.items = number(row.at(4));
        report.fingerprint = number(row.at(5));
    });
    forEachRow(ask(store, "arrivals", kArrivals), [&](const std::vector<std::string> &row) {
        StoredReport &report = stored[{row.at(0), row.at(1), number(row.at(2))}];
        report.arrivals = number(row.at(3));
        report.records = number(row.at(4));
        report.taken = static_cast<std::int64_t>(number(row.at(5)));
        report.dropped = number(row.at(6));
    });
    return stored;
}

Daily askDaily(Store &store) {
    Daily daily;
    forEachRow(ask(store, "daily", kSums), [&](const std::vector<std::string> &row) {
        daily[{row.at(0), row.at(1)}] = {number(row.at(2)), number(row.at(3)), number(row.at(4))};
    });
    return daily;
}

Letters askLetters(const BufferAddress &address) {
    const Buffer buffer(address);
    return buffer.letters();
}

} // namespace fleet
