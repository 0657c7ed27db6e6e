// Answers the requests of callers, whichever way they came.
#pragma once

#include "engine/callers.h"
#include "engine/device/caller_header.h"
#include "engine/source.h"

#include <cstdint>
#include <sys/types.h>
#include <vector>

namespace idpfwd {

[[nodiscard]] bool asksForUsers(const Request &request);

// The tables' own answer: the user list or the application rates; nothing for any other request.
std::optional<Reply> tableReply(const Request &request, const Tables &tables);

// 0 when the request can be served, else the errno that it fails with: ENOTTY for a number that is
// none of the engine's, EINVAL for a header that is wrong or contradicts the number.
int checkRequest(std::uint32_t number, const CallerHeader &header);

// One life of the engine, as its callers see it.
class RequestServer {
  public:
    // Begins the life; the source must outlive it.
    explicit RequestServer(Source &source);

    // Answers a request of a process, or of one of its threads (0: of one that cannot be seen from
    // here): errno, or output that fits the caller's capacity (cut to whole bytes, so that a last
    // record may be partial) and the length to report, which is always set then. The tables are
    // empty for callers that are held back.
    Reply serve(std::uint32_t number, const CallerHeader &header, std::vector<std::uint8_t> input,
                pid_t caller);

  private:
    Reply answer(const Request &request, pid_t caller);
    [[nodiscard]] Reply state() const;

    Source &source_;
    Callers callers_;
    std::uint64_t life_;
};

} // namespace idpfwd
