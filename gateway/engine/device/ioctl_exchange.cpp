#include "engine/device/ioctl_exchange.h"

#include <algorithm>
#include <cerrno>

namespace idpfwd {
namespace {

// Answers of callers that gave up in between are dropped when there are more than these.
constexpr std::size_t kMaxAnswers = 16;

Round fail(int error) {
    return {.kind = Round::Kind::kFail, .in = {}, .out = {}, .error = error, .output = {}};
}

Round retry(std::vector<Mapping> in, std::vector<Mapping> out) {
    return {.kind = Round::Kind::kRetry,
            .in = std::move(in),
            .out = std::move(out),
            .error = 0,
            .output = {}};
}

bool tooLargeToMap(const Reply &reply) {
    return reply.output.size() + sizeof(std::uint32_t) > kMaxMapped;
}

// The counter first; only the bytes that will be written, never the caller's whole buffer.
std::vector<Mapping> wantedPieces(const CallerHeader &header, const Reply &reply) {
    std::vector<Mapping> pieces;
    if (header.usedAddress != 0)
        pieces.push_back({header.usedAddress, sizeof(std::uint32_t)});
    if (!reply.output.empty() && !tooLargeToMap(reply))
        pieces.push_back({header.outAddress, static_cast<std::uint32_t>(reply.output.size())});
    return pieces;
}

std::size_t totalSize(const std::vector<Mapping> &pieces) {
    std::size_t size = 0;
    for (const Mapping &piece : pieces)
        size += piece.size;
    return size;
}

} // namespace

Round IoctlExchange::next(const Call &call, CallerMemory &memory, RequestServer &server) {
    const Key key{call.caller, call.argument};
    if (call.in.size() < call.headerSize) {
        answers_.erase(key); // of a call that was interrupted
        return retry({{call.argument, static_cast<std::uint32_t>(call.headerSize)}}, {});
    }
    const auto waiting = answers_.find(key);
    if (waiting == answers_.end())
        return answer(call, memory, server);
    const Answer ready = std::move(waiting->second);
    answers_.erase(waiting);
    if (call.outSize != totalSize(wantedPieces(ready.header, ready.reply)))
        return fail(EIO);
    return deliver(ready, memory);
}

Round IoctlExchange::answer(const Call &call, CallerMemory &memory, RequestServer &server) {
    const auto header = decodeCallerHeader(call.in.first(call.headerSize));
    if (!header)
        return fail(EINVAL);
    if (const int error = checkRequest(call.number, *header); error != 0)
        return fail(error);
    const Mapping headerPiece{call.argument, static_cast<std::uint32_t>(call.headerSize)};
    const std::uint32_t inputSize = header->inputSize();
    std::vector<std::uint8_t> input(inputSize);
    if (call.headerSize + inputSize > kMaxMapped) {
        if (!memory.read(header->inAddress, input))
            return fail(EFAULT);
    } else if (inputSize > 0) {
        const auto mapped = call.in.subspan(call.headerSize);
        if (mapped.size() < inputSize)
            return retry({headerPiece, {header->inAddress, inputSize}}, {});
        input.assign(mapped.begin(), mapped.begin() + inputSize);
    }
    Answer made{.header = *header,
                .reply = server.serve(call.number, *header, std::move(input), call.caller),
                .number = ++answered_};
    if (made.reply.error != 0)
        return fail(made.reply.error);
    auto pieces = wantedPieces(made.header, made.reply);
    if (pieces.empty())
        return deliver(made, memory);
    if (answers_.size() >= kMaxAnswers)
        answers_.erase(std::ranges::min_element(
            answers_, {}, [](const auto &waiting) { return waiting.second.number; }));
    answers_.insert_or_assign({call.caller, call.argument}, std::move(made));
    return retry({headerPiece}, std::move(pieces));
}

Round IoctlExchange::deliver(const Answer &answer, CallerMemory &memory) {
    const CallerHeader &header = answer.header;
    const Reply &reply = answer.reply;
    Round round;
    if (header.usedAddress != 0) {
        const std::uint32_t used = reply.reportedLength.value_or(0);
        for (unsigned shift = 0; shift < 32; shift += 8)
            round.output.push_back(static_cast<std::uint8_t>(used >> shift));
    }
    if (!tooLargeToMap(reply))
        round.output.insert(round.output.end(), reply.output.begin(), reply.output.end());
    else if (!memory.write(header.outAddress, reply.output))
        return fail(EFAULT);
    return round;
}

} // namespace idpfwd
