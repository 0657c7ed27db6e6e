#include "engine/options.h"

#include "engine/device/wire.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <limits>

namespace idpfwd {
namespace {

constexpr int kBadUsage = 2;
constexpr unsigned kMostReaders = 16;

constexpr const char *kHelp =
    R"(usage: idpfwd --scenario FILE | --interface NAME | --capture FILE [options]

The user-space DPI engine: serves the devices of a LAN and the traffic of their
applications behind /dev/idpfw.

where the facts come from, one of:
  --scenario FILE       a time line of devices and counters (docs/scenario.md)
  --interface NAME      live packets, usually of the LAN bridge
  --capture FILE        packets of a pcap or pcapng file, at their own pace

options:
  --fast                read a capture as fast as it can be read
  --gateway-mac MAC     the router's own address on the LAN, which is no client;
                        without it the interface's
  --forget SECONDS      how long an unseen device is remembered (600)
  --memory MIB          for all that is remembered of flows, 1 to 4096 (32)
  --ring MIB            of an interface's packets that wait in the kernel, 1 to
                        1024 (8): 144 bridge a second at 1 Gbit/s
  --readers N           threads that share an interface's packets, 1 to 16 (1)
  --databases DIR       where the database files are written (/tmp/trend)
  --device cuse|socket  a real device through CUSE, or a Unix socket for programs
                        that run with libidpfw-shim.so preloaded; without it CUSE
                        if /dev/cuse can be opened, else the socket
  --socket PATH         the socket's place; without it that of the environment
                        variable IDPFWD_SOCKET, else /var/run/idpfwd.sock
  --dump FILE           write the engine's own counters there as JSON on SIGUSR1
                        and at the end
  --version, --help

SIGTERM, SIGINT and SIGHUP end it. Exit status: 0, 1 for a failure, 2 for bad usage.
)";

enum Code {
    kScenario = 1,
    kInterface,
    kCapture,
    kFast,
    kGateway,
    kForget,
    kMemory,
    kRing,
    kReaders,
    kDevice,
    kSocket,
    kDatabases,
    kDump,
    kVersion,
    kHelpCode
};

constexpr std::array kLongOptions = {
    option{"scenario", required_argument, nullptr, kScenario},
    option{"interface", required_argument, nullptr, kInterface},
    option{"capture", required_argument, nullptr, kCapture},
    option{"fast", no_argument, nullptr, kFast},
    option{"gateway-mac", required_argument, nullptr, kGateway},
    option{"forget", required_argument, nullptr, kForget},
    option{"memory", required_argument, nullptr, kMemory},
    option{"ring", required_argument, nullptr, kRing},
    option{"readers", required_argument, nullptr, kReaders},
    option{"device", required_argument, nullptr, kDevice},
    option{"socket", required_argument, nullptr, kSocket},
    option{"databases", required_argument, nullptr, kDatabases},
    option{"dump", required_argument, nullptr, kDump},
    option{"version", no_argument, nullptr, kVersion},
    option{"help", no_argument, nullptr, kHelpCode},
    option{nullptr, 0, nullptr, 0},
};

CommandLine refuse(const std::string &reason) {
    return {.options = {}, .leave = kBadUsage, .text = "idpfwd: " + reason + " (see --help)\n"};
}

std::string defaultSocket() {
    const char *path = getenv(IDPFWD_SOCKET_VARIABLE);
    return path != nullptr && *path != '\0' ? path : IDPFWD_SOCKET_PATH;
}

std::optional<std::uint32_t> parseNumber(const std::string &text) {
    std::uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        return std::nullopt;
    return value;
}

// What is wrong with a word that is none of the options: getopt_long leaves in optopt the code of
// the option that was given a value, or the letter of a short one, of which there are none.
std::string refusal(const char *word) {
    if (optopt == 0)
        return std::string("unknown option '") + word + "'";
    if (optopt <= kHelpCode)
        return std::string("option '") + word + "' takes no value";
    return std::string("unknown option '-") + static_cast<char>(optopt) + "'";
}

// The options as they come; what is wrong with the present one, or nothing.
class Parser {
  public:
    std::string take(int code, const std::string &value) {
        switch (code) {
        case kScenario:
            return takeSource(SourceKind::kScenario, value);
        case kInterface:
            return takeSource(SourceKind::kInterface, value);
        case kCapture:
            return takeSource(SourceKind::kCapture, value);
        case kFast:
            options.fast = true;
            return "";
        case kGateway:
            options.gatewayMac = parseMac(value);
            return options.gatewayMac ? "" : "'" + value + "' is no MAC address";
        case kForget:
            return takeForget(value);
        case kMemory:
            return takeMebibytes(options.memory, value, 4096, "--memory");
        case kRing:
            return takeMebibytes(options.ring, value, 1024, "--ring");
        case kReaders:
            return takeReaders(value);
        case kDevice:
            return takeDevice(value);
        case kSocket:
            return takeText(options.socketPath, value, "--socket");
        case kDatabases:
            return takeText(options.databases, value, "--databases");
        default:
            return takeText(options.dumpFile, value, "--dump");
        }
    }

