// Messages to an MQTT broker: how the gateway is, and what its devices used today, in the form that
// Home Assistant finds by itself.
#pragma once

#include "usage/history.h"
#include "usage/settings.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>

struct mosquitto;

namespace usage {

// By topic; all are retained by the broker.
using MessageTexts = std::map<std::string, std::string>;

// Everything that a broker should know at this moment.
MessageTexts messageTexts(const Present &present, const Store &store, const std::string &instance,
                          Seconds now);

class Messages {
  public:
    // Begins to connect, in the library's own thread, and goes on until it succeeds. Throws
    // std::runtime_error when it can't even begin.
    Messages(const MessageSettings &settings, const std::string &instance);
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;
    ~Messages();

    // True when a minute has passed or the broker is there anew: then update() is worth its work.
    [[nodiscard]] bool due(Seconds now) const;

    // Sends what has changed, and takes back what is no longer there.
    void update(const MessageTexts &texts, Seconds now);

  private:
    struct Close {
        void operator()(mosquitto *client) const;
    };

    bool publish(const std::string &topic, const std::string &text);

    std::string statusTopic_;
    std::unique_ptr<mosquitto, Close> client_;
    std::atomic<bool> connected_ = false; // anew: nothing was sent since
    MessageTexts sent_;
    Seconds sentAt_ = 0;
};

} // namespace usage
