// `traffic-usage setup`: asks for a password, and has the page listen on the LAN from then on.
#pragma once

#include <istream>
#include <ostream>
#include <string>

namespace usage {

struct SetupOptions {
    std::string instance; // the name of the LAN's interface
    std::string settings; // the file that is written
    std::string listen;   // ADDRESS:PORT, or "" for the interface's address and port 8080
};

// Asks on out, and reads one line from in without showing it when that is a terminal. 0, or 1 when
// nothing was changed; the reason goes to standard error.
int setUp(const SetupOptions &options, std::istream &in, std::ostream &out);

} // namespace usage
