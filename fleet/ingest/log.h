// Messages for whoever runs the program: one line each on standard error.
#pragma once

#include <string_view>

namespace fleet {

// Prints "fleet-ingest: <text>"; control bytes become '?', so that a line stays one.
void logLine(std::string_view text);

} // namespace fleet
