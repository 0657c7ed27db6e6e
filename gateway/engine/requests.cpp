#include "engine/requests.h"

#include "dpi/usr_ioctl.h"

#include <cerrno>

namespace idpfwd {
namespace {

constexpr std::uint8_t kOpUsers = 1;
constexpr std::uint8_t kOpRows = 1;

template <typename Record>
std::vector<std::uint8_t> bytesOf(const std::vector<Record> &records) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(records.data());
    return {first, first + records.size() * sizeof(Record)};
}

bool asksForRows(const Request &request) {
    return request.nr == IDPFW_NR_APP && request.op == kOpRows;
}

Reply answer(const Request &request, Source &source) {
    if (auto reply = source.answer(request))
        return *std::move(reply);
    if (auto reply = tableReply(request, source.tables))
        return *std::move(reply);
    return {.error = ENOTTY, .output = {}, .reportedLength = {}};
}

} // namespace

bool asksForUsers(const Request &request) {
    return request.nr == IDPFW_NR_USER && request.op == kOpUsers;
}

std::optional<Reply> tableReply(const Request &request, const Tables &tables) {
    if (asksForUsers(request))
        return Reply{.error = 0, .output = bytesOf(tables.users()), .reportedLength = {}};
    if (asksForRows(request))
        return Reply{.error = 0, .output = bytesOf(tables.rows()), .reportedLength = {}};
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

Reply serve(std::uint32_t number, const CallerHeader &header, std::vector<std::uint8_t> input,
            Source &source) {
    if (const int error = checkRequest(number, header); error != 0)
        return {.error = error, .output = {}, .reportedLength = {}};
    const Request request{.nr = header.nr,
                          .op = header.op,
                          .inType = header.inType,
                          .inValue = header.inValue,
                          .input = std::move(input),
                          .outLength = header.capacity()};
    Reply reply = answer(request, source);
    if (reply.error != 0)
        return {.error = reply.error, .output = {}, .reportedLength = {}};
    if (reply.output.size() > request.outLength)
        reply.output.resize(request.outLength);
    if (!reply.reportedLength)
        reply.reportedLength = static_cast<std::uint32_t>(reply.output.size());
    return reply;
}

} // namespace idpfwd
