// The callers' headers, and what their requests are answered with.
#include "engine/requests.h"

#include "echo_source.h"
#include "engine/engine_state.h"
#include "engine/scenario/scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace idpfwd {
namespace {

constexpr CallerHeader kAsksForState{.magic = IDPFW_MAGIC,
                                     .nr = IDPFWD_NR_STATE,
                                     .op = IDPFWD_OP_STATE,
                                     .outAddress = 8,
                                     .outCapacity = sizeof(idpfwd_state)};

TEST(CallerHeader, OfA32BitCallerIsReadAsItLiesInMemory) {
    std::vector<std::uint8_t> bytes = {0xBF, 0,    0,    0,    12,   2,    0,    2,    0x10, 0x20,
                                       0x30, 0x40, 5,    1,    0,    0,    0x44, 0x33, 0x22, 0x11,
                                       0x88, 0x77, 0x66, 0x55, 0x80, 0x16, 0,    0};
    EXPECT_FALSE(decodeCallerHeader(bytes));
    bytes.resize(44);
    const auto header = decodeCallerHeader(bytes);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->magic, 191U);
    EXPECT_EQ(header->nr, 12);
    EXPECT_EQ(header->op, 2);
    EXPECT_EQ(header->inAddress, 0x40302010U);
    EXPECT_EQ(header->inputSize(), 261U);
    EXPECT_EQ(header->outAddress, 0x11223344U);
    EXPECT_EQ(header->usedAddress, 0x55667788U);
    EXPECT_EQ(header->capacity(), 5760U);
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
    Scenario scenario(parseScenario(R"({"steps": [{"generate": {"users": 1}}]})"));
    RequestServer playing(scenario);
    EXPECT_EQ(state(playing).capture_drops, IDPFWD_UNKNOWN);
}

} // namespace
} // namespace idpfwd
