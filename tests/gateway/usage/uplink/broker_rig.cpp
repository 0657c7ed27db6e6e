#include "broker_rig.h"

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <mosquitto.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace uplink {
namespace {

void runOrThrow(const std::string &command) {
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("failed: " + command);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port that nobody has just now.
int freePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    bind(probe, reinterpret_cast<sockaddr *>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr *>(&address), &size);
    close(probe);
    return ntohs(address.sin_port);
}

bool listens(int port) {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool connected =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

std::vector<std::string> brokerCommand(const Scratch &scratch, const std::string &name, int port) {
    const std::string folder = scratch.path().string() + "/" + name;
    const std::string settings = "listener " + std::to_string(port) + " 127.0.0.1\ncafile " +
                                 folder + ".pem\ncertfile " + folder + "-server.pem\nkeyfile " +
                                 folder +
                                 "-server.key\nallow_anonymous true\npersistence false\n"
                                 "max_queued_messages 0\nuser root\n";
    return {"mosquitto", "-c", scratch.write("mosquitto.conf", settings)};
}

} // namespace

Program::Program(const Scratch &scratch, const std::string &output, std::vector<std::string> words)
    : process_(fork()) {
    if (process_ != 0)
        return;
    const int file = open((scratch.path() / output).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

Program::~Program() {
    if (process_ > 0) {
        signal(SIGKILL);
        wait();
    }
}

void Program::signal(int number) const {
    kill(process_, number);
}

int Program::wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool eventually(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void makeCertificates(const Scratch &scratch, const std::string &name, const std::string &host) {
    const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
    runOrThrow("cd " + scratch.path().string() + " && exec 2>openssl.log && openssl req -x509 " +
               key + "-keyout " + name + ".key -out " + name + ".pem -days 2 -subj /CN=" + name +
               " && openssl req " + key + "-keyout " + name + "-server.key -out " + name +
               ".csr -subj /CN=" + host + " -addext subjectAltName=DNS:" + host +
               " && openssl x509 -req -in " + name + ".csr -CA " + name + ".pem -CAkey " + name +
               ".key -CAcreateserial -days 2 -copy_extensions copy -out " + name + "-server.pem");
}

Broker::Broker(const Scratch &scratch, const std::string &name, int port)
    : port_(port != 0 ? port : freePort()),
      program_(scratch, "mosquitto.log", brokerCommand(scratch, name, port_)) {
    if (!eventually([this] { return listens(port_); }))
        throw std::runtime_error("the broker does not listen: " + scratch.read("mosquitto.log"));
}

bool Broker::installed() {
    return std::system("PATH=$PATH:/usr/sbin command -v mosquitto openssl >/dev/null") == 0;
}

Listener::Listener(const Scratch &scratch, const std::string &name, int port, bool strict)
    : handle_(mosquitto_new("listener", true, this)) {
    mosquitto_subscribe_callback_set(handle_, [](mosquitto *, void *self, int, int, const int *) {
        auto &listener = *static_cast<Listener *>(self);
        const std::lock_guard lock(listener.mutex_);
        listener.subscribed_ = true;
    });
    mosquitto_message_callback_set(handle_, [](mosquitto *, void *self,
                                               const mosquitto_message *message) {
        auto &listener = *static_cast<Listener *>(self);
        const std::lock_guard lock(listener.mutex_);
        listener.messages_.emplace_back(message->topic,
                                        std::string(static_cast<const char *>(message->payload),
                                                    static_cast<std::size_t>(message->payloadlen)));
    });
    const std::string authority = scratch.path() / (name + ".pem");
    mosquitto_tls_set(handle_, authority.c_str(), nullptr, nullptr, nullptr, nullptr);
    mosquitto_tls_insecure_set(handle_, !strict);
    if (mosquitto_connect(handle_, "localhost", port, 60) != MOSQ_ERR_SUCCESS ||
        mosquitto_loop_start(handle_) != MOSQ_ERR_SUCCESS)
        throw std::runtime_error("the listener can't connect");
    eventually([this] {
        mosquitto_subscribe(handle_, nullptr, "#", 1);
        const std::lock_guard lock(mutex_);
        return subscribed_;
    });
}

Listener::~Listener() {
    mosquitto_loop_stop(handle_, true);
    mosquitto_destroy(handle_);
}

std::vector<std::pair<std::string, std::string>> Listener::messages() {
    const std::lock_guard lock(mutex_);
    return messages_;
}

} // namespace uplink
