#include "engine/scenario/json_fields.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace idpfwd {
namespace {

// Above this a JSON number is no longer exact: such counters are written as texts.
constexpr double kExact = 9007199254740992.0;

constexpr double kMaxSeconds = 1e9;

std::optional<std::uint64_t> wholeNumber(const cJSON *item) {
    if (cJSON_IsNumber(item)) {
        const double value = item->valuedouble;
        const bool whole = value >= 0 && value <= kExact && std::floor(value) == value;
        return whole ? std::optional(static_cast<std::uint64_t>(value)) : std::nullopt;
    }
    if (!cJSON_IsString(item))
        return std::nullopt;
    const std::string text = item->valuestring;
    std::uint64_t value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    if (parsed.ec != std::errc{} || parsed.ptr != text.data() + text.size())
        return std::nullopt;
    return value;
}

} // namespace

Json parseJson(const std::string &text) {
    const char *end = text.data();
    Json document(cJSON_ParseWithOpts(text.c_str(), &end, 1));
    if (document == nullptr) {
        const auto line = 1 + std::count(text.data(), end, '\n');
        throw std::runtime_error("line " + std::to_string(line) + ": no valid JSON");
    }
    return document;
}

Fields::Fields(const cJSON *object, std::string where) : object_(object), where_(std::move(where)) {
    if (!cJSON_IsObject(object))
        fail("must be an object");
    std::set<std::string> names;
    for (const cJSON *item = object->child; item != nullptr; item = item->next) {
        if (!names.insert(item->string).second)
            fail(std::string("'") + item->string + "' is there twice");
    }
}

void Fields::fail(const std::string &what) const {
    throw std::runtime_error(where_.empty() ? what : where_ + ": " + what);
}

void Fields::finish() const {
    for (const cJSON *item = object_->child; item != nullptr; item = item->next) {
        if (!taken_.contains(item->string))
            fail(std::string("unknown member '") + item->string + "'");
    }
}

const cJSON *Fields::take(const char *name) {
    taken_.insert(name);
    return cJSON_GetObjectItemCaseSensitive(object_, name);
}

const cJSON *Fields::takeTyped(const char *name, cJSON_bool (*is)(const cJSON *),
                               const char *type) {
    const cJSON *item = take(name);
    if (item != nullptr && is(item) == 0)
        fail(std::string("'") + name + "' must be " + type);
    return item;
}

bool Fields::has(const char *name) const {
    return cJSON_GetObjectItemCaseSensitive(object_, name) != nullptr;
}

std::optional<std::string> Fields::text(const char *name) {
    const cJSON *item = takeTyped(name, cJSON_IsString, "a text");
    return item != nullptr ? std::optional<std::string>(item->valuestring) : std::nullopt;
}

std::optional<std::uint64_t> Fields::number(const char *name, std::uint64_t limit) {
    const cJSON *item = take(name);
    if (item == nullptr)
        return std::nullopt;
    const auto value = wholeNumber(item);
    if (!value || *value > limit)
        fail(std::string("'") + name + "' must be a whole number from 0 to " +
             std::to_string(limit));
    return value;
}

std::optional<bool> Fields::flag(const char *name) {
    const cJSON *item = takeTyped(name, cJSON_IsBool, "true or false");
    return item != nullptr ? std::optional<bool>(cJSON_IsTrue(item) != 0) : std::nullopt;
}

std::optional<std::int64_t> Fields::seconds(const char *name) {
    const cJSON *item = takeTyped(name, cJSON_IsNumber, "a number of seconds");
    if (item == nullptr)
        return std::nullopt;
    if (!(item->valuedouble >= 0 && item->valuedouble <= kMaxSeconds))
        fail(std::string("'") + name + "' must be from 0 to 1e9 seconds");
    return std::llround(item->valuedouble * 1000);
}

std::optional<Fields> Fields::object(const char *name) {
    const cJSON *item = take(name);
    if (item == nullptr)
        return std::nullopt;
    return Fields(item, (where_.empty() ? "" : where_ + ", ") + name);
}

void Fields::eachOf(const char *name, const std::function<void(Fields &)> &body) {
    const cJSON *list = takeTyped(name, cJSON_IsArray, "a list");
    int position = 0;
    for (const cJSON *item = list != nullptr ? list->child : nullptr; item != nullptr;
         item = item->next) {
        Fields fields(item, (where_.empty() ? "" : where_ + ", ") + name + " " +
                                std::to_string(++position));
        body(fields);
        fields.finish();
    }
}

void Fields::eachMember(const char *name,
                        const std::function<void(const std::string &, Fields *)> &body) {
    const auto members = object(name);
    if (!members)
        return;
    for (const cJSON *item = members->object_->child; item != nullptr; item = item->next) {
        if (cJSON_IsNull(item)) {
            body(item->string, nullptr);
            continue;
        }
        Fields fields(item, members->where_ + ", " + item->string);
        body(item->string, &fields);
        fields.finish();
    }
}

void Fields::eachText(const char *name,
                      const std::function<void(const std::string &, const std::string &)> &body) {
    const auto members = object(name);
    if (!members)
        return;
    for (const cJSON *item = members->object_->child; item != nullptr; item = item->next) {
        if (!cJSON_IsString(item))
            members->fail(std::string("'") + item->string + "' must be a text");
        body(item->string, item->valuestring);
    }
}

} // namespace idpfwd
