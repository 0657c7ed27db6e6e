#include "usage/http/http_channel.h"

#include "usage/http/http_rules.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace usage {
namespace {

constexpr std::size_t kMaxHead = 16384; // of a request: its line and its headers
constexpr std::size_t kMaxBody = 16384;
constexpr std::size_t kMaxReply = std::size_t{16} << 20U;
constexpr std::size_t kMaxOutstanding = 2 * kMaxReply;

// For each request, the wait for it and the reading of its reply included. Whoever takes longer is
// disconnected; when all places are taken, after the shorter span already.
constexpr auto kPatience = std::chrono::seconds(20);
constexpr auto kShortPatience = std::chrono::seconds(2);

std::string headerOf(MHD_Connection *connection, const char *name) {
    const char *value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

// A header that announces more than a request may bring.
bool announcesTooMuch(MHD_Connection *connection) {
    const std::string text = headerOf(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc::result_out_of_range || (error == std::errc{} && length > kMaxBody);
}

MHD_Result addParameter(void *parameters, MHD_ValueKind /*kind*/, const char *key,
                        std::size_t keySize, const char *value, std::size_t valueSize) {
    static_cast<decltype(HttpRequest::parameters) *>(parameters)
        ->emplace_back(std::string(key, keySize),
                       value == nullptr ? std::string() : std::string(value, valueSize));
    return MHD_YES;
}

// Whom a failed try is held against: an IPv4 address, or the network of an IPv6 one, within which
// everybody has as many addresses as they like.
std::string peerOf(MHD_Connection *connection) {
    const MHD_ConnectionInfo *info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (info == nullptr || info->client_addr == nullptr)
        return "";
    if (info->client_addr->sa_family == AF_INET) {
        const auto *four = reinterpret_cast<const sockaddr_in *>(info->client_addr);
        return {reinterpret_cast<const char *>(&four->sin_addr), sizeof four->sin_addr};
    }
    const auto *six = reinterpret_cast<const sockaddr_in6 *>(info->client_addr);
    const bool mapped = IN6_IS_ADDR_V4MAPPED(&six->sin6_addr);
    return {reinterpret_cast<const char *>(&six->sin6_addr), mapped ? 16U : 8U};
}

int milliseconds(std::chrono::steady_clock::duration wait) {
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    return static_cast<int>(std::clamp<decltype(whole)>(whole, 0, std::numeric_limits<int>::max()));
}

std::string machineName() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

// A reply's text, which lives until its reader has it.
struct Sent {
    std::string text;
    std::size_t *outstanding;
};

void forget(void *sent) {
    const std::unique_ptr<Sent> owned(static_cast<Sent *>(sent));
    *owned->outstanding -= owned->text.size();
}

const std::string *findHeader(const HttpReply &reply, std::string_view name) {
    for (const auto &[key, value] : reply.headers)
        if (key == name)
            return &value;
    return nullptr;
}

} // namespace

HttpChannel::HttpChannel(HttpAnswers &answers, Listener listener, int listening,
                         unsigned connections)
    : answers_(answers), listener_(listener), maxConnections_(connections),
      machine_(machineName()) {
    // Driven from outside: no flag for a thread. Its own clock for idle connections stays off.
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, onRequest, this,
        MHD_OPTION_LISTEN_SOCKET, listening, MHD_OPTION_CONNECTION_LIMIT, connections,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMaxHead, MHD_OPTION_STRICT_FOR_CLIENT, 0,
        MHD_OPTION_NOTIFY_CONNECTION, onConnection, this, MHD_OPTION_NOTIFY_COMPLETED, onCompleted,
        this, MHD_OPTION_END);
    if (daemon_ == nullptr) {
        close(listening);
        throw std::runtime_error("cannot start the HTTP server");
    }
}

HttpChannel::~HttpChannel() {
    resumeDue(Clock::time_point::max()); // the library doesn't stop before
    MHD_stop_daemon(daemon_);
}

int HttpChannel::descriptor() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

HttpChannel::Clock::duration HttpChannel::patience() const {
    return connections_.size() < maxConnections_ ? kPatience : kShortPatience;
}

int HttpChannel::timeout() const {
    MHD_UNSIGNED_LONG_LONG own = 0;
    if (MHD_get_timeout(daemon_, &own) == MHD_YES && own == 0)
        return 0;
    std::optional<Clock::time_point> next;
    if (!waiting_.empty())
        next = waiting_.begin()->first;
    if (!connections_.empty())
        next = std::min(next.value_or(Clock::time_point::max()),
                        connections_.front().since + patience());
    return next ? milliseconds(*next - Clock::now()) : -1;
}

void HttpChannel::work() {
    const Clock::time_point now = Clock::now();
    resumeDue(now);
    giveUpLate(now);
    MHD_run(daemon_);
}

void HttpChannel::resumeDue(Clock::time_point now) {
    while (!waiting_.empty() && waiting_.begin()->first <= now) {
        MHD_resume_connection(waiting_.begin()->second);
        waiting_.erase(waiting_.begin());
    }
}

// The library learns of it as of a caller that hung up, and takes the connection away.
void HttpChannel::giveUpLate(Clock::time_point now) {
    while (!connections_.empty() && connections_.front().since + patience() <= now) {
        shutdown(connections_.front().descriptor, SHUT_RDWR);
        connections_.front().since = now;
        connections_.splice(connections_.end(), connections_, connections_.begin());
    }
}

void HttpChannel::wait(MHD_Connection *connection, Clock::time_point until) {
    MHD_suspend_connection(connection);
    waiting_.emplace(until, connection);
}

void HttpChannel::onConnection(void *self, MHD_Connection *connection, void **context,
                               MHD_ConnectionNotificationCode code) {
    auto &channel = *static_cast<HttpChannel *>(self);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        const int descriptor =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        channel.connections_.push_back({descriptor, Clock::now()});
        *context = new Connections::iterator(std::prev(channel.connections_.end()));
        return;
    }
    const std::unique_ptr<Connections::iterator> place(
        static_cast<Connections::iterator *>(*context));
    channel.connections_.erase(*place);
}

