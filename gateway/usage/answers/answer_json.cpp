#include "usage/answers/answer.h"

#include "usage/answers/json_text.h"
#include "usage/store/slot.h"
#include "usage/text.h"

#include <algorithm>

namespace usage {
namespace {

constexpr int kSchema = 1;
constexpr std::size_t kMostGapsShown = 100;
constexpr std::size_t kDevicesPerPage = 100;
constexpr std::size_t kLinesSize = 128U << 10U;

const char *stepName(Level step) {
    switch (step) {
    case Level::kSlot:
        break;
    case Level::kHour:
        return "hour";
    case Level::kDay:
        return "day";
    case Level::kMonth:
        return "month";
    }
    return "slot";
}

const char *storeName(StoreHealth health) {
    switch (health) {
    case StoreHealth::kOk:
        break;
    case StoreHealth::kFull:
        return "full";
    case StoreHealth::kSetAside:
        return "set_aside";
    }
    return "ok";
}

// A time, or null for one that never was.
std::optional<std::string> timeOrNull(Seconds time) {
    return time == 0 ? std::nullopt : std::optional(timeText(time));
}

void writeDevice(JsonText &json, const Directory &directory, DeviceId id) {
    const Device *device = directory.find(id);
    json.key("device").open('{');
    json.member("mac", macText(device != nullptr ? device->mac : Mac{}));
    json.member("name", device != nullptr ? device->name() : std::string());
    json.close('}');
}

void writeApplication(JsonText &json, const Directory &directory, ApplicationId id) {
    const ApplicationName *name = directory.application(id);
    json.member("application", name != nullptr ? name->name : std::string());
    json.member("category", name != nullptr ? name->category : std::string());
}

void writeLost(JsonText &json, const Lost &lost) {
    json.key("lost").open('{');
    json.member("devices", lost.devices).member("rows", lost.rows);
    json.member("packets", lost.packets).member("bytes", lost.bytes).close('}');
}

void writeState(JsonText &json, const View &view, const Span &range) {
    json.key("state").open('{');
    json.member("last_sample", timeOrNull(view.present.lastSample));
    json.member("engine", view.status.engineAnswers ? "ok" : "unreachable");
    json.member("clock", view.status.clockWaits ? "waiting" : "ok");
    json.member("store", storeName(view.status.store));
    std::vector<Span> gaps;
    for (const Span &gap : view.present.gaps) {
        if (gap.from < range.to && gap.to > range.from)
            gaps.push_back(gap);
    }
    json.key("gaps").open('[');
    for (std::size_t i = gaps.size() - std::min(gaps.size(), kMostGapsShown); i < gaps.size();
         ++i) {
        json.open('{').member("from", timeText(gaps[i].from));
        json.member("to", timeText(gaps[i].to)).close('}');
    }
    json.close(']');
    writeLost(json, view.status.lost);
    json.close('}');
}

void writeHead(JsonText &json, const View &view) {
    json.open('{').member("schema", kSchema).member("generated", timeText(view.now));
    json.member("instance", view.instance).member("zone", zoneName());
}

std::uint64_t perSecond(std::uint64_t bytes, std::int64_t milliseconds) {
    const auto divisor = static_cast<std::uint64_t>(std::max<std::int64_t>(milliseconds, 1));
    return bytes / divisor * 1000 + bytes % divisor * 1000 / divisor;
}

void writeRates(JsonText &json, const Bytes &bytes, std::int64_t milliseconds) {
    json.member("down_per_second", perSecond(bytes.down, milliseconds));
    json.member("up_per_second", perSecond(bytes.up, milliseconds));
}

void writeQuota(JsonText &json, const View &view, const Quota &quota) {
    const Span period = quotaPeriodAt(quota, view.now);
    Question question;
    question.range = untilNow(period.from, view.now);
    question.byDevice = true;
    json.open('{').member("number", quota.number);
    if (quota.device) {
        const Device *device = view.present.directory.find(*quota.device);
        question.devices = {device != nullptr ? device->id : UINT32_MAX};
        json.key("device").open('{').member("mac", macText(*quota.device));
        json.member("name", device != nullptr ? device->name() : macText(*quota.device)).close('}');
    } else {
        json.member("device", std::optional<int>());
    }
    const std::uint64_t used = ask(view.present, view.store, question).total.total();
    json.member("total", quota.total);
    json.member("per", quota.per == QuotaPeriod::kDay ? "day" : "month");
    json.member("starts_on", quota.startsOn);
    json.member("from", timeText(period.from)).member("to", timeText(period.to));
    json.member("used", used).member("estimate", estimate(used, period, view.now));
    json.member("passed", isPassed(quota, used)).close('}');
}

void writeLines(JsonText &json, const View &view, const Span &span, const Pair &pair,
                const Bytes &bytes) {
    json.open('{').member("start", timeText(span.from)).member("end", timeText(span.to));
    if (pair == Pair{}) {
        json.member("others", true);
    } else {
        writeDevice(json, view.present.directory, pair.device);
        writeApplication(json, view.present.directory, pair.application);
    }
    json.members(bytes).close('}').endLine();
}

} // namespace

std::string usageJson(const View &view, const std::vector<std::string> &by, const Answer &answer) {
    const auto asked = [&](const char *name) {
        return std::find(by.begin(), by.end(), name) != by.end();
    };
    const bool byDevice = asked("device");
    const bool byApplication = asked("application");
    const bool byCategory = asked("category");
    JsonText json;
    writeHead(json, view);
    json.member("from", timeText(answer.range.from)).member("to", timeText(answer.range.to));
    json.member("resolution", answer.resolution).key("by").open('[');
    for (const std::string &name : by)
        json.value(name);
    json.close(']');
    json.member("step",
                answer.step ? std::optional(std::string(stepName(*answer.step))) : std::nullopt);
    json.member("total", answer.total).key("rows").open('[');
    for (const Row &row : answer.rows) {
        json.open('{');
        if (answer.step)
            json.member("start", timeText(row.start));
        if (byDevice)
            writeDevice(json, view.present.directory, row.device);
        if (byApplication)
            writeApplication(json, view.present.directory, row.application);
        else if (byCategory)
            json.member("category", row.category);
        json.members(row.bytes).close('}');
    }
    json.close(']').key("others").open('{').member("count", answer.othersCount);
    json.members(answer.others).close('}');
    writeState(json, view, answer.range);
    return json.close('}').finish();
}

std::string nowJson(const View &view) {
    const Rates &rates = view.rates;
    const bool known = rates.milliseconds >= 0;
    JsonText json;
    json.open('{').member("schema", kSchema).member("sampled", timeOrNull(rates.sampled));
    json.member("seconds", known ? (rates.milliseconds + 500) / 1000 : 0);
    std::vector<std::pair<Pair, Bytes>> rows;
    if (known)
        rows.assign(rates.traffic.begin(), rates.traffic.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) {
        return a.second.total() > b.second.total();
    });
    Bytes total;
    for (const auto &[pair, bytes] : rows)
        total += bytes;
    json.key("total").open('{');
    writeRates(json, total, rates.milliseconds);
    json.close('}').key("rows").open('[');
    for (const auto &[pair, bytes] : rows) {
        json.open('{');
        writeDevice(json, view.present.directory, pair.device);
        writeApplication(json, view.present.directory, pair.application);
        writeRates(json, bytes, rates.milliseconds);
        json.close('}');
    }
    return json.close(']').close('}').finish();
}

