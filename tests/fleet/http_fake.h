// A replica for tests: answers every request with what it was given, and keeps what came.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace fleet {

class HttpFake {
  public:
    // Each answer is a status and a text; the last one is repeated.
    struct Reply {
        int status;
        std::string text;
    };
    explicit HttpFake(std::vector<Reply> replies);
    ~HttpFake();
    HttpFake(const HttpFake &) = delete;
    HttpFake &operator=(const HttpFake &) = delete;

    [[nodiscard]] std::string address() const; // "http://127.0.0.1:40123"
    // Heads and bodies so far; only to be looked at between requests.
    [[nodiscard]] const std::vector<std::string> &requests() const { return requests_; }

  private:
    void serve();
    void answer(int connection);

    int listener_;
    int port_ = 0;
    std::vector<Reply> replies_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

// The whole answer to "GET path" at such a place.
std::string httpGet(int port, const std::string &path);

} // namespace fleet
