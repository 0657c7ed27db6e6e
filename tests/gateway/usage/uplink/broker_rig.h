// What tests of the whole program share: certificates, a real broker, one who listens to it, and
// programs that are ended with the test.
#pragma once

#include "gateway/engine/scratch.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

struct mosquitto;

namespace uplink {

// A program whose output goes into a file of scratch; killed, if it is still there, with the
// object.
class Program {
  public:
    Program(const Scratch &scratch, const std::string &output, std::vector<std::string> words);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program();

    void signal(int number) const;
    // Waits for its end: its exit status, or minus the signal that ended it.
    int wait();

  private:
    pid_t process_;
};

// Until the condition holds; false after a minute, which is long on any machine.
bool eventually(const std::function<bool()> &condition);

// Makes an authority, NAME.pem, and what it has signed for host: NAME-server.pem, NAME-server.key.
void makeCertificates(const Scratch &scratch, const std::string &name, const std::string &host);

// mosquitto with TLS on 127.0.0.1, for the authority and server of a name.
class Broker {
  public:
    // At a port that is free just now, or at this one.
    Broker(const Scratch &scratch, const std::string &name, int port = 0);
    [[nodiscard]] int port() const { return port_; }

    static bool installed();

  private:
    int port_;
    Program program_;
};

// Gets all messages from a broker.
class Listener {
  public:
    // strict: sees that the broker is the one for the name.
    Listener(const Scratch &scratch, const std::string &name, int port, bool strict = true);
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
    ~Listener();

    // Topic and body of all so far.
    std::vector<std::pair<std::string, std::string>> messages();

  private:
    std::mutex mutex_;
    bool subscribed_ = false;
    std::vector<std::pair<std::string, std::string>> messages_;
    mosquitto *handle_;
};

} // namespace uplink
