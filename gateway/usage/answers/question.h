// A question as people write it: parameters of a URL.
#pragma once

#include "usage/answers/query.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace usage {

using Parameters = std::vector<std::pair<std::string, std::string>>;

class BadParameter : public std::runtime_error {
  public:
    BadParameter(std::string parameter, const std::string &message)
        : std::runtime_error(message), parameter_(std::move(parameter)) {}
    [[nodiscard]] const std::string &parameter() const { return parameter_; }

  private:
    std::string parameter_;
};

struct AskedUsage {
    Question question;
    std::vector<std::string> by; // as asked, each name once
};

// from, to, by, step, device, application, category, sort, top; without from today, without to
// until now, without by by device. The three filters may come several times: any of them will do.
// Throws BadParameter.
AskedUsage parseQuestion(const Parameters &parameters, const Directory &directory, Seconds now);

// A value by its name; nothing when it isn't there. Throws BadParameter when it comes twice.
const std::string *valueOf(const Parameters &parameters, std::string_view name);

// Throws BadParameter for a name that is none of these.
void allowOnly(const Parameters &parameters, std::initializer_list<std::string_view> names);

} // namespace usage
