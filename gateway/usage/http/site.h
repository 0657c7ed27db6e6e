// All that is served at one address: the API, the page with its files, the metrics. And what goes
// out by itself: messages.
#pragma once

#include "usage/answers/api.h"
#include "usage/answers/messages.h"
#include "usage/answers/metrics.h"

#include <memory>

namespace usage {

class Site {
  public:
    // Both are to outlive it. Without a broker in the settings there are no messages.
    Site(Api &api, const History &history, std::string instance, const MessageSettings &settings);

    HttpReply handle(const HttpRequest &request);

    // To be called after each sample.
    void sampled(Seconds now);

  private:
    Api &api_;
    const History &history_;
    std::string instance_;
    Metrics metrics_;
    std::unique_ptr<Messages> messages_;
};

} // namespace usage
