#include "engine/scenario/scenario_script.h"

#include "engine/options.h"
#include "engine/scenario/json_fields.h"
#include "engine/scenario/scenario_replies.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <limits>

namespace idpfwd {
namespace {

constexpr std::uint32_t kMaxGeneratedUsers = 255;
constexpr std::uint32_t kMaxApplicationId = 65535;
constexpr std::uint32_t kFrameBytes = 1500; // how packets are made up where only bytes are given

// A name stands in a line of a database file.
std::string lineText(const Fields &fields, const std::string &name, bool quoted) {
    if (name.find_first_of(quoted ? "\n\"" : "\n") != std::string::npos)
        fields.fail("'" + name + "' has a character that the database file cannot hold");
    return name;
}

void readCategories(Fields &root, ScenarioScript &script) {
    root.eachText("categories", [&](const std::string &key, const std::string &name) {
        std::uint8_t id = 0;
        const char *end = key.data() + key.size();
        const auto parsed = std::from_chars(key.data(), end, id);
        if (parsed.ec != std::errc{} || parsed.ptr != end)
            root.fail("category '" + key + "' must be a number from 0 to 255");
        script.categories[id] = lineText(root, name, false);
    });
}

void readApplications(Fields &root, ScenarioScript &script) {
    root.eachMember("applications", [&](const std::string &name, Fields *fields) {
        if (fields == nullptr)
            root.fail("application '" + name + "' needs a category and an id");
        script.applications.push_back({.cat_id = fields->required<std::uint8_t>("category"),
                                       .app_id = fields->required<std::uint16_t>("id"),
                                       .behaviour = fields->numberOr<std::uint32_t>("behaviour", 0),
                                       .name = lineText(*fields, name, false)});
    });
}

// The identifiers that the fields name; the others stay.
void readIdentity(Fields &fields, devid_os_detail &ids) {
    ids.vendor_id = fields.numberOr("vendor_id", std::uint16_t{ids.vendor_id});
    ids.os_id = fields.numberOr("os_id", std::uint16_t{ids.os_id});
    ids.class_id = fields.numberOr("class_id", std::uint16_t{ids.class_id});
    ids.type_id = fields.numberOr("type_id", std::uint16_t{ids.type_id});
    ids.dev_id = fields.numberOr("dev_id", std::uint16_t{ids.dev_id});
    ids.family_id = fields.numberOr("family_id", std::uint16_t{ids.family_id});
}

void readDevices(Fields &root, ScenarioScript &script) {
    static constexpr std::array kNames = {"vendor", "os", "class", "type", "device", "family"};
    root.eachMember("devices", [&](const std::string &key, Fields *fields) {
        if (fields == nullptr)
            root.fail("device '" + key + "' must be an object");
        DeviceType &device = script.devices[key];
        readIdentity(*fields, device.ids);
        for (std::size_t i = 0; i < kNames.size(); ++i)
            device.names[i] = lineText(*fields, fields->text(kNames[i]).value_or(key), true);
    });
}

void readAddress(Fields &fields, const char *name, int family, void *target) {
    const auto text = fields.text(name);
    if (text && inet_pton(family, text->c_str(), target) != 1)
        fields.fail("'" + *text + "' is no address for '" + name + "'");
}

UserChange readUser(const ScenarioScript &script, const std::string &name, Fields *fields) {
    UserChange change{
        .name = name, .removed = fields == nullptr, .record = {}, .uid = {}, .seen = {}};
    if (fields == nullptr)
        return change;
    devid_user_entry &record = change.record;
    const auto mac = parseMac(fields->text("mac").value_or(""));
    if (!mac)
        fields->fail("needs 'mac' as aa:bb:cc:dd:ee:ff");
    std::copy(mac->begin(), mac->end(), record.mac);
    readAddress(*fields, "ip", AF_INET, record.ipv4);
    readAddress(*fields, "ipv6", AF_INET6, record.ipv6);
    const std::string host = fields->text("host_name").value_or(name);
    if (host.size() > sizeof record.host_name)
        fields->fail("a host name has at most 32 bytes");
    host.copy(record.host_name, sizeof record.host_name);
    if (const auto device = fields->text("device")) {
        const auto found = script.devices.find(*device);
        if (found == script.devices.end())
            fields->fail("device '" + *device + "' is not listed");
        record.os.detail = found->second.ids;
    }
    readIdentity(*fields, record.os.detail);
    if (const auto uid = fields->number("uid", 255))
        change.uid = static_cast<std::uint8_t>(*uid);
    if (const auto seen = fields->number("seen", std::numeric_limits<std::uint32_t>::max()))
        change.seen = static_cast<std::uint32_t>(*seen);
    record.available = fields->numberOr<std::uint32_t>("available", 1);
    return change;
}

Traffic readTraffic(Fields &fields) {
    const auto packets = [](std::uint64_t bytes) {
        const std::uint64_t frames = bytes / kFrameBytes + (bytes % kFrameBytes != 0 ? 1 : 0);
        return static_cast<std::uint32_t>(
            std::min<std::uint64_t>(frames, std::numeric_limits<std::uint32_t>::max()));
    };
    Traffic traffic;
    traffic.down_bytes = fields.numberOr<std::uint64_t>("down", 0);
    traffic.up_bytes = fields.numberOr<std::uint64_t>("up", 0);
    traffic.down_packets = fields.numberOr("down_packets", packets(traffic.down_bytes));
    traffic.up_packets = fields.numberOr("up_packets", packets(traffic.up_bytes));
    return traffic;
}

void readApplication(Fields &fields, const ScenarioScript &script, TrafficChange &change) {
    const auto name = fields.text("app");
    if (!name) {
        change.cat_id = fields.required<std::uint8_t>("category");
        change.app_id = fields.required<std::uint16_t>("id");
        return;
    }
    const auto found = std::find_if(script.applications.begin(), script.applications.end(),
                                    [&](const auto &known) { return known.name == *name; });
    if (found == script.applications.end())
        fields.fail("application '" + *name + "' is not listed");
    change.cat_id = found->cat_id;
    change.app_id = found->app_id;
}

void readTrafficList(Fields &step, const char *name, TrafficVerb verb, const ScenarioScript &script,
                     std::vector<TrafficChange> &changes) {
    step.eachOf(name, [&](Fields &fields) {
        TrafficChange change;
        change.verb = verb;
        change.user = fields.text("user").value_or("");
        if (change.user.empty())
            change.uid = fields.required<std::uint8_t>("uid");
        readApplication(fields, script, change);
        if (verb != TrafficVerb::kRemove) {
            change.traffic = readTraffic(fields);
            change.available = fields.numberOr<std::uint32_t>("available", 1);
            if (const auto last = fields.number("last", std::numeric_limits<std::uint32_t>::max()))
                change.last = static_cast<std::uint32_t>(*last);
        }
        changes.push_back(change);
    });
}

Generator readGenerator(Fields &fields) {
    const auto bounded = [&](const char *name, std::uint32_t limit, std::uint32_t fallback) {
        return static_cast<std::uint32_t>(fields.number(name, limit).value_or(fallback));
    };
    Generator generator{.users = bounded("users", kMaxGeneratedUsers, 1),
                        .applications = bounded("apps", kMaxApplicationId, 1),
                        .category = fields.numberOr<std::uint8_t>("category", 1),
                        .firstApplication = bounded("first_app", kMaxApplicationId, 1),
                        .userShift = bounded("user_shift", kMaxGeneratedUsers, 0),
                        .applicationShift = bounded("app_shift", kMaxApplicationId, 0),
                        .traffic = readTraffic(fields)};
    fields.finish();
    return generator;
}

void readTrigger(Fields &fields, Step &step) {
    if (fields.has("at") + fields.has("after") + fields.has("request") > 1)
        fields.fail("only one of 'at', 'after' and 'request' can be given");
    if (const auto at = fields.seconds("at"))
        step.milliseconds = *at;
    if (const auto after = fields.seconds("after")) {
        step.trigger = Trigger::kAfter;
        step.milliseconds = *after;
    }
    if (const auto request = fields.number("request", std::numeric_limits<std::uint64_t>::max())) {
        step.trigger = Trigger::kRequest;
        step.request = *request;
    }
}

void readRepetition(Fields &fields, Step &step) {
    auto repeat = fields.object("repeat");
    if (!repeat)
        return;
    step.repetitions = repeat->required<std::uint64_t>("times");
    const auto every = repeat->seconds("every");
    const auto requests =
        repeat->number("every_requests", std::numeric_limits<std::uint32_t>::max());
    if (every.has_value() == requests.has_value() || every.value_or(1) == 0 ||
        requests.value_or(1) == 0)
        repeat->fail("needs one of 'every' (seconds) and 'every_requests', above 0");
    if (step.repetitions == 0)
        repeat->fail("'times' must be above 0");
    step.everyMilliseconds = every.value_or(0);
    step.everyRequests = requests.value_or(0);
    repeat->finish();
}

Step readStep(Fields &fields, const ScenarioScript &script) {
    Step step;
    readTrigger(fields, step);
    readRepetition(fields, step);
    step.clear = fields.flag("clear").value_or(false);
    fields.eachMember("users", [&](const std::string &name, Fields *user) {
        step.users.push_back(readUser(script, name, user));
    });
    readTrafficList(fields, "set", TrafficVerb::kSet, script, step.traffic);
    readTrafficList(fields, "add", TrafficVerb::kAdd, script, step.traffic);
    readTrafficList(fields, "remove", TrafficVerb::kRemove, script, step.traffic);
    if (auto generator = fields.object("generate"))
        step.generator = readGenerator(*generator);
    fields.eachOf("replies", [&](Fields &reply) { step.replies.push_back(readReplyRule(reply)); });
    return step;
}

} // namespace

ScenarioScript parseScenario(const std::string &text) {
    const Json document = parseJson(text);
    Fields root(document.get(), "");
    ScenarioScript script;
    root.text("about"); // a remark for people
    readCategories(root, script);
    readApplications(root, script);
    readDevices(root, script);
    root.eachOf("steps", [&](Fields &step) { script.steps.push_back(readStep(step, script)); });
    root.finish();
    if (script.steps.empty())
        root.fail("needs 'steps'");
    return script;
}

} // namespace idpfwd
