#include "usage/uplink/options.h"

#include <array>
#include <getopt.h>

namespace uplink {
namespace {

constexpr int kBadUsage = 2;

constexpr const char *kHelp =
    R"(usage: aws_json [options]

The uplink: takes the traffic usage reports of this router and sends each of them
to the operator's MQTT broker. The daemon's signal SIGUSR2 says that a report is
there.

options:
  --config FILE    the settings (/etc/traffic-usage/uplink.conf)
  --spool DIR      where the daemon writes its report (/tmp/aws_json_dir)
  --state DIR      where the outbox is kept (/var/lib/traffic-usage-uplink)
  --once           take and send what is there, and end
  --version, --help

SIGTERM, SIGINT and SIGHUP end it. Exit status: 0, 1 for a failure or, with --once,
when reports are left, 2 for bad usage, without a configuration or for a wrong one.
)";

enum Code { kConfig = 1, kSpool, kState, kOnce, kVersion, kHelpCode };

constexpr std::array kLongOptions = {
    option{"config", required_argument, nullptr, kConfig},
    option{"spool", required_argument, nullptr, kSpool},
    option{"state", required_argument, nullptr, kState},
    option{"once", no_argument, nullptr, kOnce},
    option{"version", no_argument, nullptr, kVersion},
    option{"help", no_argument, nullptr, kHelpCode},
    option{nullptr, 0, nullptr, 0},
};

CommandLine refuse(const std::string &reason) {
    return {.options = {}, .leave = kBadUsage, .text = "aws_json: " + reason + " (see --help)\n"};
}

void take(int code, Options &options) {
    switch (code) {
    case kConfig:
        options.config = optarg;
        break;
    case kSpool:
        options.spool = optarg;
        break;
    case kState:
        options.state = optarg;
        break;
    default:
        options.once = true;
    }
}

} // namespace

CommandLine parseCommandLine(int argc, char **argv) {
    CommandLine commandLine;
    opterr = 0; // the messages are our own
    optind = 0; // starts afresh, whatever was parsed before
    int code = 0;
    while ((code = getopt_long(argc, argv, "+:", kLongOptions.data(), nullptr)) != -1) {
        if (code == kHelpCode)
            return {.options = {}, .leave = 0, .text = kHelp};
        if (code == kVersion)
            return {.options = {}, .leave = 0, .text = "aws_json " UPLINK_VERSION "\n"};
        if (code == '?' || code == ':')
            return refuse(std::string("option '") + argv[optind - 1] +
                          (code == ':' ? "' needs a value" : "' is unknown or takes no value"));
        if (optarg != nullptr && *optarg == '\0')
            return refuse("an option has an empty value");
        take(code, commandLine.options);
    }
    if (optind < argc)
        return refuse(std::string("unexpected argument '") + argv[optind] + "'");
    return commandLine;
}

} // namespace uplink
