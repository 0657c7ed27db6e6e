#include "engine/scenario/scenario.h"

#include "engine/database_files.h"
#include "engine/requests.h"
#include "engine/scenario/scenario_replies.h"

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

namespace idpfwd {
namespace {

constexpr std::uint32_t kMaxUid = 255;
constexpr std::size_t kMaxApplications = 65536;

// How long steps by time may keep the engine from everything else when they cannot keep their pace.
constexpr auto kLongestTurn = std::chrono::milliseconds(100);

std::uint32_t moment() {
    return static_cast<std::uint32_t>(time(nullptr));
}

std::string generatedName(std::uint64_t number) {
    return "client-" + std::to_string(number);
}

// Identifiers wrap after the last one, and none of them is 0.
std::uint16_t generatedApplication(std::uint64_t number) {
    return static_cast<std::uint16_t>((number + kMaxApplications - 2) % (kMaxApplications - 1) + 1);
}

void add(devid_app_rate_entry &row, const Traffic &traffic) {
    row.down_accl_byte += traffic.down_bytes;
    row.up_accl_byte += traffic.up_bytes;
    row.down_accl_pkt += traffic.down_packets;
    row.up_accl_pkt += traffic.up_packets;
}

void set(devid_app_rate_entry &row, const Traffic &traffic) {
    row.down_accl_byte = traffic.down_bytes;
    row.up_accl_byte = traffic.up_bytes;
    row.down_accl_pkt = traffic.down_packets;
    row.up_accl_pkt = traffic.up_packets;
}

DatabaseTexts databaseTexts(const ScenarioScript &script) {
    DatabaseTexts texts;
    for (const ApplicationName &known : script.applications)
        texts.addApplication(known.cat_id, known.app_id, known.behaviour, known.name);
    for (const auto &[id, name] : script.categories)
        texts.addCategory(id, name);
    for (const auto &[key, device] : script.devices)
        texts.addDevice(device.ids, device.names);
    return texts;
}

} // namespace

Scenario::Scenario(ScenarioScript script) : script_(std::move(script)) {
    work();
}

bool Scenario::waitsForRequest() const {
    const Step &step = script_.steps[step_];
    return repetition_ > 0 ? step.everyRequests != 0 : step.trigger == Trigger::kRequest;
}

std::uint64_t Scenario::dueRequest() const {
    const Step &step = script_.steps[step_];
    return repetition_ > 0 ? lastRequest_ + step.everyRequests : step.request;
}

Scenario::Clock::time_point Scenario::dueTime() const {
    const Step &step = script_.steps[step_];
    if (repetition_ > 0)
        return lastBegin_ + std::chrono::milliseconds(step.everyMilliseconds);
    return (step.trigger == Trigger::kAfter ? lastBegin_ : start_) +
           std::chrono::milliseconds(step.milliseconds);
}

bool Scenario::due() const {
    if (finished())
        return false;
    return waitsForRequest() ? requests_ >= dueRequest() : Clock::now() >= dueTime();
}

int Scenario::timeout() const {
    if (finished() || waitsForRequest())
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(dueTime() - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3600 * 1000));
}

void Scenario::work() {
    if (!due())
        return;
    const auto turnEnds = Clock::now() + kLongestTurn;
    do
        begin();
    while (due() && (waitsForRequest() || Clock::now() < turnEnds));
    std::vector<devid_user_entry> records;
    records.reserve(users_.size());
    for (const User &user : users_)
        records.push_back(user.record);
    tables.replace(std::move(records), rows_.all());
}

// Times are kept as planned, so that a late turn does not delay all that follows.
void Scenario::begin() {
    const Step &step = script_.steps[step_];
    lastBegin_ = waitsForRequest() ? Clock::now() : dueTime();
    lastRequest_ = requests_;
    apply(step);
    if (++repetition_ == step.repetitions) {
        repetition_ = 0;
        ++step_;
    }
}

void Scenario::apply(const Step &step) {
    const std::uint32_t now = moment();
    if (step.clear) {
        users_.clear();
        rows_.assign({});
        rules_.clear();
    }
    for (const UserChange &change : step.users)
        applyUser(change, now);
    if (step.generator)
        applyGenerator(*step.generator, now);
    for (const TrafficChange &change : step.traffic)
        applyTraffic(change, now);
    for (const ReplyRule &rule : step.replies)
        applyReply(rule);
}

Scenario::User *Scenario::findUser(const std::string &name) {
    const auto found = std::find_if(users_.begin(), users_.end(),
                                    [&](const User &user) { return user.name == name; });
    return found != users_.end() ? &*found : nullptr;
}

std::uint8_t Scenario::lowestFreeUid() const {
    for (std::uint32_t uid = 1; uid <= kMaxUid; ++uid) {
        if (std::none_of(users_.begin(), users_.end(),
                         [&](const User &user) { return user.record.uid == uid; }))
            return static_cast<std::uint8_t>(uid);
    }
    return 0;
}

void Scenario::removeUser(const std::string &name) {
    const User *user = findUser(name);
    if (user == nullptr)
        return;
    const std::uint8_t uid = user->record.uid;
    rows_.eraseIf([&](const devid_app_rate_entry &entry) { return entry.uid == uid; });
    std::erase_if(users_, [&](const User &known) { return known.name == name; });
}

void Scenario::applyUser(const UserChange &change, std::uint32_t now) {
    if (change.removed) {
        removeUser(change.name);
        return;
    }
    devid_user_entry record = change.record;
    User *known = findUser(change.name);
    record.uid = change.uid ? *change.uid : known != nullptr ? known->record.uid : lowestFreeUid();
    record.ts = change.seen.value_or(now);
    record.ts_create = known != nullptr ? known->record.ts_create : record.ts;
    if (known != nullptr)
        known->record = record;
    else
        users_.push_back({.name = change.name, .record = record});
}

