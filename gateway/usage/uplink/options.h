// The command line of the uplink.
#pragma once

#include <optional>
#include <string>

namespace uplink {

struct Options {
    std::string config = "/etc/traffic-usage/uplink.conf";
    std::string spool = "/tmp/aws_json_dir";
    std::string state = "/var/lib/traffic-usage-uplink";
    bool once = false;
};

// What the command line asks for: to run, or only to print a text and leave with this status.
struct CommandLine {
    Options options;
    std::optional<int> leave;
    std::string text; // ends with a newline; goes to standard error when leave is not 0
};

CommandLine parseCommandLine(int argc, char **argv);

} // namespace uplink
