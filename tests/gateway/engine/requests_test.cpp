// The callers' headers, and what their requests are answered with.
#include "engine/requests.h"

#include "echo_source.h"
#include "engine/engine_state.h"
#include "engine/scenario/scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <tuple>
#include <unistd.h>

namespace idpfwd {
namespace {

constexpr CallerHeader kAsksForState{.magic = IDPFW_MAGIC,
                                     .nr = IDPFWD_NR_STATE,
                                     .op = IDPFWD_OP_STATE,
                                     .outAddress = 8,
                                     .outCapacity = sizeof(idpfwd_state)};

TEST(CallerHeader, OfEitherWidthIsReadAsItLiesInMemory) {
    std::vector<std::uint8_t> bytes(64); // each with its own place as its value
    std::iota(bytes.begin(), bytes.end(), 0);
    const std::tuple<std::size_t, std::uint64_t, std::uint32_t, std::uint64_t, std::uint64_t,
                     std::uint32_t>
        rows[] = {{kHeaderSize32, 0x0B0A0908, 0x0F0E0D0C, 0x13121110, 0x17161514, 0x1B1A1918},
                  {kHeaderSize64, 0x0F0E0D0C0B0A0908, 0x13121110, 0x1F1E1D1C1B1A1918,
                   0x2726252423222120, 0x2B2A2928}};
    for (const auto &[size, in, inLength, out, used, capacity] : rows) {
        const auto header = decodeCallerHeader(std::span(bytes).first(size));
        ASSERT_TRUE(header);
        EXPECT_EQ(header->magic, 0x03020100U);
        EXPECT_EQ(header->nr, 4);
        EXPECT_EQ(header->op, 5);
        EXPECT_EQ(header->inType, 7);
        EXPECT_EQ(header->inValue, 0x0B0A0908U);
        EXPECT_EQ(header->inAddress, in);
        EXPECT_EQ(header->inLength, inLength);
        EXPECT_EQ(header->inputSize(), 0U) << "of type 2 alone";
        EXPECT_EQ(header->outAddress, out);
        EXPECT_EQ(header->usedAddress, used);
        EXPECT_EQ(header->capacity(), capacity);
    }
    EXPECT_FALSE(decodeCallerHeader(std::span(bytes).first(28)));
}

TEST(Requests, AreCheckedAndTheirOutputIsCutToTheCallersCapacityInBytes) {
    Scenario source(parseScenario(R"({"steps": [{"generate": {"users": 1}}]})"));
    RequestServer server(source);
    const auto serve = [&](std::uint32_t number, const CallerHeader &asked) {
        return server.serve(number, asked, {}, getpid());
    };
    serve(IDPFWD_REQUEST_STATE, kAsksForState); // now it is a caller that is not held back
    CallerHeader header{
        .magic = 191, .nr = 10, .op = 1, .inLength = kMaxInput + 1, .outAddress = 8};
    for (const std::uint32_t capacity : {0U, 1U, 89U, 90U}) {
        header.outCapacity = capacity;
        const Reply reply = serve(0xC02CBF0A, header);
        EXPECT_EQ(reply.output.size(), capacity);
        EXPECT_EQ(reply.reportedLength, capacity);
    }
    header.outAddress = 0;
    EXPECT_EQ(serve(0xC02CBF0A, header).output.size(), 0U) << "no buffer at all";
    EXPECT_EQ(serve(0xC040BF0A, header).error, ENOTTY) << "a header of another size";
    EXPECT_EQ(serve(0xC02CBF0C, header).error, EINVAL) << "for another module";
    header.inType = 2;
    EXPECT_EQ(serve(0xC02CBF0A, header).error, EINVAL) << "too much input";
}

TEST(Requests, TablesAreEmptyForThoseHeldBackAndWithoutThoseHidden) {
    Echo source;
    source.tables.addTraffic({2, 1}, 1, 1, {.up_bytes = 60}, {.milliseconds = 1000});
    source.tables.forgetUnseen({.milliseconds = 3000}, 1);
    source.tables.addTraffic({2, 1}, 1, 1, {.up_bytes = 60}, {.milliseconds = 4000}); // back
    source.tables.addTraffic({2, 2}, 1, 1, {.up_bytes = 60}, {.milliseconds = 4000});
    RequestServer server(source);
    const auto lengths = [&] {
        std::vector<std::size_t> sizes;
        for (const std::uint8_t nr : {IDPFW_NR_USER, IDPFW_NR_APP})
            sizes.push_back(
                server
                    .serve(IDPFW_REQUEST(nr),
                           {.magic = 191, .nr = nr, .op = 1, .outAddress = 8, .outCapacity = 1000},
                           {}, getpid())
                    .output.size());
        return sizes;
    };
    using Sizes = std::vector<std::size_t>;
    EXPECT_EQ(lengths(), (Sizes{0, 0}));
    EXPECT_EQ(lengths(), (Sizes{0, 0}));
    EXPECT_EQ(lengths(), (Sizes{sizeof(devid_user_entry), sizeof(devid_app_rate_entry)}));
}

TEST(Requests, TheStateNamesTheLifeAndWhatCouldNotBeCounted) {
    class Crowded final : public Echo {
        [[nodiscard]] std::optional<std::uint64_t> captureDrops() const override { return 5; }
    } source;
    const auto state = [](RequestServer &server) {
        idpfwd_state record{};
        const Reply reply = server.serve(IDPFWD_REQUEST_STATE, kAsksForState, {}, 0);
        EXPECT_EQ(reply.reportedLength, sizeof record);
        memcpy(&record, reply.output.data(), std::min(sizeof record, reply.output.size()));
        return record;
    };
    RequestServer server(source), next(source);
    EXPECT_NE(state(server).life, 0U);
    EXPECT_EQ(state(server).life, std::uint64_t{state(server).life});
    EXPECT_NE(state(server).life, std::uint64_t{state(next).life});
    for (std::uint8_t device = 0; device < kMaxUsers + 2; ++device)
        source.tables.addTraffic({2, device}, 1, 1, {.up_bytes = 60, .up_packets = 3}, {});
    EXPECT_EQ(state(server).overflow_users, 2U);
    EXPECT_EQ(state(server).overflow_packets, 6U);
    EXPECT_EQ(state(server).overflow_bytes, 120U);
    EXPECT_EQ(state(server).capture_drops, 5U);
    Echo quiet;
    RequestServer playing(quiet);
    EXPECT_EQ(state(playing).capture_drops, IDPFWD_UNKNOWN);
    CallerHeader other = kAsksForState;
    ++other.op;
    EXPECT_EQ(server.serve(IDPFWD_REQUEST_STATE, other, {}, 0).error, ENOTTY);
}

} // namespace
} // namespace idpfwd