devid_app_rate_entry &Scenario::row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    devid_app_rate_entry *known = rows_.find(uid, cat_id, app_id);
    return known != nullptr ? *known : rows_.add(uid, cat_id, app_id);
}

// A change for a user who is not there (any more) has no row to go to.
void Scenario::applyTraffic(const TrafficChange &change, std::uint32_t now) {
    std::uint8_t uid = change.uid;
    if (!change.user.empty()) {
        User *user = findUser(change.user);
        if (user == nullptr)
            return;
        uid = user->record.uid;
        if (change.verb != TrafficVerb::kRemove)
            user->record.ts = change.last.value_or(now);
    }
    if (change.verb == TrafficVerb::kRemove) {
        const std::uint32_t key = rowKey(uid, change.cat_id, change.app_id);
        rows_.eraseIf([&](const devid_app_rate_entry &entry) { return rowKey(entry) == key; });
        return;
    }
    devid_app_rate_entry &entry = row(uid, change.cat_id, change.app_id);
    if (change.verb == TrafficVerb::kSet)
        set(entry, change.traffic);
    else
        add(entry, change.traffic);
    entry.last_elapsed_ts = change.last.value_or(now);
    entry.available = change.available;
}

// What the repetition before this one had and this one has no more.
void Scenario::dropShiftedOut(const Generator &generator) {
    const std::uint64_t before = 1 + (repetition_ - 1) * generator.userShift;
    for (std::uint64_t i = 0; i < std::min(generator.userShift, generator.users); ++i)
        removeUser(generatedName(before + i));
    const std::uint64_t first =
        generator.firstApplication + (repetition_ - 1) * generator.applicationShift;
    std::bitset<kMaxApplications> gone;
    for (std::uint64_t i = 0; i < std::min(generator.applicationShift, generator.applications); ++i)
        gone.set(generatedApplication(first + i));
    std::bitset<kMaxUid + 1> generated;
    for (std::uint64_t i = 0; i < generator.users; ++i) {
        if (const User *user = findUser(generatedName(before + generator.userShift + i)))
            generated.set(user->record.uid);
    }
    rows_.eraseIf([&](const devid_app_rate_entry &entry) {
        return generated[entry.uid] && entry.cat_id == generator.category && gone[entry.app_id];
    });
}

std::uint8_t Scenario::generateUser(std::uint64_t number, std::uint32_t now) {
    UserChange change{
        .name = generatedName(number), .removed = false, .record = {}, .uid = {}, .seen = {}};
    change.name.copy(change.record.host_name, sizeof change.record.host_name);
    change.record.mac[0] = 0x02; // locally administered
    for (std::size_t byte = 0; byte < 4; ++byte)
        change.record.mac[2 + byte] = static_cast<std::uint8_t>(number >> (24 - 8 * byte));
    change.record.available = 1;
    applyUser(change, now);
    return findUser(change.name)->record.uid;
}

void Scenario::applyGenerator(const Generator &generator, std::uint32_t now) {
    if (repetition_ > 0)
        dropShiftedOut(generator);
    const std::uint64_t firstUser = 1 + repetition_ * generator.userShift;
    const std::uint64_t firstApp =
        generator.firstApplication + repetition_ * generator.applicationShift;
    for (std::uint64_t i = 0; i < generator.users; ++i) {
        const std::uint8_t uid = generateUser(firstUser + i, now);
        for (std::uint64_t app = 0; app < generator.applications; ++app) {
            devid_app_rate_entry &entry =
                row(uid, generator.category, generatedApplication(firstApp + app));
            add(entry, generator.traffic);
            entry.last_elapsed_ts = now;
            entry.available = 1;
        }
    }
}

void Scenario::applyReply(const ReplyRule &rule) {
    std::erase_if(
        rules_, [&](const ReplyRule &known) { return known.nr == rule.nr && known.op == rule.op; });
    if (!rule.removed)
        rules_.push_back(rule);
}

std::optional<Reply> Scenario::answer(const Request &request) {
    if (asksForUsers(request)) {
        ++requests_;
        work();
    }
    const auto rule = std::find_if(rules_.begin(), rules_.end(), [&](const ReplyRule &known) {
        return known.nr == request.nr && known.op == request.op;
    });
    if (rule == rules_.end())
        return std::nullopt;
    return applyRule(*rule, tableReply(request, tables));
}

std::string Scenario::categoryName(std::uint8_t cat_id) const {
    const auto found = script_.categories.find(cat_id);
    return found != script_.categories.end() ? found->second : "";
}

std::string Scenario::applicationName(std::uint8_t cat_id, std::uint16_t app_id) const {
    for (const ApplicationName &known : script_.applications) {
        if (known.cat_id == cat_id && known.app_id == app_id)
            return known.name;
    }
    return "";
}

std::unique_ptr<Source> openScenario(const std::string &file, const std::string &databases,
                                     std::string &error) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in.is_open() || in.bad()) {
        error = file + ": " + strerror(errno);
        return nullptr;
    }
    try {
        ScenarioScript script = parseScenario(text);
        if (!writeDatabases(databases, databaseTexts(script), error))
            return nullptr;
        return std::make_unique<Scenario>(std::move(script));
    } catch (const std::runtime_error &wrong) {
        error = file + ": " + wrong.what();
        return nullptr;
    }
}

} // namespace idpfwd
