#include "usage/uplink/taken.h"

#include "analytics/device_lookup.h"
#include "common/file.h"
#include "usage/uplink/numbered.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <utility>

namespace uplink {
namespace {

namespace fs = std::filesystem;

constexpr const char *kTaken = "taken-";
constexpr const char *kRejected = "rejected-";
constexpr std::size_t kMaxFile = 1 << 20; // a full report with its white space is half of it

// A file as it was found; a refusal when it is none that a daemon would write.
struct Found {
    std::string content;
    time_t changed = 0; // 0 with a refusal: waiting makes it no better
    std::string refusal;
};

std::string readUpTo(int descriptor, std::size_t most) {
    std::string content(most, '\0');
    std::size_t size = 0;
    ssize_t got = 0;
    while (size < most && (got = read(descriptor, content.data() + size, most - size)) > 0)
        size += static_cast<std::size_t>(got);
    if (got < 0)
        throw fs::filesystem_error("cannot read a report",
                                   std::error_code(errno, std::system_category()));
    content.resize(size);
    return content;
}

// Neither a link nor a pipe in the report's place leads or holds the process anywhere.
Found find(const fs::path &path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat facts {};
    if (!file || fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode))
        return {.content = {}, .changed = 0, .refusal = "it is no readable file"};
    std::string content = readUpTo(file.get(), kMaxFile + 1);
    if (content.size() > kMaxFile)
        return {.content = {}, .changed = 0, .refusal = "it is larger than a report can be"};
    return {.content = std::move(content), .changed = facts.st_mtime, .refusal = {}};
}

// A time in the future tells nothing: the clock was set back since.
bool maybeBeingWritten(time_t changed, time_t now) {
    return changed <= now && now - changed < Spool::kSettled;
}

// When the daemon's report was written last; nothing when there is none.
std::optional<time_t> writtenAt(const fs::path &report) {
    struct stat facts {};
    if (lstat(report.c_str(), &facts) != 0)
        return std::nullopt;
    return facts.st_mtime;
}

} // namespace

Spool::Spool(fs::path folder, std::function<void(const std::string &)> tell)
    : folder_(std::move(folder)), tell_(std::move(tell)) {}

// In the order of their sequences, and none before those before it: the outbox takes a sequence up
// to its last one for a report that it has had.
void Spool::take(Outbox &outbox, Occasion occasion, time_t now) {
    if (!fs::exists(folder_))
        return;
    rename(outbox, occasion, now);
    for (const auto &[sequence, file] : numberedFiles(folder_, kTaken))
        if (!settle(sequence, file, outbox, now))
            return;
}

void Spool::rename(Outbox &outbox, Occasion occasion, time_t now) {
    const fs::path report = folder_ / fs::path(TRAFFIC_USAGE_REPORT_FILE).filename();
    const auto written = writtenAt(report);
    if (!written || (occasion == Occasion::kTimer && maybeBeingWritten(*written, now)))
        return; // the daemon still prints what it has written, and signals after that
    const auto taken = numberedFiles(folder_, kTaken);
    if (taken.size() >= kTakenKept)
        return;
    const std::int64_t sequence = std::max(outbox.last() + 1, nextNumber(taken));
    fs::rename(report, folder_ / (kTaken + std::to_string(sequence)));
}

// False when it is to be tried again.
bool Spool::settle(std::int64_t sequence, const fs::path &file, Outbox &outbox, time_t now) {
    if (sequence > outbox.last()) {
        const Found found = find(file);
        const CheckedReport report = found.refusal.empty()
                                         ? checkReport(found.content)
                                         : CheckedReport{.text = {}, .refusal = found.refusal};
        if (!report.refusal.empty()) {
            if (maybeBeingWritten(found.changed, now))
                return false;
            reject(file, report.refusal);
            return true;
        }
        const std::int64_t dropped = outbox.put(sequence, now, report.text);
        if (dropped > 0)
            tell_("the outbox is full: " + std::to_string(dropped) +
                  " oldest reports were dropped");
    }
    fs::remove(file);
    return true;
}

void Spool::reject(const fs::path &file, const std::string &reason) {
    auto rejected = numberedFiles(folder_, kRejected);
    const fs::path kept = folder_ / (kRejected + std::to_string(nextNumber(rejected)));
    fs::rename(file, kept);
    tell_("a report can't be sent, " + reason + ": kept as " + kept.string());
    for (; rejected.size() >= kRejectedKept; rejected.erase(rejected.begin())) {
        std::error_code ignored;
        fs::remove_all(rejected.begin()->second, ignored);
    }
}

} // namespace uplink
