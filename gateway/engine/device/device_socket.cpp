#include "engine/device/device_socket.h"

#include "common/file.h"
#include "engine/device/wire.h"
#include "engine/owned_file.h"
#include "engine/requests.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <list>
#include <sys/socket.h>
#include <sys/un.h>

namespace idpfwd {
namespace {

using Clock = std::chrono::steady_clock;

// Callers beyond these wait in the listening queue until one of them has been served.
constexpr std::size_t kMaxClients = 32;
constexpr int kQueue = 64;

// A caller is dropped when it has not moved on for this long, and at the latest after the second
// span. The shim gives up earlier than that, and those who wait in the queue get their turn in
// time.
constexpr auto kStall = std::chrono::seconds(1);
constexpr auto kLifetime = std::chrono::seconds(10);

// The same while others wait in the queue: those who are slow must not keep them from an answer
// within half a second, however many there are.
constexpr auto kCrowdedStall = std::chrono::milliseconds(100);
constexpr auto kCrowdedLifetime = std::chrono::milliseconds(150);

// How long no further caller is accepted after the system refused to (out of descriptors).
constexpr auto kAcceptPause = std::chrono::seconds(1);

static_assert(sizeof(wire_request) == 12 && sizeof(wire_reply) == 12);

template <typename Record>
void append(std::vector<std::uint8_t> &bytes, const Record &record) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(&record);
    bytes.insert(bytes.end(), first, first + sizeof record);
}

std::vector<std::uint8_t> encodeReply(const Reply &reply) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(sizeof(wire_reply) + sizeof(std::uint32_t) + reply.output.size());
    append(bytes, wire_reply{.mark = WIRE_MARK,
                             .error = static_cast<std::uint32_t>(reply.error),
                             .output_length = static_cast<std::uint32_t>(reply.output.size())});
    if (reply.error == 0) {
        bytes.insert(bytes.end(), reply.output.begin(), reply.output.end());
        append(bytes, reply.reportedLength.value_or(0));
    }
    return bytes;
}

// One connection: receives a request, then sends the reply.
class Client {
  public:
    explicit Client(int descriptor) : socket_(descriptor) {}

    [[nodiscard]] pollfd watch() const {
        const bool sending = !output_.empty();
        return {.fd = socket_.get(),
                .events = static_cast<short>(sending ? POLLOUT : POLLIN),
                .revents = 0};
    }
    // Until when it has to move on.
    [[nodiscard]] Clock::time_point deadline(bool crowded) const {
        return crowded ? std::min(moved_ + kCrowdedStall, begun_ + kCrowdedLifetime)
                       : std::min(moved_ + kStall, begun_ + kLifetime);
    }
    [[nodiscard]] bool done(bool crowded) const {
        return done_ || Clock::now() >= deadline(crowded);
    }

    void turn(RequestServer &server) {
        if (output_.empty())
            receive(server);
        if (!output_.empty())
            send();
    }

  private:
    // How many bytes of the request are known to come, as far as it has been read.
    [[nodiscard]] std::size_t expected() const {
        std::size_t size = sizeof(wire_request);
        if (input_.size() < size)
            return size;
        size += head().header_size;
        return input_.size() < size ? size : size + header().inputSize();
    }

    [[nodiscard]] wire_request head() const {
        wire_request head{};
        memcpy(&head, input_.data(), sizeof head);
        return head;
    }

    [[nodiscard]] CallerHeader header() const {
        const std::span<const std::uint8_t> bytes(input_);
        return decodeCallerHeader(bytes.subspan(sizeof(wire_request), head().header_size))
            .value_or(CallerHeader{});
    }

    [[nodiscard]] bool garbage() const {
        if (input_.size() < sizeof(wire_request))
            return false;
        const wire_request request = head();
        return request.mark != WIRE_MARK ||
               (request.header_size != kHeaderSize32 && request.header_size != kHeaderSize64);
    }

    // A request that is refused whatever its input is: the input is then not waited for.
    [[nodiscard]] bool refused() const {
        return input_.size() >= sizeof(wire_request) + head().header_size &&
               checkRequest(head().number, header()) != 0;
    }

    // The process that connected; 0 when it lives where this one cannot see it.
    [[nodiscard]] pid_t caller() const {
        ucred peer{};
        socklen_t size = sizeof peer;
        return getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
    }

    void movedOn() { moved_ = Clock::now(); }

    void receive(RequestServer &server) {
        while (input_.size() < expected()) {
            const std::size_t had = input_.size();
            input_.resize(expected());
            const ssize_t received =
                recv(socket_.get(), input_.data() + had, input_.size() - had, MSG_DONTWAIT);
            const int error = errno;
            input_.resize(had + (received > 0 ? static_cast<std::size_t>(received) : 0));
            if (received <= 0) {
                done_ = received == 0 || (error != EAGAIN && error != EINTR);
                return;
            }
            movedOn();
            if (garbage()) {
                done_ = true;
                return;
            }
            if (refused())
                break;
        }
        answer(server);
    }

