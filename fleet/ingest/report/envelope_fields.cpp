#include "ingest/report/envelope_fields.h"

#include <cmath>
#include <limits>

namespace fleet {
namespace {

using nlohmann::json;

constexpr double kTwoTo64 = 18446744073709551616.0;
constexpr std::uint64_t kTwoTo63 = std::uint64_t{1} << 63U;

} // namespace

Fields::Fields(const json &object, const char *name) : object_(object), name_(name) {
    if (!object.is_object())
        throw Refusal{Reason::kSchema, std::string(name) + " is no object"};
}

Refusal Fields::refusal(Reason reason, const char *member, const char *text) const {
    return {reason, std::string(member) + " of " + name_ + " " + text};
}

const json &Fields::value(const char *member) const {
    const auto found = object_.find(member);
    if (found == object_.end())
        throw refusal(Reason::kSchema, member, "is missing");
    return *found;
}

std::string Fields::text(const char *member) const {
    const json &found = value(member);
    if (!found.is_string())
        throw refusal(Reason::kSchema, member, "is no text");
    return found.get<std::string>();
}

Fields::Whole Fields::wholeOfDouble(double value, const char *member) const {
    if (std::fabs(value) >= kTwoTo64)
        throw refusal(Reason::kRange, member, "is above 2^64-1");
    if (std::trunc(value) != value)
        throw refusal(Reason::kSchema, member, "is no whole number");
    return {value < 0, static_cast<std::uint64_t>(std::fabs(value))};
}

Fields::Whole Fields::whole(const char *member) const {
    const json &found = value(member);
    if (found.is_number_unsigned())
        return {false, found.get<std::uint64_t>()};
    if (found.is_number_integer()) {
        const auto number = found.get<std::int64_t>();
        return {number < 0, number < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(number)
                                       : static_cast<std::uint64_t>(number)};
    }
    if (found.is_number_float())
        return wholeOfDouble(found.get<double>(), member);
    // The routers' JSON library writes null for a number that is not finite.
    if (found.is_null())
        throw refusal(Reason::kRange, member, "is not finite");
    throw refusal(Reason::kSchema, member, "is no number");
}

std::uint64_t Fields::number(const char *member) const {
    const Whole found = whole(member);
    if (found.negative && found.magnitude != 0)
        throw refusal(Reason::kRange, member, "is negative");
    return found.magnitude;
}

std::int64_t Fields::signedOf(Whole whole, const char *member) const {
    if (whole.magnitude > kTwoTo63 || (!whole.negative && whole.magnitude == kTwoTo63))
        throw refusal(Reason::kRange, member, "does not fit into 64 bits with a sign");
    return static_cast<std::int64_t>(whole.negative ? std::uint64_t{0} - whole.magnitude
                                                    : whole.magnitude);
}

std::int64_t Fields::signedNumber(const char *member) const {
    return signedOf(whole(member), member);
}

Bytes Fields::bytes(const char *member) const {
    const Whole found = whole(member);
    if (found.negative && found.magnitude != 0)
        return {.value = 0, .belowZero = signedOf(found, member)};
    return {.value = found.magnitude, .belowZero = 0};
}

const json &Fields::object(const char *member) const {
    const json &found = value(member);
    if (!found.is_object())
        throw refusal(Reason::kSchema, member, "is no object");
    return found;
}

const json &Fields::array(const char *member) const {
    const json &found = value(member);
    if (!found.is_array())
        throw refusal(Reason::kSchema, member, "is no array");
    return found;
}

} // namespace fleet