void HttpChannel::onCompleted(void *self, MHD_Connection *connection, void **exchange,
                              MHD_RequestTerminationCode /*code*/) {
    delete static_cast<Exchange *>(*exchange);
    *exchange = nullptr;
    auto &channel = *static_cast<HttpChannel *>(self);
    const auto *context = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    const auto place = *static_cast<Connections::iterator *>(context->socket_context);
    place->since = Clock::now();
    channel.connections_.splice(channel.connections_.end(), channel.connections_, place);
}

// Called once for the head of a request, for each piece of its body, and when all of it is there.
MHD_Result HttpChannel::onRequest(void *self, MHD_Connection *connection, const char *url,
                                  const char *method, const char * /*version*/, const char *upload,
                                  std::size_t *uploadSize, void **exchange) {
    auto &channel = *static_cast<HttpChannel *>(self);
    if (*exchange == nullptr) {
        *exchange = new Exchange;
        return channel.begin(connection, method);
    }
    auto &taken = *static_cast<Exchange *>(*exchange);
    if (*uploadSize == 0)
        return channel.answer(connection, url, method, taken);
    taken.tooLarge = taken.tooLarge || taken.body.size() + *uploadSize > kMaxBody;
    if (!taken.tooLarge)
        taken.body.append(upload, *uploadSize);
    *uploadSize = 0;
    return MHD_YES;
}

// Refuses what a request's head shows already, before its body is read.
MHD_Result HttpChannel::begin(MHD_Connection *connection, const char *method) {
    const bool reads = strcmp(method, "GET") == 0 || strcmp(method, "HEAD") == 0;
    const bool tcp = listener_ == Listener::kTcp;
    if (tcp && !isOwnHost(headerOf(connection, MHD_HTTP_HEADER_HOST), machine_))
        return send(connection,
                    errorReply(403, "foreign_host", "", "this machine has no such name"));
    if (!reads && (tcp || strcmp(method, "POST") != 0)) {
        HttpReply reply = errorReply(405, "method_not_allowed", "",
                                     tcp ? "here one can only look" : "only GET and POST");
        reply.headers.emplace_back("Allow", tcp ? "GET, HEAD" : "GET, HEAD, POST");
        return send(connection, std::move(reply));
    }
    if (announcesTooMuch(connection))
        return send(connection, errorReply(413, "too_large", "", "the request is too large"));
    return MHD_YES;
}

