// The settings of the uplink: lines of "key = value", with # before a comment.
#pragma once

#include <chrono>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>

namespace uplink {

struct Config {
    std::string broker; // host name or address; never empty
    std::uint16_t port = 8883;
    std::string region; // both are levels of the topic: letters, digits, - and _, at most 64
    std::string router;
    std::string username; // "" for none
    std::string password;
    std::string caFile; // "" for the system's own authorities
    std::string certificateFile;
    std::string keyFile;
    std::int64_t outboxLimit = 8 << 20; // bytes of reports
    std::chrono::seconds spread{30};    // a delivery begins within so long after the report came
    std::chrono::seconds retryFirst{5};
    std::chrono::seconds retryLongest{900};
    std::chrono::seconds patience{30}; // how long a broker may show no progress
};

// The message names the place and what is wrong there.
class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Reads settings; name stands for them in messages. The password's file is not read: password then
// holds its path. Throws ConfigError for unknown, repeated, missing and impossible settings.
Config parseConfig(std::istream &text, const std::string &name);

// Reads the file at path, takes the password out of its file and sees that the other files can be
// read. Throws ConfigError.
Config loadConfig(const std::string &path);

} // namespace uplink