    // What is wrong with them together.
    [[nodiscard]] std::string check() const {
        if (!sourceGiven_)
            return "one of --scenario, --interface and --capture is needed";
        if (options.fast && options.source != SourceKind::kCapture)
            return "--fast is for --capture";
        if (options.readers > 1 && options.source != SourceKind::kInterface)
            return "--readers is for --interface";
        return "";
    }

    Options options;

  private:
    std::string takeSource(SourceKind kind, const std::string &name) {
        if (sourceGiven_)
            return "only one of --scenario, --interface and --capture can be given";
        sourceGiven_ = true;
        options.source = kind;
        return takeText(options.sourceName, name, "the source");
    }

    static std::string takeText(std::string &target, const std::string &value, const char *what) {
        target = value;
        return value.empty() ? std::string(what) + " needs a value that is not empty" : "";
    }

    std::string takeForget(const std::string &value) {
        const auto seconds = parseNumber(value);
        if (!seconds || *seconds == 0)
            return "--forget needs a whole number of seconds above 0, not '" + value + "'";
        options.forgetSeconds = *seconds;
        return "";
    }

    static std::string takeMebibytes(std::size_t &target, const std::string &value,
                                     std::uint32_t most, const char *option) {
        const auto number = parseNumber(value);
        if (!number || *number == 0 || *number > most)
            return std::string(option) + " is a number of MiB from 1 to " + std::to_string(most) +
                   ", not '" + value + "'";
        // 4096 of them are one byte more than 32 bits can say.
        target = static_cast<std::size_t>(std::min<std::uint64_t>(
            std::uint64_t{*number} << 20, std::numeric_limits<std::size_t>::max()));
        return "";
    }

    std::string takeReaders(const std::string &value) {
        const auto number = parseNumber(value);
        if (!number || *number == 0 || *number > kMostReaders)
            return "--readers is a number from 1 to " + std::to_string(kMostReaders) + ", not '" +
                   value + "'";
        options.readers = *number;
        return "";
    }

    std::string takeDevice(const std::string &value) {
        if (value == "cuse")
            options.device = DeviceKind::kCuse;
        else if (value == "socket")
            options.device = DeviceKind::kSocket;
        else
            return "--device is cuse or socket, not '" + value + "'";
        return "";
    }

    bool sourceGiven_ = false;
};

} // namespace

CommandLine parseCommandLine(int argc, char **argv) {
    Parser parser;
    parser.options.socketPath = defaultSocket();
    opterr = 0; // the messages are our own
    optind = 0; // starts afresh, whatever was parsed before
    int code = 0;
    while ((code = getopt_long(argc, argv, "+:", kLongOptions.data(), nullptr)) != -1) {
        const char *word = argv[optind - 1];
        if (code == kHelpCode)
            return {.options = {}, .leave = 0, .text = kHelp};
        if (code == kVersion)
            return {.options = {}, .leave = 0, .text = "idpfwd " IDPFWD_VERSION "\n"};
        if (code == '?')
            return refuse(refusal(word));
        if (code == ':')
            return refuse(std::string("option '") + word + "' needs a value");
        const std::string wrong = parser.take(code, optarg != nullptr ? optarg : "");
        if (!wrong.empty())
            return refuse(wrong);
    }
    if (optind < argc)
        return refuse(std::string("unexpected argument '") + argv[optind] + "'");
    if (const std::string wrong = parser.check(); !wrong.empty())
        return refuse(wrong);
    return {.options = parser.options, .leave = {}, .text = {}};
}

std::optional<Mac> parseMac(const std::string &text) {
    Mac mac{};
    if (text.size() != 17)
        return std::nullopt;
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const char *group = text.data() + 3 * i;
        const auto parsed = std::from_chars(group, group + 2, mac[i], 16);
        if (parsed.ec != std::errc{} || parsed.ptr != group + 2 || (i < 5 && group[2] != ':'))
            return std::nullopt;
    }
    return mac;
}

std::string formatMac(const std::uint8_t *mac) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

} // namespace idpfwd
