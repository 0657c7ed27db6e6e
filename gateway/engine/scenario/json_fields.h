// Checked access to a JSON document: what is missing, of the wrong type, out of range or not known
// is an error that says where.
#pragma once

#include <cJSON.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace idpfwd {

struct JsonDeleter {
    void operator()(cJSON *document) const { cJSON_Delete(document); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// Parses a whole text; throws std::runtime_error with the line when it is no JSON.
Json parseJson(const std::string &text);

// The members of one object. Every reader takes its member; finish() refuses the ones left over.
class Fields {
  public:
    // where: what errors call the object, such as "step 2, users, laptop".
    Fields(const cJSON *object, std::string where);

    [[noreturn]] void fail(const std::string &what) const;
    void finish() const;

    std::optional<std::string> text(const char *name);
    // A whole number up to the limit: a JSON number, or its digits as a text.
    std::optional<std::uint64_t> number(const char *name, std::uint64_t limit);
    std::optional<bool> flag(const char *name);
    // Seconds, maybe with a fraction, as milliseconds.
    std::optional<std::int64_t> seconds(const char *name);

    // The whole number of this limit's type; the fallback without one.
    template <typename Number>
    Number numberOr(const char *name, Number fallback) {
        return static_cast<Number>(
            number(name, std::numeric_limits<Number>::max()).value_or(fallback));
    }
    // As above, but it must be there.
    template <typename Number>
    Number required(const char *name) {
        const auto value = number(name, std::numeric_limits<Number>::max());
        if (!value)
            fail(std::string("needs '") + name + "'");
        return static_cast<Number>(*value);
    }

    // The object of this name, if there is one.
    std::optional<Fields> object(const char *name);
    // Each element of an array of objects.
    void eachOf(const char *name, const std::function<void(Fields &)> &body);
    // Each member of an object: its name, and its fields or (for null) nothing.
    void eachMember(const char *name,
                    const std::function<void(const std::string &, Fields *)> &body);
    // Each member of an object of texts.
    void eachText(const char *name,
                  const std::function<void(const std::string &, const std::string &)> &body);
    [[nodiscard]] bool has(const char *name) const;

  private:
    const cJSON *take(const char *name);
    const cJSON *takeTyped(const char *name, cJSON_bool (*is)(const cJSON *), const char *type);

    const cJSON *object_;
    std::string where_;
    std::set<std::string> taken_;
};

} // namespace idpfwd
