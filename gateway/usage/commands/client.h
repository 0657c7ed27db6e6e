// The commands' side of the API.
#pragma once

#include "usage/answers/question.h"
#include "usage/http/http.h"
#include "usage/instance.h"

#include <memory>

namespace usage {

// Answers requests: a service that runs, or the store alone.
class Service {
  public:
    Service() = default;
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;
    virtual ~Service() = default;

    // Throws std::runtime_error when there is no answer at all.
    virtual HttpReply ask(const HttpRequest &request) = 0;

    // The body of a reply with status 200; throws UsageError for a bad parameter,
    // std::runtime_error for everything else that is refused.
    HttpReply get(const std::string &path, const Parameters &parameters = {});
    HttpReply post(const std::string &path, const std::string &body);
};

// The service of that place; when none runs there its store, to read, and one line on standard
// error that says what is missing then. Throws std::runtime_error when there is neither.
std::unique_ptr<Service> connectTo(const Place &place);

} // namespace usage
