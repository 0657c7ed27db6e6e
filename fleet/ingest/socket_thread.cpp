#include "ingest/socket_thread.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fleet {

SocketThread::SocketThread() : woken_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (woken_ < 0)
        throw std::runtime_error("no descriptor for the thread of the buffer's connection");
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before); // signals are the main thread's
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SocketThread::~SocketThread() {
    stop();
    close(woken_);
}

void SocketThread::serve(natsOptions *options) {
    // The library's own pings are answered or missed in a thread of theirs, which closes what this
    // one may be reading from. Whoever asks and gets no answer calls hangUp() instead.
    natsOptions_SetPingInterval(options, 0);
    natsOptions_SetEventLoop(
        options, this, attach,
        [](void *self, bool wanted) {
            return static_cast<SocketThread *>(self)->change(&Watch::read, wanted);
        },
        [](void *self, bool wanted) {
            return static_cast<SocketThread *>(self)->change(&Watch::write, wanted);
        },
        [](void *) { return NATS_OK; });
}

void SocketThread::stop() {
    if (!thread_.joinable())
        return;
    stopped_ = true;
    wake();
    hangUp(); // it may wait for the rest of what has come in part
    thread_.join();
}

// The library closes a socket only after it had it taken from the watch, so that this one is open.
void SocketThread::hangUp() {
    const std::lock_guard lock(mutex_);
    if (watch_.read)
        shutdown(watch_.socket, SHUT_RDWR);
}

natsStatus SocketThread::attach(void **self, void *loop, natsConnection *connection,
                                natsSock socket) {
    *self = loop;
    auto *thread = static_cast<SocketThread *>(loop);
    {
        const std::lock_guard lock(thread->mutex_);
        thread->watch_ = {.connection = connection, .socket = socket, .read = true};
    }
    thread->wake();
    return NATS_OK;
}

natsStatus SocketThread::change(bool Watch::*what, bool wanted) {
    {
        const std::lock_guard lock(mutex_);
        watch_.*what = wanted;
    }
    if (wanted)
        wake();
    return NATS_OK;
}

void SocketThread::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(woken_, &one, sizeof one);
}

SocketThread::Watch SocketThread::watch() {
    const std::lock_guard lock(mutex_);
    return watch_;
}

void SocketThread::run() {
    while (!stopped_) {
        const Watch watched = watch();
        const auto wanted =
            static_cast<short>((watched.read ? POLLIN : 0) | (watched.write ? POLLOUT : 0));
        std::array<pollfd, 2> list{
            {{woken_, POLLIN, 0}, {wanted != 0 ? watched.socket : -1, wanted, 0}}};
        if (poll(list.data(), list.size(), -1) < 0)
            continue;
        std::uint64_t times = 0;
        if (list[0].revents != 0 && read(woken_, &times, sizeof times) < 0)
            continue;
        // Not once it is stopped: the library would begin to connect anew.
        if (list[1].revents != 0 && !stopped_)
            handle(watched, list[1].revents);
    }
}

// One read is all that there is: the library's buffer holds more than a TLS record, and OpenSSL
// takes no second one from the socket.
void SocketThread::handle(const Watch &watched, short events) {
    if (watched.read && (events & ~POLLOUT) != 0)
        natsConnection_ProcessReadEvent(watched.connection);
    // Reading may have found the connection lost; on a new one there may be nothing to write, and
    // writing nothing would be taken for the end of it.
    if ((events & POLLOUT) != 0 && watch().write)
        natsConnection_ProcessWriteEvent(watched.connection);
}

} // namespace fleet
