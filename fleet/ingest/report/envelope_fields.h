// Members of a JSON object, each demanded with its type: what is missing or is something else is
// thrown as a Refusal. Internal to envelope.cpp.
#pragma once

#include "ingest/report/envelope.h"

#include <nlohmann/json.hpp>

namespace fleet {

class Fields {
  public:
    // The object, which must outlive this, and what to call it in a refusal.
    Fields(const nlohmann::json &object, const char *name);

    [[nodiscard]] bool has(const char *member) const { return object_.contains(member); }

    // A text of any bytes.
    [[nodiscard]] std::string text(const char *member) const;

    // A whole number, however it is written (12, 12.0, 1.2e1).
    [[nodiscard]] std::uint64_t number(const char *member) const;
    [[nodiscard]] std::int64_t signedNumber(const char *member) const;
    [[nodiscard]] Bytes bytes(const char *member) const;

    [[nodiscard]] const nlohmann::json &object(const char *member) const;
    [[nodiscard]] const nlohmann::json &array(const char *member) const;

  private:
    // A sign and a magnitude: all that a 64-bit column of either kind holds, and a little more.
    struct Whole {
        bool negative;
        std::uint64_t magnitude;
    };

    [[nodiscard]] const nlohmann::json &value(const char *member) const;
    [[nodiscard]] Whole whole(const char *member) const;
    [[nodiscard]] Whole wholeOfDouble(double value, const char *member) const;
    [[nodiscard]] std::int64_t signedOf(Whole whole, const char *member) const;
    [[nodiscard]] Refusal refusal(Reason reason, const char *member, const char *text) const;

    const nlohmann::json &object_;
    const char *name_;
};

} // namespace fleet
