// The engine's own counters as a JSON document, to hold a report against.
#pragma once

#include "engine/source.h"

#include <string>

namespace idpfwd {

// {"users": [{"uid", "mac", "host_name", "ipv4", "ipv6", "rows": [{"cat_id", "app_id", "category",
// "application", "down_bytes", "up_bytes", "down_packets", "up_packets", "last"}]}], "overflow":
// {"users", "rows", "packets", "bytes"}}. Always valid JSON: bytes of a name that are no UTF-8 are
// written as the Latin-1 characters they would be.
std::string dumpTables(const Source &source);

} // namespace idpfwd
