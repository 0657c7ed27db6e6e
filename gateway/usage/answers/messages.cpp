#include "usage/answers/messages.h"

#include "usage/answers/query.h"
#include "usage/text.h"

#include <mosquitto.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace usage {
namespace {

using Json = nlohmann::ordered_json;

constexpr Seconds kEvery = 60;
constexpr int kKeepAlive = 60;      // seconds
constexpr unsigned kFirstRetry = 5; // seconds, doubled until
constexpr unsigned kSlowestRetry = 300;
constexpr std::size_t kMaxDevices = 128;
constexpr const char *kOnline = "online";
constexpr const char *kOffline = "offline";

std::string topicOf(const std::string &instance, const std::string &rest) {
    return "traffic-usage/" + instance + "/" + rest;
}

// What names a thing in topics and in Home Assistant: neither takes all characters.
std::string plainName(std::string text) {
    std::erase(text, ':');
    std::ranges::replace_if(
        text, [](unsigned char c) { return isalnum(c) == 0; }, '_');
    return text;
}

std::string dumped(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Two sensors that show a topic's down and up.
void addSensors(MessageTexts &texts, const std::string &instance, const std::string &key,
                const std::string &name, const std::string &topic) {
    const std::string id = "traffic_usage_" + plainName(instance) + "_" + key;
    for (const char *direction : {"down", "up"}) {
        const Json device{{"identifiers", {id}},
                          {"name", name},
                          {"manufacturer", "traffic-usage"},
                          {"model", "Device on " + instance}};
        const Json sensor{{"name", std::string("Today ") + direction},
                          {"unique_id", id + "_" + direction},
                          {"state_topic", topic},
                          {"value_template", std::string("{{ value_json.") + direction + " }}"},
                          {"unit_of_measurement", "B"},
                          {"device_class", "data_size"},
                          {"state_class", "total_increasing"},
                          {"availability_topic", topicOf(instance, "status")},
                          {"device", device}};
        texts["homeassistant/sensor/" + id + "/" + direction + "/config"] = dumped(sensor);
    }
}

} // namespace

MessageTexts messageTexts(const Present &present, const Store &store, const std::string &instance,
                          Seconds now) {
    Question question;
    question.range = untilNow(periodAt(Level::kDay, now).from, now);
    question.byDevice = true;
    question.top = kMaxDevices;
    const Answer answer = ask(present, store, question);
    MessageTexts texts;
    const auto add = [&](const std::string &key, const std::string &name, const Bytes &bytes) {
        const std::string topic = topicOf(instance, "today/" + key);
        texts[topic] = dumped({{"name", name}, {"down", bytes.down}, {"up", bytes.up}});
        addSensors(texts, instance, key, name, topic);
    };
    add("all", "All devices of " + instance, answer.total);
    for (const Row &row : answer.rows)
        if (const Device *device = present.directory.find(row.device))
            add(plainName(macText(device->mac)), device->name(), row.bytes);
    return texts;
}

void Messages::Close::operator()(mosquitto *client) const {
    mosquitto_disconnect(client);
    mosquitto_loop_stop(client, false);
    mosquitto_destroy(client);
    mosquitto_lib_cleanup();
}

Messages::Messages(const MessageSettings &settings, const std::string &instance)
    : statusTopic_(topicOf(instance, "status")) {
    mosquitto_lib_init();
    client_.reset(mosquitto_new(nullptr, true, this));
    if (!client_)
        throw std::runtime_error("no memory for messages");
    mosquitto *client = client_.get();
    mosquitto_connect_callback_set(client, [](mosquitto *, void *self, int refused) {
        static_cast<Messages *>(self)->connected_ = refused == 0;
    });
    mosquitto_will_set(client, statusTopic_.c_str(), 7, kOffline, 1, true);
    if (!settings.user.empty())
        mosquitto_username_pw_set(client, settings.user.c_str(), settings.password.c_str());
    mosquitto_reconnect_delay_set(client, kFirstRetry, kSlowestRetry, true);
    mosquitto_connect_async(client, settings.host.c_str(), settings.port, kKeepAlive);
    if (mosquitto_loop_start(client) != MOSQ_ERR_SUCCESS)
        throw std::runtime_error("no thread for messages");
}

Messages::~Messages() {
    publish(statusTopic_, kOffline);
}

bool Messages::publish(const std::string &topic, const std::string &text) {
    return mosquitto_publish(client_.get(), nullptr, topic.c_str(), static_cast<int>(text.size()),
                             text.data(), 0, true) == MOSQ_ERR_SUCCESS;
}

bool Messages::due(Seconds now) const {
    return connected_ || now >= sentAt_ + kEvery || now < sentAt_;
}

void Messages::update(const MessageTexts &texts, Seconds now) {
    sentAt_ = now;
    if (connected_.exchange(false)) {
        sent_.clear();
        publish(statusTopic_, kOnline);
    }
    for (const auto &[topic, text] : texts) {
        const auto known = sent_.find(topic);
        if ((known == sent_.end() || known->second != text) && publish(topic, text))
            sent_[topic] = text;
    }
    std::erase_if(sent_, [&](const auto &one) {
        return !texts.contains(one.first) && publish(one.first, "");
    });
}

} // namespace usage
