#include "ingest/report/rows.h"

#include <charconv>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <unordered_map>

namespace fleet {
namespace {

// Values of one row, in the order of the columns.
class Row {
  public:
    explicit Row(std::string &out) : out_(out) {}
    Row(const Row &) = delete;
    Row &operator=(const Row &) = delete;
    ~Row() { out_ += '\n'; }

    Row &operator<<(std::string_view text) {
        separate();
        appendEscaped(out_, text);
        return *this;
    }

    Row &operator<<(std::integral auto number) {
        separate();
        char digits[24];
        const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        out_.append(digits, end);
        return *this;
    }

  private:
    void separate() {
        if (!first_)
            out_ += '\t';
        first_ = false;
    }

    std::string &out_;
    bool first_ = true;
};

bool isNear(std::int64_t time, std::int64_t received) {
    return time >= received - kOldestUse && time <= received + kNewestUse;
}

std::string dateOf(std::int64_t seconds) {
    const std::chrono::year_month_day date{std::chrono::floor<std::chrono::days>(
        std::chrono::sys_seconds(std::chrono::seconds(seconds)))};
    char text[16];
    snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

void appendRecord(std::string &out, const Envelope &envelope, std::size_t item,
                  std::int64_t received, std::string_view device) {
    const Record &record = envelope.records[item];
    const bool negative = record.upload.belowZero != 0 || record.download.belowZero != 0;
    Row row(out);
    row << envelope.router << envelope.outbox << envelope.sequence << item << envelope.region
        << received << dayOf(record, received) << device << record.deviceType << record.appType
        << record.appName << record.start << record.end << record.duration << record.upload.value
        << record.download.value << record.upload.belowZero << record.download.belowZero
        << static_cast<int>(clockIsBad(record, received)) << static_cast<int>(negative);
}

} // namespace

std::string_view reportColumns() {
    return "(router, outbox, sequence, item, region, received, day, device, device_type, app_type, "
           "app_name, start_time, end_time, duration, upload, download, upload_below_zero, "
           "download_below_zero, clock_bad, bytes_negative)";
}

std::string_view arrivalColumns() {
    return "(router, outbox, sequence, region, received, taken, dropped, records)";
}

bool clockIsBad(const Record &record, std::int64_t received) {
    return !isNear(record.start, received) || !isNear(record.end, received);
}

std::string dayOf(const Record &record, std::int64_t received) {
    return dateOf(clockIsBad(record, received) ? received : record.start);
}

void appendEscaped(std::string &out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\0':
            out += "\\0";
            break;
        default:
            out += c;
        }
    }
}

void appendReportRows(std::string &out, const Envelope &envelope, std::int64_t received,
                      const DeviceKey &key) {
    std::unordered_map<std::string_view, std::string> names; // a report repeats few devices
    for (std::size_t item = 0; item < envelope.records.size(); ++item) {
        const std::string_view address = envelope.records[item].device;
        auto [name, isNew] = names.try_emplace(address);
        if (isNew)
            name->second = key.nameOf(address);
        appendRecord(out, envelope, item, received, name->second);
    }
}

void appendArrivalRow(std::string &out, const Envelope &envelope, std::int64_t received) {
    Row row(out);
    row << envelope.router << envelope.outbox << envelope.sequence << envelope.region << received
        << envelope.taken << envelope.dropped << envelope.records.size();
}

} // namespace fleet
