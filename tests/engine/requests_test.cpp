// The callers' headers, and what their requests are answered with.
#include "engine/requests.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace idpfwd {
namespace {

// Has tables and nothing else.
class TablesOnly final : public Source {
  public:
    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override { return -1; }
    void work() override {}
    [[nodiscard]] bool finished() const override { return false; }
};

constexpr CallerHeader kUserList{
    .magic = 191, .nr = 10, .op = 1, .outAddress = 8, .outCapacity = 5760};

TEST(CallerHeader, BothLayoutsGiveTheSameFields) {
    const std::vector<std::uint8_t> narrow = {
        0xBF, 0,    0,    0,    12,   2,    0,    2,    0x10, 0x20, 0x30, 0x40, 5, 1, 0,
        0,    0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55, 0x80, 0x16, 0,    0, 0, 0,
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0, 0};
    std::vector<std::uint8_t> wide(64);
    std::copy_n(narrow.begin(), 12, wide.begin());          // up to the input's low half
    std::copy_n(narrow.begin() + 12, 4, wide.begin() + 16); // in_len
    std::copy_n(narrow.begin() + 16, 4, wide.begin() + 24); // out
    std::copy_n(narrow.begin() + 20, 4, wide.begin() + 32); // out_used_len
    std::copy_n(narrow.begin() + 24, 4, wide.begin() + 40); // out_len
    for (const auto &bytes : {narrow, wide}) {
        const auto header = decodeCallerHeader(bytes);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->magic, 191U);
        EXPECT_EQ(header->nr, 12);
        EXPECT_EQ(header->op, 2);
        EXPECT_EQ(header->inputSize(), 261U);
        EXPECT_EQ(header->inAddress, 0x40302010U);
        EXPECT_EQ(header->outAddress, 0x11223344U);
        EXPECT_EQ(header->usedAddress, 0x55667788U);
        EXPECT_EQ(header->capacity(), 5760U);
    }
    wide[12] = 1; // the high halves of pointers
    wide[31] = 0x7F;
    EXPECT_EQ(decodeCallerHeader(wide)->inAddress, 0x140302010U);
    EXPECT_EQ(decodeCallerHeader(wide)->outAddress, 0x7F00000011223344U);
    EXPECT_FALSE(decodeCallerHeader(std::span(wide).first(48)));
}

TEST(CallerHeader, OurOwnHeaderIsReadAsItLiesInMemory) {
    std::uint32_t used = 0;
    forward_ioctl own{};
    own.magic = IDPFW_MAGIC;
    own.out = &used;
    own.out_used_len = &used;
    own.out_len = 4;
    std::vector<std::uint8_t> bytes(sizeof own);
    memcpy(bytes.data(), &own, sizeof own);
    const auto header = decodeCallerHeader(bytes);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->outAddress, reinterpret_cast<std::uintptr_t>(&used));
    EXPECT_EQ(header->usedAddress, reinterpret_cast<std::uintptr_t>(&used));
    EXPECT_EQ(header->capacity(), 4U);
    EXPECT_EQ(header->inputSize(), 0U);
}

TEST(Requests, OutputIsCutToTheCallersCapacityInBytes) {
    TablesOnly source;
    source.tables.seeUser({1, 2, 3, 4, 5, 6}, {});
    CallerHeader header = kUserList;
    for (const std::uint32_t capacity : {0U, 1U, 89U, 90U}) {
        header.outCapacity = capacity;
        const Reply reply = serve(0xC02CBF0A, header, {}, source);
        EXPECT_EQ(reply.output.size(), capacity);
        EXPECT_EQ(reply.reportedLength, capacity);
    }
    header.outAddress = 0;
    EXPECT_EQ(serve(0xC02CBF0A, header, {}, source).output.size(), 0U) << "no buffer at all";
}

TEST(Requests, WhatCannotBeServedHasItsErrno) {
    TablesOnly source;
    struct Case {
        CallerHeader header;
        std::uint32_t number;
        int error;
    };
    const Case cases[] = {
        {{.magic = 191, .nr = 14, .op = 8}, 0xC02CBF0E, ENOTTY},
        {{.magic = 191, .nr = 10, .op = 2}, 0xC02CBF0A, ENOTTY},
        {{.magic = 191, .nr = 99, .op = 1}, 0xC02CBF63, ENOTTY},
        {kUserList, 0xC040BF0A, ENOTTY}, // another size in the number
        {kUserList, 0x5413, ENOTTY},
        {{.magic = 190, .nr = 10, .op = 1}, 0xC02CBF0A, EINVAL},
        {{.magic = 191, .nr = 12, .op = 1}, 0xC02CBF0A, EINVAL},
        {{.magic = 191, .nr = 12, .op = 2, .inType = 2, .inLength = kMaxInput + 1},
         0xC02CBF0C,
         EINVAL},
    };
    for (const Case &each : cases)
        EXPECT_EQ(serve(each.number, each.header, {}, source).error, each.error)
            << std::hex << each.number << " nr " << int{each.header.nr};
}

} // namespace
} // namespace idpfwd
