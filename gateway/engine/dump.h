// The engine's own counters as a JSON document, to hold a report against.
#pragma once

#include "engine/source.h"

#include <string>

namespace idpfwd {

// {"users": [{"uid", "mac", "host_name", "ipv4", "ipv6", "rows": [{"cat_id", "app_id", "category",
// "application", "down_bytes", "up_bytes", "down_packets", "up_packets", "last"}]}],
// "overflow": {"users", "rows", "packets", "bytes"}: what did not fit,
// "refused": [{"mac", "packets", "bytes"}]: devices that did not, those seen last first,
// "forgotten": {"users", "rows", "packets", "bytes"}: what went with devices not seen for too long,
// or that left their place to one that had earned it,
// "capped": {"packets", "bytes"}: frames that claimed more than a frame can have, and how much,
// "capture_drops": packets that the kernel dropped, null where there are none to be read}.
// All counts are since the start. Always valid JSON: bytes of a name that are no UTF-8 are written
// as the Latin-1 characters they would be.
std::string dumpTables(const Source &source);

} // namespace idpfwd
