#include "simulate/report.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace fleet {
namespace {

struct App {
    std::string_view type;
    std::string_view name;
};

// Among ordinary ones some that were seen in the field to hurt: quotes, tabs, bytes that are no
// UTF-8, a byte of 0.
constexpr std::array kApps = {App{"SocialNetwork", "Instagram"},
                              App{"Media", "YouTube"},
                              App{"Video", "NetFlix"},
                              App{"Web", "HTTPS"},
                              App{"Game", "Steam"},
                              App{"Mail", "IMAP"},
                              App{"VoIP", "WhatsApp call"},
                              App{"Network", "DNS"},
                              App{"Media", "Spotify"},
                              App{"Cloud", "Dropbox"},
                              App{"", ""},
                              App{"Odd", "a \"quoted\"\tname\\n"},
                              App{"Odd", "caf\xE9 \xFF\x80"},
                              App{"Odd", {"nothing \0 more", 14}},
                              App{"Odd", "\xE2\x98\x83 snow \xEF\x9E\x80"}};

constexpr std::array kDevices = {
    "Android phone", "Windows PC", "Embedded device", "TV", "Tablet", ""};

constexpr std::array kRegions = {"eu", "us", "ap"};

constexpr std::int64_t kYear2100 = 4102444800;

std::string hexOf(std::uint64_t a, std::uint64_t b) {
    char text[40];
    snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(a),
             static_cast<unsigned long long>(b));
    return text;
}

// A JSON text; bytes that are no UTF-8 stand as they are, as in a router's report.
void appendText(std::string &out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\0') {
            out += "\\u0000";
        } else {
            out += c;
        }
    }
    out += '"';
}

std::string timeText(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm fields{};
    gmtime_r(&time, &fields);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields);
    return text;
}

SimulatedRecord recordOf(const ReportKey &key, std::uint32_t item) {
    const std::uint64_t whole = mix(mix(key.seed, key.router), mix(key.sequence, item + 1));
    const std::uint64_t device = (whole >> 8U) % 8;
    const App &app = kApps.at((whole >> 16U) % (whole % 10 == 0 ? kApps.size() : 11));
    char address[24];
    snprintf(address, sizeof address, "02:%02X:%02X:%02X:%02X:%02X", (key.router >> 16U) & 255U,
             (key.router >> 8U) & 255U, key.router & 255U, 0x5EU, static_cast<unsigned>(device));
    SimulatedRecord record{.device = address,
                           .deviceType = kDevices.at(device % kDevices.size()),
                           .appType = std::string(app.type),
                           .appName = std::string(app.name)};
    record.end = key.taken - static_cast<std::int64_t>((whole >> 24U) % 60);
    record.start = record.end - 30 - static_cast<std::int64_t>((whole >> 32U) % 900);
    record.upload = static_cast<std::int64_t>(mix(whole, 1) % 1'000'000);
    record.download = static_cast<std::int64_t>(mix(whole, 2) % 50'000'000);
    switch (mix(whole, 3) % 400) { // now and then a router that is not well
    case 0:
        record.start = static_cast<std::int64_t>(device); // a clock that was not set yet: 1970
        break;
    case 1:
        record.end = kYear2100 + 30;
        record.start = kYear2100;
        break;
    case 2:
        record.upload = -record.upload - 1; // an engine that was reset
        break;
    default:
        break;
    }
    return record;
}

void appendRecord(std::string &out, const SimulatedRecord &record) {
    out += "{\"macAddress\":";
    appendText(out, record.device);
    out += ",\"devType\":";
    appendText(out, record.deviceType);
    out += ",\"appType\":";
    appendText(out, record.appType);
    out += ",\"appName\":";
    appendText(out, record.appName);
    out += ",\"trafficStartTime\":" + std::to_string(record.start) +
           ",\"trafficEndTime\":" + std::to_string(record.end) +
           ",\"duration\":" + std::to_string(record.end - record.start) +
           ",\"uploadBandwidth\":" + std::to_string(record.upload) +
           ",\"downloadBandwidth\":" + std::to_string(record.download) + "}";
}

std::string listOf(const ReportKey &key) {
    std::string list;
    for (const SimulatedRecord &record : recordsOf(key)) {
        list += list.empty() ? "" : ",";
        appendRecord(list, record);
    }
    return list;
}

} // namespace

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t value = a + 0x9E3779B97F4A7C15U * (b + 1);
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31U);
}

std::string routerName(std::uint32_t router) {
    char text[16];
    snprintf(text, sizeof text, "r-%07x", router);
    return text;
}

std::string regionName(std::uint32_t router) {
    return kRegions.at(router % kRegions.size());
}

std::string outboxName(std::uint64_t seed, std::uint32_t router) {
    return hexOf(mix(seed, router), mix(router, seed));
}

std::string passwordOf(std::uint64_t seed, std::uint32_t router) {
    return hexOf(mix(seed + 1, router), mix(router, seed + 1));
}

std::string topicOf(std::uint32_t router) {
    return "usage/" + regionName(router) + "/" + routerName(router) + "/report";
}

std::vector<SimulatedRecord> recordsOf(const ReportKey &key) {
    std::vector<SimulatedRecord> records;
    records.reserve(key.records);
    for (std::uint32_t item = 0; item < key.records; ++item)
        records.push_back(recordOf(key, item));
    if (key.fault == Fault::kRefused && !records.empty())
        records.front().deviceType = "Unheard-of";
    return records;
}

std::string bodyOf(const ReportKey &key) {
    const std::uint32_t counted = key.records + (key.fault == Fault::kCount ? 1 : 0);
    const std::uint32_t named = key.router + (key.fault == Fault::kIdentity ? 1 : 0);
    std::string body = "{\"schema\":1,\"router\":\"" + routerName(named) + "\"";
    if (key.fault != Fault::kSchema)
        body += ",\"outbox\":\"" + outboxName(key.seed, key.router) + "\"";
    body += ",\"sequence\":" + std::to_string(key.sequence) + ",\"taken\":\"" +
            timeText(key.taken) + "\",\"dropped\":" +
            (key.fault == Fault::kRange ? "18446744073709551616" : std::to_string(key.dropped)) +
            ",\"report\":{\"numOfTrafficRecrod\":" + std::to_string(counted) +
            ",\"trafficInfo\":[" + listOf(key) + "]}}";
    if (key.fault == Fault::kJson)
        body.resize(body.size() / 2);
    return body;
}

const char *reasonOf(Fault fault) {
    constexpr std::array kReasons = {"", "json", "schema", "count", "range", "identity", "refused"};
    return kReasons.at(static_cast<std::size_t>(fault));
}

} // namespace fleet
