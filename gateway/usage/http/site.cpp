#include "usage/http/site.h"

#include "usage/page/page_files.h"

namespace usage {

Site::Site(Api &api, const History &history, std::string instance, const MessageSettings &settings)
    : api_(api), history_(history), instance_(std::move(instance)) {
    if (!settings.host.empty())
        messages_ = std::make_unique<Messages>(settings, instance_);
}

HttpReply Site::handle(const HttpRequest &request) {
    if (request.method == "GET") {
        if (request.path == "/metrics")
            return {.type = kMetricsType,
                    .body = metrics_.text(history_.present(), history_.status()),
                    .headers = {}};
        if (auto file = pageReply(request.path))
            return *std::move(file);
    }
    return api_.handle(request);
}

void Site::sampled(Seconds now) {
    metrics_.count(history_.present(), history_.rates());
    if (!messages_ || !messages_->due(now))
        return;
    try {
        messages_->update(messageTexts(history_.present(), history_.store(), instance_, now), now);
    } catch (const SqlError &) { // a damaged store is told to those who ask, and no reason to end
    }
}

} // namespace usage
