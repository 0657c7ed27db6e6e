#include "ingest/health.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstring>
#include <microhttpd.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>

namespace fleet {
namespace {

MHD_Result send(MHD_Connection *connection, unsigned status, std::string text) {
    MHD_Response *response =
        MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, "Content-Type", "text/plain; charset=utf-8");
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

std::uint16_t parsePort(std::string_view text) {
    std::uint16_t port = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, port);
    return parsed.ec == std::errc{} && parsed.ptr == end ? port : std::uint16_t{0};
}

sockaddr_in parseAddress(const std::string &text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    const std::size_t colon = std::min(text.rfind(':'), text.size());
    const std::uint16_t port =
        parsePort(std::string_view(text).substr(std::min(colon + 1, text.size())));
    if (port == 0 || inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) != 1)
        throw std::runtime_error("'" + text + "' is no address like 127.0.0.1:9464");
    address.sin_port = htons(port);
    return address;
}

} // namespace

struct HealthServer::Server {
    Server(const Gauges &g, std::uint64_t most) : gauges(g), mostWaiting(most) {}
    ~Server() {
        if (daemon != nullptr)
            MHD_stop_daemon(daemon);
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    static MHD_Result answer(void *self, MHD_Connection *connection, const char *url,
                             const char *method, const char *, const char *, std::size_t *,
                             void **) {
        const auto &server = *static_cast<const Server *>(self);
        if (strcmp(method, "GET") != 0)
            return send(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET\n");
        if (strcmp(url, "/metrics") == 0)
            return send(connection, MHD_HTTP_OK, metricsText(server.gauges));
        if (strcmp(url, "/healthz") != 0)
            return send(connection, MHD_HTTP_NOT_FOUND, "there are /metrics and /healthz\n");
        const Health state = health(server.gauges, server.mostWaiting);
        return send(connection, state.good ? MHD_HTTP_OK : MHD_HTTP_SERVICE_UNAVAILABLE,
                    state.text);
    }

    const Gauges &gauges;
    std::uint64_t mostWaiting;
    MHD_Daemon *daemon = nullptr;
};

HealthServer::HealthServer(const std::string &address, const Gauges &gauges,
                           std::uint64_t mostWaiting)
    : server_(std::make_unique<Server>(gauges, mostWaiting)) {
    sockaddr_in place = parseAddress(address);
    server_->daemon = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD, 0, nullptr, nullptr, Server::answer, server_.get(),
        MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr *>(&place), MHD_OPTION_CONNECTION_LIMIT,
        16U, MHD_OPTION_CONNECTION_TIMEOUT, 10U, MHD_OPTION_END);
    if (server_->daemon == nullptr)
        throw std::runtime_error("nobody can listen at " + address);
}

HealthServer::~HealthServer() = default;

} // namespace fleet
