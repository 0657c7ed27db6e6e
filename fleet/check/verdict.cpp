#include "check/verdict.h"

#include <array>
#include <openssl/evp.h>
#include <set>

namespace fleet {
namespace {

// Around the time of arrival; what simulated routers get wrong is decades off.
constexpr std::int64_t kOldest = 400LL * 86400;
constexpr std::int64_t kNewest = 86400;

bool clockIsBad(const SimulatedRecord &record, std::int64_t around) {
    const auto bad = [&](std::int64_t time) {
        return time < around - kOldest || time > around + kNewest;
    };
    return bad(record.start) || bad(record.end);
}

std::uint64_t counted(std::int64_t bytes) {
    return bytes < 0 ? 0 : static_cast<std::uint64_t>(bytes);
}

std::uint64_t halfMd5(const std::string &text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_md5(), nullptr);
    std::uint64_t half = 0;
    for (std::size_t i = 0; i < 8; ++i)
        half = half << 8U | digest.at(i);
    return half;
}

StoredKey keyOf(const ReportKey &key) {
    return {routerName(key.router), outboxName(key.seed, key.router), key.sequence};
}

bool isComplete(const ReportKey &key, const StoredReport &report) {
    return report.arrivals >= 1 && report.items >= key.records;
}

bool isTwice(const ReportKey &key, const StoredReport &report) {
    return report.arrivals > 1 || report.rows > key.records || report.rows > report.items;
}

bool isAltered(const ReportKey &key, const StoredReport &report, const DeviceKey &devices) {
    return report.records != key.records || report.taken != key.taken ||
           report.dropped != key.dropped || report.fingerprint != fingerprintOf(key, devices);
}

void judgeOne(Judgement &judgement, const Entry &entry, const StoredReport &report,
              const DeviceKey &devices) {
    if (!isComplete(entry.key, report))
        // The rows of one that was never acknowledged may have been caught halfway.
        judgement.missing += entry.fate == Fate::kAcknowledged ? 1 : 0;
    else if (isTwice(entry.key, report))
        ++judgement.twice;
    else if (isAltered(entry.key, report, devices))
        ++judgement.altered;
}

Daily expectedDaily(const std::vector<Entry> &ledger, const Stored &stored) {
    Daily expected;
    for (const auto &[key, fate] : ledger) {
        if (key.fault != Fault::kNone || !stored.contains(keyOf(key)))
            continue;
        for (const SimulatedRecord &record : recordsOf(key)) {
            Sums &sums = expected[{routerName(key.router), record.appName}];
            ++sums.records;
            sums.upload += counted(record.upload);
            sums.download += counted(record.download);
        }
    }
    return expected;
}

} // namespace

std::uint64_t fingerprintOf(const ReportKey &key, const DeviceKey &devices) {
    std::uint64_t sum = 0;
    std::uint32_t item = 0;
    for (const SimulatedRecord &record : recordsOf(key)) {
        const auto number = [](std::int64_t value) { return "|" + std::to_string(value); };
        const auto below = [](std::int64_t bytes) { return bytes < 0 ? bytes : 0; };
        std::string text = std::to_string(item++) + "|" + regionName(key.router) + "|" +
                           devices.nameOf(record.device) + "|" + record.deviceType + "|" +
                           record.appType + "|" + record.appName;
        text += number(record.start) + number(record.end) + number(record.end - record.start);
        text += "|" + std::to_string(counted(record.upload)) + "|" +
                std::to_string(counted(record.download));
        text += number(below(record.upload)) + number(below(record.download));
        text += number(clockIsBad(record, key.taken) ? 1 : 0);
        text += number(record.upload < 0 || record.download < 0 ? 1 : 0);
        sum += halfMd5(text);
    }
    return sum;
}

Judgement judgeReports(const std::vector<Entry> &ledger, const Stored &stored,
                       const DeviceKey &devices) {
    Judgement judgement;
    std::set<StoredKey> known;
    for (const Entry &entry : ledger) {
        if (entry.key.fault != Fault::kNone)
            continue;
        known.insert(keyOf(entry.key));
        const auto found = stored.find(keyOf(entry.key));
        if (found != stored.end())
            judgeOne(judgement, entry, found->second, devices);
        else if (entry.fate == Fate::kAcknowledged)
            ++judgement.missing;
    }
    for (const auto &[key, report] : stored)
        judgement.unknown += known.contains(key) ? 0 : 1;
    return judgement;
}

Judgement judgeDaily(const std::vector<Entry> &ledger, const Stored &stored, const Daily &daily) {
    Judgement judgement;
    const Daily expected = expectedDaily(ledger, stored);
    for (const auto &[key, sums] : expected) {
        const auto found = daily.find(key);
        if (found == daily.end() || found->second.records < sums.records)
            ++judgement.missing;
        else if (found->second.records > sums.records)
            ++judgement.twice;
        else if (found->second != sums)
            ++judgement.altered;
    }
    for (const auto &[key, sums] : daily)
        judgement.unknown += expected.contains(key) ? 0 : 1;
    return judgement;
}

Judgement judgeLetters(const std::vector<Entry> &ledger, const Letters &letters) {
    Judgement judgement;
    std::multiset<std::pair<std::string, std::string>> there(letters.begin(), letters.end());
    for (const auto &[key, fate] : ledger) {
        if (key.fault == Fault::kNone)
            continue;
        const std::pair<std::string, std::string> letter{reasonOf(key.fault), bodyOf(key)};
        const std::size_t copies = there.erase(letter);
        judgement.twice += copies > 1 ? 1 : 0;
        judgement.missing += copies == 0 && fate == Fate::kAcknowledged ? 1 : 0;
    }
    judgement.unknown = there.size();
    return judgement;
}

} // namespace fleet
