// What has to be there before the first router is let in.
#include "ingest/buffer.h"

#include <chrono>

namespace fleet {
namespace {

// One hour: a router that tries again after a lost acknowledgement is back long before.
constexpr std::int64_t kDeadWindow = 3600LL * 1'000'000'000;

constexpr std::int64_t kMostPending = 20'000;

void demand(natsStatus status, jsErrCode error, const char *what) {
    if (status != NATS_OK)
        throw BufferError(std::string(what) + ": " + natsStatus_GetText(status) + ", error " +
                          std::to_string(static_cast<int>(error)));
}

// Makes the stream, or gives the one that exists the limit of this configuration.
void addOrLimit(jsCtx *context, jsStreamConfig &wanted, const char *what) {
    jsStreamInfo *found = nullptr;
    jsErrCode error{};
    natsStatus status = js_GetStreamInfo(&found, context, wanted.Name, nullptr, &error);
    if (status == NATS_NOT_FOUND) {
        demand(js_AddStream(nullptr, context, &wanted, nullptr, &error), error, what);
        return;
    }
    demand(status, error, what);
    found->Config->MaxBytes = wanted.MaxBytes;
    found->Config->Discard = wanted.Discard;
    status = js_UpdateStream(nullptr, context, found->Config, nullptr, &error);
    jsStreamInfo_Destroy(found);
    demand(status, error, what);
}

} // namespace

// The server makes this stream when the first MQTT client comes; made here before, with the very
// settings that the server would choose, it is taken as it is.
void Buffer::setUpReports(const BufferLimits &limits) {
    const char *subjects[] = {"$MQTT.msgs.>"};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = kStream;
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Retention = js_InterestPolicy;
    config.Storage = js_FileStorage;
    config.Replicas = limits.copies;
    config.MaxBytes = limits.reports;
    // A full buffer refuses, and what it refuses stays in the routers' outboxes.
    config.Discard = js_DiscardNew;
    addOrLimit(stream_.get(), config, "the stream of reports");
}

void Buffer::setUpConsumer(const BufferLimits &limits) {
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = kConsumer;
    config.FilterSubject = kFilter;
    config.DeliverPolicy = js_DeliverAll;
    config.AckPolicy = js_AckExplicit;
    config.AckWait = std::chrono::nanoseconds(std::chrono::seconds(limits.ackWait)).count();
    config.MaxAckPending = kMostPending;
    config.Replicas = limits.copies;
    jsErrCode error{};
    jsConsumerInfo *found = nullptr;
    const natsStatus known =
        js_GetConsumerInfo(&found, stream_.get(), kStream, kConsumer, nullptr, &error);
    if (known == NATS_OK)
        jsConsumerInfo_Destroy(found);
    if (known == NATS_OK)
        demand(js_UpdateConsumer(nullptr, stream_.get(), kStream, &config, nullptr, &error), error,
               "the consumer");
    else
        demand(js_AddConsumer(nullptr, stream_.get(), kStream, &config, nullptr, &error), error,
               "the consumer");
}

void Buffer::setUpDead(const BufferLimits &limits) {
    const char *subjects[] = {kDeadSubjects};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = kDeadStream;
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Replicas = limits.copies;
    config.MaxBytes = limits.dead;
    config.Discard = js_DiscardNew; // full: bad reports wait in the buffer, which health tells
    config.Duplicates = kDeadWindow;
    addOrLimit(stream_.get(), config, "the stream of dead letters");
}

// Without a consumer the server acknowledges and keeps nothing, so it is made with the stream, and
// before anything else.
void Buffer::setUp(const BufferLimits &limits) {
    setUpReports(limits);
    setUpConsumer(limits);
    setUpDead(limits);
}

} // namespace fleet
