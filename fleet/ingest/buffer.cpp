#include "ingest/buffer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <openssl/evp.h>

namespace fleet {
namespace {

// Questions, of five seconds each.
constexpr int kMostUnanswered = 3;

void demand(natsStatus status, const char *what) {
    if (status != NATS_OK)
        throw BufferError(std::string(what) + ": " + natsStatus_GetText(status));
}

struct DestroyMessage {
    void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
};

struct DestroyOptions {
    void operator()(natsOptions *options) const { natsOptions_Destroy(options); }
};

// Topic and body, as 64 hexadecimal digits.
std::string fingerprint(const Message &message) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    const std::string text = std::string(message.subject()) + '\0' + std::string(message.body());
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
    std::string digits;
    for (unsigned i = 0; i < length; ++i) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02x", digest[i]);
        digits += pair;
    }
    return digits;
}

std::vector<std::string> split(const std::string &list) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t comma = std::min(list.find(',', begin), list.size());
        if (comma > begin)
            parts.push_back(list.substr(begin, comma - begin));
        begin = comma + 1;
    }
    return parts;
}

} // namespace

std::string_view Message::subject() const {
    return natsMsg_GetSubject(message_.get());
}

std::string_view Message::body() const {
    return {natsMsg_GetData(message_.get()),
            static_cast<std::size_t>(natsMsg_GetDataLength(message_.get()))};
}

std::int64_t Message::received() const {
    jsMsgMetaData *data = nullptr;
    demand(natsMsg_GetMetaData(&data, message_.get()), "a message that is not the stream's");
    const std::int64_t nanoseconds = data->Timestamp;
    jsMsgMetaData_Destroy(data);
    return nanoseconds / 1'000'000'000;
}

void Message::acknowledge() {
    natsMsg_Ack(message_.get(), nullptr);
}

void Message::inProgress() {
    natsMsg_InProgress(message_.get(), nullptr);
}

void Message::giveBack() {
    natsMsg_Nak(message_.get(), nullptr);
}

Buffer::Buffer(const BufferAddress &address) {
    natsOptions *made = nullptr;
    demand(natsOptions_Create(&made), "options");
    const std::unique_ptr<natsOptions, DestroyOptions> options(made);
    const std::vector<std::string> servers = split(address.servers);
    std::vector<const char *> list;
    list.reserve(servers.size());
    for (const std::string &server : servers)
        list.push_back(server.c_str());
    demand(natsOptions_SetServers(made, list.data(), static_cast<int>(list.size())),
           "the buffer's addresses");
    if (!address.user.empty())
        natsOptions_SetUserInfo(made, address.user.c_str(), address.password.c_str());
    if (!address.authority.empty())
        demand(natsOptions_LoadCATrustedCertificates(made, address.authority.c_str()),
               "the certificates to trust");
    natsOptions_SetName(made, "fleet-ingest");
    natsOptions_SetMaxReconnect(made, -1);
    natsOptions_SetReconnectWait(made, 500);
    natsOptions_SetReconnectJitter(made, 500, 1000);
    socket_.serve(made);
    natsConnection *connection = nullptr;
    demand(natsConnection_Connect(&connection, made), "the buffer can't be reached");
    connection_.reset(connection);
    jsOptions settings;
    jsOptions_Init(&settings);
    settings.Wait = 5000;
    jsCtx *context = nullptr;
    demand(natsConnection_JetStream(&context, connection, &settings), "the buffer's streams");
    stream_.reset(context);
}

Buffer::~Buffer() = default;

void Buffer::bind() {
    if (subscription_)
        return;
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = kStream;
    options.Consumer = kConsumer;
    options.ManualAck = true;
    natsSubscription *subscription = nullptr;
    jsErrCode error{};
    demand(js_PullSubscribe(&subscription, stream_.get(), kFilter, kConsumer, nullptr, &options,
                            &error),
           "the consumer 'ingest' can't be used (is fleet-ingest setup done?)");
    subscription_.reset(subscription, natsSubscription_Destroy);
}

