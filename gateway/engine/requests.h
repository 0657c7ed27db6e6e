// Answers the requests of callers, whichever way they came.
#pragma once

#include "engine/device/caller_header.h"
#include "engine/source.h"

#include <cstdint>
#include <span>
#include <vector>

namespace idpfwd {

[[nodiscard]] bool asksForUsers(const Request &request);

// The tables' own answer: the user list or the application rates; nothing for any other request.
std::optional<Reply> tableReply(const Request &request, const Tables &tables);

// 0 when the request can be served, else the errno that it fails with: ENOTTY for a number that is
// none of the engine's, EINVAL for a header that is wrong or contradicts the number.
int checkRequest(std::uint32_t number, const CallerHeader &header);

// Answers a request: errno, or output that fits the caller's capacity (cut to whole bytes, so that
// a last record may be partial) and the length to report, which is always set then.
Reply serve(std::uint32_t number, const CallerHeader &header, std::vector<std::uint8_t> input,
            Source &source);

} // namespace idpfwd
