// Asks store and buffer for what the verdict needs.
#pragma once

#include "check/verdict.h"
#include "ingest/buffer.h"
#include "ingest/clickhouse.h"

namespace fleet {

// All three throw std::runtime_error when there is no answer. The replica that is asked is first
// brought up to date with the other one.
[[nodiscard]] Stored askReports(Store &store);
[[nodiscard]] Daily askDaily(Store &store);
[[nodiscard]] Letters askLetters(const BufferAddress &address);

} // namespace fleet
