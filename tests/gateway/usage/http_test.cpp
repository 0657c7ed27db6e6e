#include "http_rig.h"

#include "usage/http/http_rules.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <zlib.h>

namespace {
std::int64_t passedSeconds = 0;
}

// What the clocks of the C++ library and of libmicrohttpd read.
extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, now);
    now->tv_sec += passedSeconds;
    return static_cast<int>(result);
}

namespace usage {

using testing::HasSubstr;
using testing::Not;

void passTime(std::chrono::seconds span) {
    passedSeconds += span.count();
}

namespace {

HttpReply echo(const HttpRequest &request) {
    std::string told = request.method + " " + request.path;
    for (const auto &[name, value] : request.parameters)
        told += " " + name + "=" + value;
    return {.status = 200, .type = "text/plain", .body = told + " " + request.body, .headers = {}};
}

std::string basic(const char *base64) {
    return std::string("Authorization: Basic ") + base64 + "\r\n";
}

TEST_F(HttpTest, AnswersBothListenersWithDecodedParametersAndPolicyHeaders) {
    start(echo);
    const std::string reply = drain(client(get("/api/v1/usage?by=device%2Capplication&top=5")));
    EXPECT_THAT(reply, HasSubstr("GET /api/v1/usage by=device,application top=5"));
    EXPECT_THAT(reply, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'; "
                                 "style-src 'self'; img-src 'self'; connect-src 'self'\r\n"));
    EXPECT_THAT(reply, HasSubstr("X-Content-Type-Options: nosniff"));
    EXPECT_THAT(reply, HasSubstr("Cache-Control: no-store"));
    EXPECT_THAT(reply, Not(HasSubstr("Access-Control")));
    EXPECT_THAT(drain(socketClient(post("{}"))), HasSubstr("POST /api/v1/commit {}"));
    struct stat made {};
    ASSERT_EQ(stat(socketPath().c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0777U, 0660U);
}

TEST_F(HttpTest, OnTcpOneCanOnlyLookAndOnlyByAnOwnName) {
    start(echo);
    for (const char *host : {"evil.example", "localhost.evil.example", "evil.example:80", "",
                             "127.0.0.1.evil.example", "[::1", "localhost:80x"})
        EXPECT_EQ(status(drain(client(get("/", "", host)))), 403) << host;
    for (const char *host :
         {"127.0.0.1", "LOCALHOST:8080", "[::1]:8080", "192.0.2.7", "localhost."})
        EXPECT_EQ(status(drain(client(get("/", "", host)))), 200) << host;
    EXPECT_EQ(status(drain(client(post("{}")))), 405);
    EXPECT_EQ(status(drain(client("OPTIONS / HTTP/1.1\r\nHost: localhost\r\n"
                                  "Connection: close\r\n\r\n"))),
              405);
    EXPECT_EQ(status(drain(socketClient("DELETE / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                                        "\r\n"))),
              405);
}

TEST_F(HttpTest, RefusesWhatIsTooLargeAndGoesOn) {
    start([](const HttpRequest &request) -> HttpReply {
        if (request.path == "/huge")
            return {.body = std::string(20'000'000, 'x'), .headers = {}};
        if (request.path == "/throws")
            throw std::runtime_error("a \xff reason");
        return {.body = "fine", .headers = {}};
    });
    EXPECT_EQ(status(drain(socketClient(post(std::string(16384, 'x'))))), 200);
    EXPECT_EQ(status(drain(socketClient(post(std::string(16385, 'x'))))), 413);
    EXPECT_EQ(status(drain(client("GET / HTTP/1.1\r\nHost: localhost\r\n"
                                  "Content-Length: 99999999999999999999\r\n\r\n"))),
              413);
    const std::string chunks = "POST / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                               "Transfer-Encoding: chunked\r\n\r\n5000\r\n" +
                               std::string(0x5000, 'x') + "\r\n0\r\n\r\n";
    EXPECT_EQ(status(drain(socketClient(chunks))), 413);
    EXPECT_NE(status(drain(client(get("/" + std::string(100'000, 'x'))))), 200);
    EXPECT_EQ(status(drain(client(get("/huge")))), 400);
    EXPECT_EQ(status(drain(client(get("/throws")))), 500);
    EXPECT_NE(status(drain(client("\r\n\x01\x02garbage\r\n\r\n"))), 200);
    EXPECT_EQ(status(drain(client(get("/")))), 200);
}

TEST_F(HttpTest, DisconnectsWhoIsSlowSoonerWhenAllPlacesAreTaken) {
    start(echo);
    const int slow = client("GET / HT");
    passTime(std::chrono::seconds(19));
    turn();
    put(slow, "TP/1.1\r\n"); // a byte now and then doesn't help
    passTime(std::chrono::seconds(2));
    EXPECT_EQ(drain(slow), "");

    std::vector<int> idle(300);
    for (int &descriptor : idle)
        descriptor = client("");
    const int late = client(get("/late"));
    for (int round = 0; round < 8; ++round) {
        for (int accepted = 0; accepted < 30; ++accepted)
            turn(1);
        passTime(std::chrono::seconds(3));
    }
    EXPECT_THAT(drain(late), HasSubstr("GET /late"));
    for (const int descriptor : idle)
        close(descriptor);
    for (int settle = 0; settle < 30; ++settle)
        turn(1);
    pollfd watched{.fd = server_->descriptor(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&watched, 1, 0), 0) << "an idle server calls for work";
    EXPECT_NE(server_->timeout(), 0);
}

TEST_F(HttpTest, AsksForThePasswordOnTcpAndDelaysWhoFails) {
    start(echo, hashOf("secret"));
    const std::string refused = drain(client(get("/")));
    EXPECT_EQ(status(refused), 401);
    EXPECT_THAT(refused, HasSubstr("WWW-Authenticate: Basic realm="));
    EXPECT_EQ(status(drain(client(get("/", basic("bWU6c2VjcmV0"))))), 200); // me:secret
    EXPECT_EQ(status(drain(client(get("/", basic("bWU6U2VjcmV0"))))), 401); // me:Secret
    const int again = client(get("/", basic("bWU6c2VjcmVUIQ==")));          // me:secreT!
    EXPECT_EQ(status(drain(client(get("/", basic("bWU6c2VjcmV0"))))), 200);
    for (int moment = 0; moment < 3; ++moment)
        turn();
    char byte = 0;
    EXPECT_EQ(recv(again, &byte, 1, MSG_DONTWAIT), -1) << "the next try was not delayed";
    passTime(std::chrono::seconds(1));
    EXPECT_EQ(status(drain(again)), 401);
    EXPECT_EQ(status(drain(socketClient(get("/")))), 200);
    const int unanswered = client(get("/", basic("bWU6bm8=")));
    turn();
    server_.reset(); // while a request waits
    close(unanswered);
}

TEST_F(HttpTest, SendsFilesZippedOrPlainAndOnlyWhenTheyHaveChanged) {
    const std::string zipped("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xcb\x48\xcd\xc9\xc9\x07\x00"
                             "\x86\xa6\x10\x36\x05\x00\x00\x00",
                             25); // hello
    start([&](const HttpRequest &) -> HttpReply {
        return {.type = "text/css",
                .body = zipped,
                .headers = {{"ETag", "\"1\""}, {"Content-Encoding", "gzip"}}};
    });
    EXPECT_THAT(drain(client(get("/", "Accept-Encoding: br, gzip\r\n"))), HasSubstr(zipped));
    for (const char *plain : {"", "Accept-Encoding: gzip;q=0\r\n", "Accept-Encoding: br\r\n"})
        EXPECT_THAT(drain(client(get("/", plain))), HasSubstr("\r\n\r\nhello")) << plain;
    const std::string unchanged = drain(client(get("/", "If-None-Match: \"1\"\r\n")));
    EXPECT_EQ(status(unchanged), 304);
    EXPECT_THAT(unchanged, Not(HasSubstr("hello")));
    EXPECT_THROW(unzipped("no gzip"), std::runtime_error);
}

TEST_F(HttpTest, RefusesToListenWhereItMayNot) {
    start(echo);
    HttpOptions second{socketPath(), "none", ""};
    EXPECT_THROW(HttpServer(second, echo), std::runtime_error) << "another one answers";
    EXPECT_EQ(status(drain(socketClient(get("/")))), 200) << "the first one lost its socket";
    second.socketPath = folder_ / "other.sock";
    for (const char *listen : {"", "8080", ":8080", "127.0.0.1:", "::1:8080", "name.example:80",
                               "127.0.0.1:99999999", "0.0.0.0:0", "[::]:0"}) {
        second.listen = listen;
        EXPECT_THROW(HttpServer(second, echo), std::runtime_error) << listen;
    }
    second.listen = this->listen();
    EXPECT_THROW(HttpServer(second, echo), std::runtime_error) << "the port is taken";
}

} // namespace
} // namespace usage
