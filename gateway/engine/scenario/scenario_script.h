// A scenario file, checked and ready to be played.
#pragma once

#include "engine/database_files.h"
#include "engine/tables.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace idpfwd {

// Replaces a user's record, or takes the user away with its rows.
struct UserChange {
    std::string name;
    bool removed = false;
    devid_user_entry record{};         // without time stamps
    std::optional<std::uint8_t> uid;   // else the lowest free one, or the one it has
    std::optional<std::uint32_t> seen; // else the moment of the change
};

enum class TrafficVerb { kSet, kAdd, kRemove };

// Changes one row of the application table.
struct TrafficChange {
    TrafficVerb verb = TrafficVerb::kSet;
    std::string user; // "" when the uid is given
    std::uint8_t uid = 0;
    std::uint8_t cat_id = 0;
    std::uint16_t app_id = 0;
    Traffic traffic;
    std::optional<std::uint32_t> last; // else the moment of the change
    std::uint32_t available = 1;
};

// Many devices with the same applications; with shifts, other ones at each repetition.
struct Generator {
    std::uint32_t users = 0;
    std::uint32_t applications = 0;
    std::uint8_t category = 1;
    std::uint32_t firstApplication = 1;
    std::uint32_t userShift = 0;
    std::uint32_t applicationShift = 0;
    Traffic traffic; // what every row grows by at each repetition
};

// What one request is answered with from now on.
struct ReplyRule {
    std::uint8_t nr = 0;
    std::uint8_t op = 0;
    bool removed = false; // answer as without a rule again
    int error = 0;
    std::optional<std::vector<std::uint8_t>> body; // else the tables' bytes, or none
    std::optional<std::uint32_t> cut;              // only so many bytes of it
    std::optional<std::uint32_t> reports;          // the length reported, else the true one
};

enum class Trigger { kAt, kAfter, kRequest };

struct Step {
    Trigger trigger = Trigger::kAt;
    std::int64_t milliseconds = 0; // since the start, or since the step before
    std::uint64_t request = 0;     // begins with this user-list request, counted from 1
    std::uint64_t repetitions = 1;
    std::int64_t everyMilliseconds = 0; // between repetitions, unless
    std::uint64_t everyRequests = 0;    // so many user-list requests
    bool clear = false;                 // forget all users, rows and reply rules first
    std::vector<UserChange> users;
    std::vector<TrafficChange> traffic;
    std::optional<Generator> generator;
    std::vector<ReplyRule> replies;
};

struct ApplicationName {
    std::uint8_t cat_id = 0;
    std::uint16_t app_id = 0;
    std::uint32_t behaviour = 0;
    std::string name;
};

struct DeviceType {
    devid_os_detail ids{};
    DatabaseTexts::DeviceNames names;
};

struct ScenarioScript {
    std::map<std::uint8_t, std::string> categories;
    std::vector<ApplicationName> applications;
    std::map<std::string, DeviceType> devices;
    std::vector<Step> steps;
};

// Throws std::runtime_error that says where and what is wrong.
ScenarioScript parseScenario(const std::string &text);

} // namespace idpfwd
