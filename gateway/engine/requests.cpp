#include "engine/requests.h"

#include "engine/engine_state.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>
#include <random>

namespace idpfwd {
namespace {

constexpr std::uint8_t kOpUsers = 1;
constexpr std::uint8_t kOpRows = 1;

// A number that no other life has, but by a chance that nobody meets; never 0.
std::uint64_t newLife() {
    std::random_device random;
    return std::uniform_int_distribution<std::uint64_t>(
        1, std::numeric_limits<std::uint64_t>::max())(random);
}

template <typename Record>
std::vector<std::uint8_t> bytesOf(const std::vector<Record> &records) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(records.data());
    return {first, first + records.size() * sizeof(Record)};
}

template <typename Record>
Reply shown(const std::vector<Record> &records, const std::bitset<256> &hidden) {
    if (hidden.none())
        return {.error = 0, .output = bytesOf(records), .reportedLength = {}};
    std::vector<Record> rest;
    std::ranges::copy_if(records, std::back_inserter(rest),
                         [&](const Record &record) { return !hidden[record.uid]; });
    return {.error = 0, .output = bytesOf(rest), .reportedLength = {}};
}

bool asksForRows(const Request &request) {
    return request.nr == IDPFW_NR_APP && request.op == kOpRows;
}

bool asksForState(const Request &request) {
    return request.nr == IDPFWD_NR_STATE && request.op == IDPFWD_OP_STATE;
}

} // namespace

bool asksForUsers(const Request &request) {
    return request.nr == IDPFW_NR_USER && request.op == kOpUsers;
}

std::optional<Reply> tableReply(const Request &request, const Tables &tables) {
    if (asksForUsers(request))
        return shown(tables.users(), tables.hidden());
    if (asksForRows(request))
        return shown(tables.rows(), tables.hidden());
    return std::nullopt;
}

int checkRequest(std::uint32_t number, const CallerHeader &header) {
    if ((number & ~0xFFU) != IDPFW_REQUEST(0))
        return ENOTTY;
    if (header.magic != IDPFW_MAGIC || header.nr != (number & 0xFFU) ||
        header.inputSize() > kMaxInput)
        return EINVAL;
    return 0;
}

RequestServer::RequestServer(Source &source) : source_(source), life_(newLife()) {}

Reply RequestServer::state() const {
    const Overflow &overflow = source_.tables.overflow();
    const std::vector<idpfwd_state> record = {
        {.life = life_,
         .overflow_users = overflow.users,
         .overflow_rows = overflow.rows,
         .overflow_packets = overflow.packets,
         .overflow_bytes = overflow.bytes,
         .capture_drops = source_.captureDrops().value_or(IDPFWD_UNKNOWN)}};
    return {.error = 0, .output = bytesOf(record), .reportedLength = {}};
}

Reply RequestServer::answer(const Request &request, pid_t caller) {
    if (asksForState(request))
        callers_.knowsLives(caller);
    const bool users = asksForUsers(request);
    if ((users || asksForRows(request)) &&
        callers_.heldBack(caller, users ? Table::kUsers : Table::kRows))
        return {};
    if (auto reply = source_.answer(request))
        return *std::move(reply);
    if (asksForState(request))
        return state();
    if (auto reply = tableReply(request, source_.tables))
        return *std::move(reply);
    return {.error = ENOTTY, .output = {}, .reportedLength = {}};
}

Reply RequestServer::serve(std::uint32_t number, const CallerHeader &header,
                           std::vector<std::uint8_t> input, pid_t caller) {
    if (const int error = checkRequest(number, header); error != 0)
        return {.error = error, .output = {}, .reportedLength = {}};
    const Request request{.nr = header.nr,
                          .op = header.op,
                          .inType = header.inType,
                          .inValue = header.inValue,
                          .input = std::move(input),
                          .outLength = header.capacity()};
    Reply reply = answer(request, caller);
    if (reply.error != 0)
        return {.error = reply.error, .output = {}, .reportedLength = {}};
    if (reply.output.size() > request.outLength)
        reply.output.resize(request.outLength);
    if (!reply.reportedLength)
        reply.reportedLength = static_cast<std::uint32_t>(reply.output.size());
    return reply;
}

} // namespace idpfwd
