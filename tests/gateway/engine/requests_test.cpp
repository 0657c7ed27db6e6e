// The callers' headers, and what their requests are answered with.
#include "engine/requests.h"

#include "engine/scenario/scenario.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace idpfwd {
namespace {

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
    CallerHeader header{
        .magic = 191, .nr = 10, .op = 1, .inLength = kMaxInput + 1, .outAddress = 8};
    for (const std::uint32_t capacity : {0U, 1U, 89U, 90U}) {
        header.outCapacity = capacity;
        const Reply reply = serve(0xC02CBF0A, header, {}, source);
        EXPECT_EQ(reply.output.size(), capacity);
        EXPECT_EQ(reply.reportedLength, capacity);
    }
    header.outAddress = 0;
    EXPECT_EQ(serve(0xC02CBF0A, header, {}, source).output.size(), 0U) << "no buffer at all";
    EXPECT_EQ(serve(0xC040BF0A, header, {}, source).error, ENOTTY) << "a header of another size";
    EXPECT_EQ(serve(0xC02CBF0C, header, {}, source).error, EINVAL) << "for another module";
    header.inType = 2;
    EXPECT_EQ(serve(0xC02CBF0A, header, {}, source).error, EINVAL) << "too much input";
}

} // namespace
} // namespace idpfwd