std::string devicesJson(const View &view, const std::optional<Mac> &after) {
    std::map<Mac, const Device *> behind;
    for (const auto &[id, device] : view.present.directory.devices()) {
        if (!after || device.mac > *after)
            behind.emplace(device.mac, &device);
    }
    JsonText json;
    json.open('{').member("schema", kSchema).key("devices").open('[');
    std::optional<std::string> next;
    std::size_t written = 0;
    for (const auto &[mac, device] : behind) {
        if (written++ == kDevicesPerPage)
            break;
        json.open('{').member("mac", macText(mac)).member("name", device->name());
        json.member("own_name",
                    device->ownName.empty() ? std::nullopt : std::optional(device->ownName));
        json.member("first_seen", timeOrNull(device->firstSeen));
        json.member("last_seen", timeOrNull(device->lastSeen)).close('}');
        if (behind.size() > kDevicesPerPage)
            next = macText(mac);
    }
    return json.close(']').member("next", next).close('}').finish();
}

std::string quotasJson(const View &view) {
    JsonText json;
    writeHead(json, view);
    json.key("quotas").open('[');
    for (const Quota &quota : view.present.quotas)
        writeQuota(json, view, quota);
    json.close(']');
    writeState(json, view, {0, kLatest});
    return json.close('}').finish();
}

std::string stateJson(const View &view) {
    JsonText json;
    writeHead(json, view);
    json.member("devices", view.present.directory.devices().size());
    json.member("store_bytes", view.store.usedBytes());
    writeState(json, view, {0, kLatest});
    return json.close('}').finish();
}

std::optional<ExportedLines> exportLines(const View &view, Seconds from) {
    JsonText json;
    ExportedLines exported;
    Seconds latest = -1; // a slot may be in the store and, with what came since, in memory
    const auto take = [&](const Span &span, const auto &visitAll) {
        if (json.size() >= kLinesSize && span.from != latest) {
            exported.next = exported.next ? std::min(*exported.next, span.from) : span.from;
            return;
        }
        latest = span.from;
        visitAll([&](const Pair &pair, const Bytes &bytes) {
            writeLines(json, view, span, pair, bytes);
        });
    };
    for (const auto &[level, span] : finestSpans(view.present, view.store)) {
        const bool starts = span.from <= from && from < span.to;
        if (starts && level != Level::kSlot && view.store.periodAround(level, from))
            return std::nullopt;
        view.store.each(level, {std::max(span.from, from), span.to},
                        [&](const Span &period, PackedView packed) {
                            take(period, [&](const auto &write) { visitTraffic(packed, write); });
                        });
    }
    for (const auto &slot : view.present.slots) {
        if (slot.first >= from)
            take(periodAt(Level::kSlot, slot.first), [&](const auto &write) {
                for (const auto &[pair, bytes] : slot.second)
                    write(pair, bytes);
            });
    }
    exported.lines = json.takeLines();
    return exported;
}

} // namespace usage
