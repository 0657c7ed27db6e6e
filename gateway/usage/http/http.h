// The HTTP server: on a Unix socket, where commands may change things, and on TCP, where a page may
// look. It has no thread of its own: whoever owns it waits for its descriptor and lets it work.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace usage {

enum class Listener { kSocket, kTcp };

struct HttpRequest {
    Listener listener = Listener::kSocket;
    std::string method;
    std::string path;                                            // without the query string
    std::vector<std::pair<std::string, std::string>> parameters; // decoded, as they came
    std::string body;                                            // bounded by the server
};

struct HttpReply {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers; // beside the type and the length
};

// Answers a request that is well-formed and allowed. What it throws becomes a 500.
using HttpHandler = std::function<HttpReply(const HttpRequest &)>;

struct HttpOptions {
    std::string socketPath; // made with mode 0660; what lies there from an earlier run is replaced
    std::string listen;     // ADDRESS:PORT, an IPv6 address in brackets, or "none"
    std::string passwordHash; // of crypt(3); "" asks for no password
};

class HttpServer {
  public:
    // Listens. Throws std::runtime_error, with the reason, when it can't.
    HttpServer(HttpOptions options, HttpHandler handler);
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;
    ~HttpServer();

    // An epoll descriptor that is readable when there is work.
    [[nodiscard]] int descriptor() const;

    // The longest time in milliseconds after which there is work in any case; -1 for none.
    [[nodiscard]] int timeout() const;

    // Takes and answers what is there, without waiting.
    void work();

  private:
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

} // namespace usage
