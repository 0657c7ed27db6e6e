// Whatever a report's texts and numbers are, its row has one line, all columns, and the texts that
// it was made of. The input is: five numbers of eight bytes, then four texts that a byte of 1 ends:
// the device, its type, the application's type and name.
#include "fuzz/target.h"

#include "ingest/report/rows.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

using namespace fleet;

namespace {

constexpr std::size_t kColumns = 20;

std::int64_t takeNumber(std::string_view &input) {
    std::int64_t number = 0;
    const std::size_t length = std::min(input.size(), sizeof number);
    if (length > 0)
        memcpy(&number, input.data(), length);
    input.remove_prefix(length);
    return number;
}

// Up to a byte of 1: the texts themselves may hold every other one.
std::string takeText(std::string_view &input) {
    const std::size_t end = std::min(input.find('\1'), input.size());
    std::string text(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return text;
}

std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        FUZZ_REQUIRE(++i < text.size());
        out += text[i] == 't' ? '\t' : text[i] == 'n' ? '\n' : text[i] == '0' ? '\0' : '\\';
    }
    return out;
}

std::vector<std::string> fieldsOf(std::string_view line) {
    std::vector<std::string> fields;
    for (std::size_t tab = 0; tab != std::string_view::npos;) {
        tab = line.find('\t');
        fields.push_back(unescaped(line.substr(0, tab)));
        line.remove_prefix(tab == std::string_view::npos ? line.size() : tab + 1);
    }
    return fields;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::int64_t received = takeNumber(input) & 0xFFFFFFFF; // what a buffer's clock can say
    Record record;
    record.start = takeNumber(input);
    record.end = takeNumber(input);
    record.upload = {.value = 0, .belowZero = std::min<std::int64_t>(takeNumber(input), 0)};
    record.download = {.value = static_cast<std::uint64_t>(takeNumber(input)), .belowZero = 0};
    record.device = takeText(input);
    record.deviceType = takeText(input);
    record.appType = takeText(input);
    record.appName = takeText(input);
    Envelope envelope;
    envelope.records = {record};
    std::string rows;
    appendReportRows(rows, envelope, received, DeviceKey());
    FUZZ_REQUIRE(std::count(rows.begin(), rows.end(), '\n') == 1 && rows.back() == '\n');
    rows.pop_back();
    const auto fields = fieldsOf(rows);
    FUZZ_REQUIRE(fields.size() == kColumns);
    FUZZ_REQUIRE(fields[6].size() == 10 && fields[6] == dayOf(record, received));
    FUZZ_REQUIRE(fields[7] == record.device && fields[8] == record.deviceType);
    FUZZ_REQUIRE(fields[9] == record.appType && fields[10] == record.appName);
    FUZZ_REQUIRE(fields[11] == std::to_string(record.start));
    FUZZ_REQUIRE(fields[15] == std::to_string(record.download.value));
    FUZZ_REQUIRE(fields[16] == std::to_string(record.upload.belowZero));
    return 0;
}
