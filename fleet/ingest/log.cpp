#include "ingest/log.h"

#include <cstdio>
#include <string>

namespace fleet {

void logLine(std::string_view text) {
    std::string line = "fleet-ingest: ";
    for (const char c : text)
        line += static_cast<unsigned char>(c) < ' ' || c == 127 ? '?' : c;
    line += '\n';
    fputs(line.c_str(), stderr);
}

} // namespace fleet