std::vector<Message> Buffer::fetch(int most, std::chrono::milliseconds patience) {
    if (natsConnection_IsClosed(connection_.get()))
        throw std::runtime_error("the buffer refuses the login: are user and password right?");
    bind();
    natsMsgList list{};
    jsErrCode error{};
    const natsStatus status =
        natsSubscription_Fetch(&list, subscription_.get(), most, patience.count(), &error);
    std::vector<Message> messages;
    for (int i = 0; i < list.Count; ++i) {
        messages.emplace_back(list.Msgs[i], subscription_);
        list.Msgs[i] = nullptr; // ours now
    }
    natsMsgList_Destroy(&list);
    if (status != NATS_OK && status != NATS_TIMEOUT && messages.empty()) {
        subscription_.reset(); // bound anew next time: the consumer may have been made again
        throw BufferError(std::string("nothing can be fetched: ") + natsStatus_GetText(status));
    }
    return messages;
}

// A server that says nothing is left for another one; a stream without a leader says nothing
// either, and then nothing is lost by it.
void Buffer::answered(bool answered) {
    unanswered_ = answered ? 0 : unanswered_ + 1;
    if (unanswered_ < kMostUnanswered)
        return;
    unanswered_ = 0;
    socket_.hangUp();
}

std::optional<Backlog> Buffer::backlog() {
    jsConsumerInfo *info = nullptr;
    jsErrCode error{};
    const natsStatus status =
        js_GetConsumerInfo(&info, stream_.get(), kStream, kConsumer, nullptr, &error);
    answered(status != NATS_TIMEOUT);
    if (status == NATS_NOT_FOUND)
        return std::nullopt;
    demand(status, "the consumer's state");
    const Backlog backlog{info->NumPending, static_cast<std::uint64_t>(info->NumAckPending),
                          std::chrono::milliseconds(info->Config->AckWait / 1'000'000)};
    jsConsumerInfo_Destroy(info);
    return backlog;
}

void Buffer::bury(std::string_view reason, std::string_view text, const Message &message) {
    const std::string subject = "usage_dead." + std::string(reason);
    natsMsg *made = nullptr;
    demand(natsMsg_Create(&made, subject.c_str(), nullptr, message.body().data(),
                          static_cast<int>(message.body().size())),
           "a dead letter");
    const std::unique_ptr<natsMsg, DestroyMessage> letter(made);
    std::string line(text);
    for (char &c : line) {
        if (c < ' ' || c > '~') // headers are lines of plain text
            c = '?';
    }
    natsMsgHeader_Set(made, "Usage-Subject", std::string(message.subject()).c_str());
    natsMsgHeader_Set(made, "Usage-Received", std::to_string(message.received()).c_str());
    natsMsgHeader_Set(made, "Usage-Reason", line.c_str());
    const std::string id = fingerprint(message);
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = id.c_str();
    options.MaxWait = 5000;
    jsPubAck *taken = nullptr;
    jsErrCode error{};
    demand(js_PublishMsg(&taken, stream_.get(), made, &options, &error), "a dead letter");
    jsPubAck_Destroy(taken);
}

std::multimap<std::string, std::string> Buffer::letters() const {
    jsStreamInfo *info = nullptr;
    jsErrCode error{};
    demand(js_GetStreamInfo(&info, stream_.get(), kDeadStream, nullptr, &error), "dead letters");
    const jsStreamState state = info->State;
    jsStreamInfo_Destroy(info);
    std::multimap<std::string, std::string> letters;
    for (std::uint64_t i = state.FirstSeq; state.Msgs > 0 && i <= state.LastSeq; ++i) {
        natsMsg *found = nullptr;
        const natsStatus status = js_GetMsg(&found, stream_.get(), kDeadStream, i, nullptr, &error);
        if (status == NATS_NOT_FOUND) // one that somebody took out
            continue;
        demand(status, "a dead letter");
        const std::unique_ptr<natsMsg, DestroyMessage> letter(found);
        const std::string_view subject = natsMsg_GetSubject(found);
        letters.emplace(subject.substr(subject.find('.') + 1),
                        std::string(natsMsg_GetData(found),
                                    static_cast<std::size_t>(natsMsg_GetDataLength(found))));
    }
    return letters;
}

void Buffer::flush() {
    demand(natsConnection_FlushTimeout(connection_.get(), 5000), "flushing");
}

} // namespace fleet