MHD_Result HttpChannel::answer(MHD_Connection *connection, const char *url, const char *method,
                               Exchange &exchange) {
    if (exchange.tooLarge)
        return send(connection, errorReply(413, "too_large", "", "the request is too large"));
    if (listener_ == Listener::kTcp) {
        const auto [verdict, again] = answers_.gate.judge(
            peerOf(connection), headerOf(connection, MHD_HTTP_HEADER_AUTHORIZATION), Clock::now());
        if (verdict == PasswordGate::Verdict::kWait) {
            wait(connection, again);
            return MHD_YES;
        }
        if (verdict == PasswordGate::Verdict::kDenied) {
            HttpReply reply = errorReply(401, "password", "", "a password is needed");
            reply.headers.emplace_back("WWW-Authenticate",
                                       R"(Basic realm="traffic-usage", charset="UTF-8")");
            return send(connection, std::move(reply));
        }
    }
    return send(connection, ask(connection, url, method, exchange));
}

HttpReply HttpChannel::ask(MHD_Connection *connection, const char *url, const char *method,
                           Exchange &exchange) const {
    HttpRequest request{.listener = listener_,
                        .method = strcmp(method, "HEAD") == 0 ? "GET" : method,
                        .path = url,
                        .parameters = {},
                        .body = std::move(exchange.body)};
    MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, addParameter,
                                &request.parameters);
    try {
        return answers_.handler(request);
    } catch (const std::exception &error) {
        return errorReply(500, "internal", "", error.what());
    }
}

// What the client has already is not sent again, and who can't unzip gets it plain.
MHD_Result HttpChannel::send(MHD_Connection *connection, HttpReply reply) {
    const std::string *tag = findHeader(reply, "ETag");
    const bool unchanged =
        tag != nullptr && headerOf(connection, MHD_HTTP_HEADER_IF_NONE_MATCH) == *tag;
    const std::string *encoding = findHeader(reply, "Content-Encoding");
    if (encoding != nullptr &&
        !acceptsGzip(headerOf(connection, MHD_HTTP_HEADER_ACCEPT_ENCODING))) {
        reply.body = unzipped(reply.body);
        std::erase_if(reply.headers,
                      [](const auto &header) { return header.first == "Content-Encoding"; });
    }
    if (reply.body.size() > kMaxReply)
        reply = errorReply(400, "too_large", "", "the answer is too large: ask for less");
    else if (answers_.outstanding + reply.body.size() > kMaxOutstanding)
        reply = errorReply(503, "busy", "", "too many readers are slow: try again");
    return queue(connection, std::move(reply), unchanged);
}

MHD_Result HttpChannel::queue(MHD_Connection *connection, HttpReply reply, bool unchanged) {
    std::unique_ptr<Sent> sent(new Sent{.text = unchanged ? "" : std::move(reply.body),
                                        .outstanding = &answers_.outstanding});
    MHD_Response *response = MHD_create_response_from_buffer_with_free_callback_cls(
        sent->text.size(), sent->text.data(), forget, sent.get());
    if (response == nullptr)
        return MHD_NO;
    answers_.outstanding += sent.release()->text.size();
    for (const auto &[name, value] : policyHeaders())
        MHD_add_response_header(response, name, value);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.type.c_str());
    if (findHeader(reply, MHD_HTTP_HEADER_CACHE_CONTROL) == nullptr)
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    for (const auto &[name, value] : reply.headers)
        MHD_add_response_header(response, name.c_str(), value.c_str());
    const MHD_Result result = MHD_queue_response(
        connection, unchanged ? 304U : static_cast<unsigned>(reply.status), response);
    MHD_destroy_response(response);
    return result;
}

} // namespace usage
