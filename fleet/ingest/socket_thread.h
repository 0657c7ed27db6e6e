// The one thread that reads and writes the socket of a connection to the buffer. By itself libnats
// reads a TLS connection in one thread and writes it in others at the same time, which OpenSSL does
// not bear: a lost connection makes the reader write as well, an alert.
#pragma once

#include <atomic>
#include <mutex>
#include <nats/nats.h>
#include <thread>

namespace fleet {

class SocketThread {
  public:
    SocketThread();
    ~SocketThread();
    SocketThread(const SocketThread &) = delete;
    SocketThread &operator=(const SocketThread &) = delete;

    // A connection that is made with these options is this thread's; one for each thread.
    void serve(natsOptions *options);

    // Ends the thread. Before the connection is destroyed, which it must outlive itself.
    void stop();

    // Makes the connection look lost, so that another one is made.
    void hangUp();

  private:
    // What the library wants to be watched; it says so from any of its threads.
    struct Watch {
        natsConnection *connection = nullptr;
        int socket = -1;
        bool read = false;
        bool write = false;
    };

    static natsStatus attach(void **self, void *loop, natsConnection *connection, natsSock socket);
    natsStatus change(bool Watch::*what, bool wanted);
    void wake() const;
    Watch watch();
    void run();
    void handle(const Watch &watched, short events);

    int woken_;
    std::mutex mutex_;
    Watch watch_;
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

} // namespace fleet