    void answer(RequestServer &server) {
        const auto start = std::min(input_.size(), sizeof(wire_request) + head().header_size);
        const auto number = head().number;
        const auto asked = header();
        input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(start));
        output_ = encodeReply(server.serve(number, asked, std::move(input_), caller()));
    }

    void send() {
        const ssize_t sent = ::send(socket_.get(), output_.data() + sent_, output_.size() - sent_,
                                    MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            done_ = errno != EAGAIN && errno != EINTR;
            return;
        }
        movedOn();
        sent_ += static_cast<std::size_t>(sent);
        done_ = sent_ == output_.size();
    }

    Descriptor socket_;
    Clock::time_point begun_ = Clock::now(), moved_ = begun_;
    std::vector<std::uint8_t> input_, output_;
    std::size_t sent_ = 0;
    bool done_ = false;
};

class SocketDevice final : public Device {
  public:
    SocketDevice(int listener, const std::string &path, const std::string &deviceFile)
        : listener_(listener), path_(path), devicePath_(deviceFile) {
        socketFile_.own(path);
        makeDeviceFile();
    }

    void watch(std::vector<pollfd> &watched) const override {
        watched.push_back(
            {.fd = accepting() ? listener_.get() : -1, .events = POLLIN, .revents = 0});
        for (const Client &client : clients_)
            watched.push_back(client.watch());
    }

    [[nodiscard]] int timeout() const override {
        const auto now = Clock::now();
        auto next = Clock::time_point::max();
        if (pausedUntil_ > now)
            next = pausedUntil_;
        for (const Client &client : clients_)
            next = std::min(next, client.deadline(crowded()));
        if (next == Clock::time_point::max())
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
        return static_cast<int>(std::max<std::int64_t>(left, 0));
    }

    void serve(std::span<const pollfd> watched, RequestServer &server) override {
        std::size_t i = 1;
        for (Client &client : clients_) {
            if (watched[i++].revents != 0)
                client.turn(server);
        }
        std::erase_if(clients_, [&](const Client &client) { return client.done(crowded()); });
        if (watched[0].revents != 0)
            acceptClients(server);
    }

    [[nodiscard]] bool ready() const override { return true; }
    [[nodiscard]] std::string failure() const override { return ""; }
    [[nodiscard]] bool reachesIntoCallers() const override { return false; }
    [[nodiscard]] std::string description() const override {
        return "socket " + path_ + " for " + devicePath_;
    }

  private:
    // Whether somebody may have to wait for one of the present callers to be done.
    [[nodiscard]] bool crowded() const { return clients_.size() >= kMaxClients; }

    [[nodiscard]] bool accepting() const { return !crowded() && Clock::now() >= pausedUntil_; }

    void acceptClients(RequestServer &server) {
        // So many at a time, so that packets and signals get their turn too.
        for (std::size_t i = 0; i < kMaxClients && accepting(); ++i) {
            const int accepted = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted < 0) {
                if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
                    pausedUntil_ = Clock::now() + kAcceptPause;
                return;
            }
            // Most requests are there whole by now.
            clients_.emplace_back(accepted).turn(server);
            if (clients_.back().done(false))
                clients_.pop_back();
        }
    }

    void makeDeviceFile() {
        const Descriptor made(
            open(devicePath_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        struct stat there {};
        const int error = errno;
        if (made || (error == EEXIST && lstat(devicePath_.c_str(), &there) == 0 &&
                     S_ISREG(there.st_mode) && there.st_size == 0))
            deviceFile_.own(devicePath_);
        else if (error != EEXIST)
            std::cerr << "idpfwd: cannot make " << devicePath_ << ": " << strerror(error)
                      << "; callers need a plain file there\n";
    }

    Descriptor listener_;
    std::string path_, devicePath_;
    OwnedFile socketFile_, deviceFile_;
    std::list<Client> clients_;
    Clock::time_point pausedUntil_{};
};

enum class Occupant { kNone, kDead, kAlive, kOther };

// Whose socket is at the address: a living engine's queue takes a connection, or is full.
Occupant occupant(const sockaddr_un &address) {
    struct stat there {};
    if (lstat(address.sun_path, &there) != 0)
        return Occupant::kNone;
    if (!S_ISSOCK(there.st_mode))
        return Occupant::kOther;
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
        errno == EAGAIN)
        return Occupant::kAlive;
    return errno == ECONNREFUSED ? Occupant::kDead : Occupant::kOther;
}

// Bound with no rights for others from the first moment on.
bool bindPrivately(int listener, const sockaddr_un &address) {
    const mode_t before = umask(S_IXUSR | S_IRWXG | S_IRWXO);
    const int result = bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    umask(before);
    return result == 0;
}

} // namespace

std::unique_ptr<Device> openSocketDevice(const std::string &path, const std::string &deviceFile,
                                         std::string &error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        error = "socket path '" + path + "' must have 1 to " +
                std::to_string(sizeof address.sun_path - 1) + " characters";
        return nullptr;
    }
    path.copy(address.sun_path, path.size());
    switch (occupant(address)) {
    case Occupant::kAlive:
        error = "another engine is serving " + path;
        return nullptr;
    case Occupant::kOther:
        error = path + " is in the way and no engine's socket";
        return nullptr;
    case Occupant::kDead:
        unlink(path.c_str());
        break;
    case Occupant::kNone:
        break;
    }
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0 || !bindPrivately(listener, address) || listen(listener, kQueue) != 0) {
        error = "cannot listen at " + path + ": " + strerror(errno);
        if (listener >= 0)
            close(listener);
        return nullptr;
    }
    return std::make_unique<SocketDevice>(listener, path, deviceFile);
}

} // namespace idpfwd
