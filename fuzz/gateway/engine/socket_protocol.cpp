// Whatever a caller sends to the engine's socket: it is answered with one whole reply or with none,
// and the connection ends.
#include "fuzz/target.h"

#include "engine/device/device_socket.h"
#include "engine/device/wire.h"
#include "gateway/engine/echo_source.h"
#include "gateway/engine/scratch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace idpfwd;

struct Engine {
    Scratch folder;
    std::string path = folder.path() / "socket", error;
    Echo source;
    RequestServer server{source};
    std::unique_ptr<Device> device = openSocketDevice(path, folder.path() / "device", error);

    void turn() {
        std::vector<pollfd> watched;
        device->watch(watched);
        poll(watched.data(), watched.size(), 1000);
        device->serve(watched, server);
    }
};

int callerOf(const Engine &engine) {
    const int caller = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    engine.path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto *plain = reinterpret_cast<const sockaddr *>(&address);
    FUZZ_REQUIRE(connect(caller, plain, sizeof address) == 0);
    return caller;
}

// The engine's turns until it has hung up.
std::vector<std::uint8_t> replyTo(Engine &engine, int caller) {
    std::vector<std::uint8_t> reply;
    ssize_t got = -1;
    errno = EAGAIN;
    while (got > 0 || (got < 0 && errno == EAGAIN)) {
        if (got < 0)
            engine.turn();
        std::uint8_t piece[4096];
        got = recv(caller, piece, sizeof piece, MSG_DONTWAIT);
        reply.insert(reply.end(), piece, piece + std::max<ssize_t>(got, 0));
    }
    return reply;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static Engine engine;
    FUZZ_REQUIRE(engine.device != nullptr);
    const int caller = callerOf(engine);
    send(caller, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(caller, SHUT_WR);
    const auto reply = replyTo(engine, caller);
    close(caller);
    if (reply.empty())
        return 0;
    wire_reply head{};
    FUZZ_REQUIRE(reply.size() >= sizeof head);
    memcpy(&head, reply.data(), sizeof head);
    FUZZ_REQUIRE(head.mark == WIRE_MARK);
    const std::size_t more = head.error == 0 ? head.output_length + sizeof(std::uint32_t) : 0;
    FUZZ_REQUIRE(reply.size() == sizeof head + more);
    return 0;
}
