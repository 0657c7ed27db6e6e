// One listener of the HTTP server with its connections.
#pragma once

#include "usage/http/http.h"
#include "usage/http/http_auth.h"

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <microhttpd.h>
#include <string>

namespace usage {

// What both listeners share.
struct HttpAnswers {
    HttpHandler handler;
    PasswordGate gate;
    std::size_t outstanding = 0; // bytes of replies that their readers haven't taken yet
};

class HttpChannel {
  public:
    // Takes the listening descriptor. Throws std::runtime_error.
    HttpChannel(HttpAnswers &answers, Listener listener, int listening, unsigned connections);
    HttpChannel(const HttpChannel &) = delete;
    HttpChannel &operator=(const HttpChannel &) = delete;
    ~HttpChannel();

    // As of HttpServer.
    [[nodiscard]] int descriptor() const;
    [[nodiscard]] int timeout() const;
    void work();

  private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        int descriptor;
        Clock::time_point since; // accepted, done with its last request, or disconnected
    };
    using Connections = std::list<Connection>;

    // One request while it is taken and answered.
    struct Exchange {
        bool begun = false;
        bool tooLarge = false;
        std::string body;
    };

    static MHD_Result onRequest(void *self, MHD_Connection *connection, const char *url,
                                const char *method, const char *version, const char *upload,
                                std::size_t *uploadSize, void **exchange);
    static void onCompleted(void *self, MHD_Connection *connection, void **exchange,
                            MHD_RequestTerminationCode code);
    static void onConnection(void *self, MHD_Connection *connection, void **context,
                             MHD_ConnectionNotificationCode code);

    MHD_Result begin(MHD_Connection *connection, const char *method);
    MHD_Result answer(MHD_Connection *connection, const char *url, const char *method,
                      Exchange &exchange);
    [[nodiscard]] HttpReply ask(MHD_Connection *connection, const char *url, const char *method,
                                Exchange &exchange) const;
    MHD_Result send(MHD_Connection *connection, HttpReply reply);
    MHD_Result queue(MHD_Connection *connection, HttpReply reply, bool unchanged);
    void wait(MHD_Connection *connection, Clock::time_point until);
    void resumeDue(Clock::time_point now);
    void giveUpLate(Clock::time_point now);
    [[nodiscard]] Clock::duration patience() const;

    HttpAnswers &answers_;
    Listener listener_;
    std::size_t maxConnections_;
    std::string machine_;
    Connections connections_; // in the order of since
    std::multimap<Clock::time_point, MHD_Connection *> waiting_;
    MHD_Daemon *daemon_ = nullptr;
};

} // namespace usage
