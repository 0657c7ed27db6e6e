// aws_json, the uplink: takes the daemon's reports and sends them to an operator's broker.
#include "usage/uplink/service.h"

#include <iostream>

int main(int argc, char **argv) {
    constexpr int kFailed = 1;
    constexpr int kNotConfigured = 2;
    uplink::blockSignals();
    const uplink::CommandLine commandLine = uplink::parseCommandLine(argc, argv);
    if (commandLine.leave) {
        (*commandLine.leave == 0 ? std::cout : std::cerr) << commandLine.text;
        return *commandLine.leave;
    }
    try {
        const uplink::Config config = uplink::loadConfig(commandLine.options.config);
        return uplink::runService(commandLine.options, config);
    } catch (const uplink::ConfigError &error) {
        uplink::say(error.what());
        return kNotConfigured;
    } catch (const std::exception &error) {
        uplink::say(error.what());
        return kFailed;
    }
}
