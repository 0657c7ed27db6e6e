#include "usage/commands/setup.h"

#include "usage/http/http_listener.h"
#include "usage/settings.h"

#include <arpa/inet.h>
#include <crypt.h>
#include <cstdlib>
#include <filesystem>
#include <ifaddrs.h>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace usage {
namespace {

constexpr const char *kPort = "8080";
constexpr std::size_t kShortest = 8;
constexpr std::size_t kLongest = 200; // of crypt, and of what a header may bring

// yescrypt with 4 MiB: its default of 16 MiB is more than the whole service uses otherwise.
constexpr const char *kMethod = "$y$";
constexpr unsigned long kCost = 3;

// What is typed is not shown.
class NoEcho {
  public:
    NoEcho() : terminal_(isatty(STDIN_FILENO) == 1 && tcgetattr(STDIN_FILENO, &before_) == 0) {
        if (!terminal_)
            return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;
    ~NoEcho() {
        if (terminal_)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }

  private:
    termios before_{};
    bool terminal_;
};

std::string askPassword(std::istream &in, std::ostream &out) {
    out << "Password for the page (at least " << kShortest << " characters): " << std::flush;
    std::string password;
    {
        const NoEcho silent;
        std::getline(in, password);
    }
    out << "\n";
    if (password.size() < kShortest || password.size() > kLongest)
        throw std::runtime_error("a password has " + std::to_string(kShortest) + " to " +
                                 std::to_string(kLongest) + " bytes");
    return password;
}

std::string hashOf(const std::string &password) {
    const std::unique_ptr<char, decltype(&free)> salt(crypt_gensalt_ra(kMethod, kCost, nullptr, 0),
                                                      free);
    const auto scratch = std::make_unique<crypt_data>();
    const char *hash = salt ? crypt_r(password.c_str(), salt.get(), scratch.get()) : nullptr;
    if (hash == nullptr || hash[0] == '*')
        throw std::runtime_error("the system's crypt can't make a hash");
    return hash;
}

// The interface's first IPv4 address.
std::string addressOf(const std::string &interface) {
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        throw std::runtime_error("cannot list the interfaces");
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(all, freeifaddrs);
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        if (interface != one->ifa_name || one->ifa_addr == nullptr ||
            one->ifa_addr->sa_family != AF_INET)
            continue;
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr, text,
                  sizeof text);
        return text;
    }
    throw std::runtime_error("there is no address on " + interface + ": say --listen ADDRESS:PORT");
}

} // namespace

int setUp(const SetupOptions &options, std::istream &in, std::ostream &out) {
    try {
        Settings settings = readSettings(options.settings);
        settings.listen =
            options.listen.empty() ? addressOf(options.instance) + ":" + kPort : options.listen;
        isLoopback(parseListen(settings.listen)); // refuses what is no address
        settings.passwordHash = hashOf(askPassword(in, out));
        std::filesystem::create_directories(
            std::filesystem::absolute(options.settings).parent_path());
        writeSettings(options.settings, settings);
        out << "The page will be at http://" << settings.listen
            << "/ when the service starts the next time; any user name goes with the password.\n"
               "The password travels in clear text: on a network that others can listen to, put a "
               "TLS proxy before it\n(proxy_pass http://127.0.0.1:"
            << kPort << "; and setup --listen 127.0.0.1:" << kPort << ").\n";
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "traffic-usage setup: " << error.what() << "\n";
        return 1;
    }
}

} // namespace usage
