#include "usage/answers/metrics.h"

#include "usage/text.h"

#include <optional>
#include <set>

namespace usage {
namespace {

constexpr std::size_t kMaxSeries = 2000;
constexpr const char *kOther = "other";

std::string quoted(std::string_view value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '\\' || c == '"')
            text += '\\';
        text += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return text + '"';
}

// One metric: its head, then its samples.
class Family {
  public:
    Family(std::string &text, const char *name, const char *type, const char *help)
        : text_(text), name_(name) {
        text_ +=
            std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    void sample(std::uint64_t value, const std::string &labels = "") {
        text_ +=
            name_ + (labels.empty() ? "" : "{" + labels + "}") + " " + std::to_string(value) + "\n";
    }

  private:
    std::string &text_;
    std::string name_;
};

void addGauge(std::string &text, const char *name, const char *help, std::uint64_t value) {
    Family(text, name, "gauge", help).sample(value);
}

// Nothing for what the engine doesn't tell.
void addLost(std::string &text, const char *name, const char *help,
             const std::optional<std::uint64_t> &value) {
    if (value)
        Family(text, name, "counter", help).sample(*value);
}

void addState(std::string &text, const Present &present, const Status &status) {
    addGauge(text, "traffic_usage_engine_up", "Whether the engine answered the last request.",
             status.engineAnswers ? 1 : 0);
    addGauge(text, "traffic_usage_store_writable", "Whether the store could be written last time.",
             status.store == StoreHealth::kFull ? 0 : 1);
    addGauge(text, "traffic_usage_last_sample_timestamp_seconds",
             "When the engine's counters were last read.",
             static_cast<std::uint64_t>(present.lastSample));
    addLost(text, "traffic_usage_lost_devices_total", "Devices that the engine had no room for.",
            status.lost.devices);
    addLost(text, "traffic_usage_lost_rows_total",
            "Pairs of device and application that the engine had no room for.", status.lost.rows);
    addLost(text, "traffic_usage_lost_packets_total", "Packets that the engine could not count.",
            status.lost.packets);
    addLost(text, "traffic_usage_lost_bytes_total", "Bytes that the engine could not count.",
            status.lost.bytes);
}

} // namespace

Bytes &Metrics::of(const Series &series) {
    const auto known = series_.find(series);
    if (known != series_.end())
        return known->second;
    return series_[series_.size() < kMaxSeries ? series : Series{kOther, kOther}];
}

void Metrics::count(const Present &present, const Rates &rates) {
    if (rates.number == counted_)
        return;
    counted_ = rates.number;
    for (const auto &[pair, bytes] : rates.traffic) {
        const Device *device = present.directory.find(pair.device);
        const ApplicationName *application = present.directory.application(pair.application);
        of({device == nullptr ? kOther : macText(device->mac),
            application == nullptr ? kOther : application->category}) += bytes;
    }
}

std::string Metrics::text(const Present &present, const Status &status) const {
    std::string text;
    std::set<std::string> macs;
    Family bytes(text, "traffic_usage_bytes_total", "counter",
                 "Bytes of a device, as seen from it, since the service started.");
    for (const auto &[series, sum] : series_) {
        macs.insert(series.first);
        const std::string labels =
            "mac=" + quoted(series.first) + ",category=" + quoted(series.second) + ",direction=";
        bytes.sample(sum.down, labels + "\"down\"");
        bytes.sample(sum.up, labels + "\"up\"");
    }
    Family names(text, "traffic_usage_device_info", "gauge", "The name of a device; always 1.");
    for (const std::string &mac : macs) {
        const auto address = parseMac(mac);
        const Device *device = address ? present.directory.find(*address) : nullptr;
        names.sample(1, "mac=" + quoted(mac) + ",name=" + quoted(device ? device->name() : mac));
    }
    addState(text, present, status);
    return text;
}

} // namespace usage
