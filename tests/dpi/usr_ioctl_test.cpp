#include "dpi/usr_ioctl.h"

#include "support/fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::Each;

namespace {

constexpr std::size_t kPointer = sizeof(void *);

// Where the fields lie behind the common start of the header, by the width of a pointer.
constexpr std::size_t kInput = 8;
constexpr std::size_t kInputLength = 8 + kPointer;
constexpr std::size_t kOutput = kPointer == 4 ? 16 : 24;
constexpr std::size_t kUsedLength = kOutput + kPointer;
constexpr std::size_t kOutputLength = kUsedLength + kPointer;
constexpr std::size_t kHeaderSize = kPointer == 4 ? 44 : 64;

using Header = std::vector<uint8_t>;

template <typename Value>
void put(Header &header, std::size_t offset, Value value) {
    memcpy(&header[offset], &value, sizeof value);
}

template <typename Value>
Value take(const Header &header, std::size_t offset) {
    Value value;
    memcpy(&value, &header[offset], sizeof value);
    return value;
}

enum class UsedLength { kNone, kLocal, kCallers };

struct Expected {
    uint8_t nr;
    uint8_t op;
    UsedLength used_length;
    uint32_t output_length = 0;
    uint32_t input_length = 0;
};

class UsrIoctl : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        if (IsSkipped())
            return;
        rig::writeFile("/dev/idpfw", "");
        rig::onIoctl([this](int, unsigned long request, void *argument) {
            return answer(request, static_cast<forward_ioctl *>(argument));
        });
    }

    int answer(unsigned long request, forward_ioctl *header) {
        requests.push_back(request);
        headers.emplace_back(kHeaderSize);
        memcpy(headers.back().data(), header, kHeaderSize);
        if (header->out_used_len != nullptr)
            usedLengthBefore = *header->out_used_len;
        if (refuses) {
            errno = EPERM;
            return -1;
        }
        if (header->out != nullptr)
            memset(header->out, 0xEE, std::min(writes, header->out_len));
        if (header->out_used_len != nullptr)
            *header->out_used_len = reports;
        return 0;
    }

    // The last header must be exactly this, each byte that is not named zero.
    void expectHeader(const Expected &expected, const void *output, const void *callersUsedLength) {
        ASSERT_FALSE(headers.empty());
        const Header &seen = headers.back();
        const void *used = take<const void *>(seen, kUsedLength);
        switch (expected.used_length) {
        case UsedLength::kNone:
            EXPECT_EQ(used, nullptr);
            break;
        case UsedLength::kLocal:
            EXPECT_NE(used, nullptr);
            EXPECT_NE(used, callersUsedLength);
            EXPECT_EQ(usedLengthBefore, 0u);
            break;
        case UsedLength::kCallers:
            EXPECT_EQ(used, callersUsedLength);
            break;
        }
        Header bytes(kHeaderSize);
        bytes[0] = 0xBF;
        bytes[4] = expected.nr;
        bytes[5] = expected.op;
        if (expected.input_length != 0) {
            bytes[7] = 2;
            put(bytes, kInput, static_cast<const void *>(input));
            put(bytes, kInputLength, expected.input_length);
        }
        put(bytes, kOutput, output);
        put(bytes, kUsedLength, used);
        put(bytes, kOutputLength, expected.output_length);
        EXPECT_EQ(seen, bytes);
        EXPECT_EQ(requests.back(), 0xC02CBF00ul + expected.nr);
    }

    uint32_t writes = 0;
    uint32_t reports = 0;
    bool refuses = false;
    char input[5] = "data";
    std::vector<unsigned long> requests;
    std::vector<Header> headers;
    uint32_t usedLengthBefore = 77;
};

template <typename Record>
using Freed = std::unique_ptr<Record, decltype(&free)>;

// A reader of records, with its result and its buffer as bytes.
template <typename Record>
struct TableReader {
    int (*read)(Record **output);
    std::size_t size;

    std::pair<int, std::vector<uint8_t>> operator()() const {
        Record *output = nullptr;
        const int result = read(&output);
        const Freed<Record> owner(output, free);
        if (output == nullptr)
            return {result, {}};
        const auto *bytes = reinterpret_cast<const uint8_t *>(output);
        return {result, {bytes, bytes + size}};
    }
};

constexpr TableReader<devid_user_entry> kReadUsers{get_fw_user_list, 5760};

} // namespace

TEST_F(UsrIoctl, ReadersOfRecordsSendTheirExactHeader) {
    const auto check = [this](auto reader, Expected expected) {
        reader();
        expectHeader(expected, take<const void *>(headers.back(), kOutput), nullptr);
        EXPECT_NE(take<const void *>(headers.back(), kOutput), nullptr);
    };
    check(kReadUsers, {10, 1, UsedLength::kLocal, 5760});
    check(TableReader<devid_app_rate_entry>{get_fw_user_app_rate, 1161252},
          {12, 1, UsedLength::kLocal, 1161252});
    check(TableReader<devid_app_bw_entry>{get_fw_app_bw_clear, 774168},
          {12, 4, UsedLength::kLocal, 774168});
    check(TableReader<devid_app_patrol_list_entry>{get_fw_app_patrol, 612883},
          {12, 3, UsedLength::kLocal, 612883});
}

TEST_F(UsrIoctl, WhatTheEngineDidNotReportAsWrittenIsZero) {
    writes = 5760;
    for (const uint32_t used : {0u, 1u, 90u, 100u, 5759u, 5760u, 5761u, 0xFFFFFFFFu}) {
        reports = used;
        const auto [result, bytes] = kReadUsers();
        EXPECT_EQ(result, 0);
        const auto valid = bytes.begin() + std::min(used, 5760u);
        EXPECT_THAT(std::vector<uint8_t>(bytes.begin(), valid), Each(0xEE)) << used;
        EXPECT_THAT(std::vector<uint8_t>(valid, bytes.end()), Each(0)) << used;
    }
}

TEST_F(UsrIoctl, AFailedRequestLeavesAZeroBufferAndTellsWhatFailed) {
    refuses = true;
    auto [refused, bytes] = kReadUsers();
    EXPECT_EQ(refused, -2);
    EXPECT_EQ(bytes, std::vector<uint8_t>(5760));

    std::filesystem::remove("/dev/idpfw");
    requests.clear();
    auto [absent, bytesOfAbsent] = kReadUsers();
    EXPECT_EQ(absent, -1);
    EXPECT_EQ(bytesOfAbsent, std::vector<uint8_t>(5760));
    EXPECT_TRUE(requests.empty());
}

TEST_F(UsrIoctl, EveryRequestClosesTheDevice) {
    const auto openDescriptor = [] {
        const int descriptor = dup(0);
        close(descriptor);
        return descriptor;
    };
    const int before = openDescriptor();
    kReadUsers();
    refuses = true;
    kReadUsers();
    EXPECT_EQ(openDescriptor(), before);
}

TEST_F(UsrIoctl, OpaqueListsHandTheCallersLengthToTheEngine) {
    unsigned int used = 0;
    struct {
        int (*read)(void **output, unsigned int *used, int flag);
        int flag;
        Expected expected;
    } const rows[] = {
        {get_fw_user_domain_list, 0, {14, 3, UsedLength::kCallers, 680508}},
        {get_fw_user_domain_list, 1, {14, 10, UsedLength::kCallers, 680508}},
        {get_fw_user_domain_list, 2, {14, 0, UsedLength::kCallers, 680508}},
        {get_fw_user_domain_list, -1, {14, 0, UsedLength::kCallers, 680508}},
        {[](void **out, unsigned int *length, int) { return get_fw_wrs_url_list(out, length); },
         0,
         {14, 8, UsedLength::kCallers, 39504}},
        {get_fw_vp_list, 0, {15, 3, UsedLength::kCallers, 29000}},
        {get_fw_vp_list, 1, {15, 3, UsedLength::kCallers, 29000}},
        {get_fw_vp_list, 2, {15, 7, UsedLength::kCallers, 29000}},
        {[](void **out, unsigned int *length, int) { return get_fw_anomaly_list(out, length); },
         0,
         {15, 11, UsedLength::kCallers, 9504}},
    };
    writes = 20;
    reports = 10;
    for (const auto &row : rows) {
        void *output = nullptr;
        used = 0;
        EXPECT_EQ(row.read(&output, &used, row.flag), 0);
        const Freed<void> owner(output, free);
        expectHeader(row.expected, output, &used);
        EXPECT_EQ(used, 10u);
        const auto *bytes = static_cast<const uint8_t *>(output);
        EXPECT_EQ(bytes[19], 0xEE) << "nothing behind the reported length is cleared";
        EXPECT_EQ(bytes[20], 0);
    }
}

TEST_F(UsrIoctl, OpaqueListsLeaveTheCallersLengthAloneWhenTheRequestFails) {
    void *output = nullptr;
    EXPECT_EQ(get_fw_anomaly_list(&output, nullptr), 0);
    expectHeader({15, 11, UsedLength::kNone, 9504}, output, nullptr);
    free(output);
    refuses = true;
    unsigned int used = 42;
    EXPECT_EQ(get_fw_vp_list(&output, &used, 2), -2);
    EXPECT_EQ(used, 42u);
    EXPECT_THAT(std::vector<char>(static_cast<char *>(output), static_cast<char *>(output) + 29000),
                Each(0));
    free(output);
}

TEST_F(UsrIoctl, SwitchesAndInputsSendTheirExactHeader) {
    const std::pair<std::function<int()>, Expected> rows[] = {
        {[] { return set_fw_user_domain_clear(); }, {14, 4, UsedLength::kLocal}},
        {[] { return set_fw_url_check(0); }, {14, 1, UsedLength::kLocal}},
        {[] { return set_fw_url_check(5); }, {14, 2, UsedLength::kLocal}},
        {[] { return set_fw_vp_check(0); }, {15, 1, UsedLength::kLocal}},
        {[] { return set_fw_vp_check(255); }, {15, 2, UsedLength::kLocal}},
        {[] { return _set_anomaly(0x7FFFFF0C); }, {15, 12, UsedLength::kLocal}},
        {[] { return _set_anomaly(-1); }, {15, 255, UsedLength::kLocal}},
        {[] { return set_anomaly_enable(); }, {15, 9, UsedLength::kLocal}},
        {[] { return set_anomaly_disable(); }, {15, 8, UsedLength::kLocal}},
        {[this] { return set_fw_app_patrol(input, 5); }, {12, 2, UsedLength::kNone, 0, 5}},
        {[this] { return set_fw_vp(input, 3); }, {15, 5, UsedLength::kNone, 0, 3}},
    };
    for (const auto &[command, expected] : rows) {
        refuses = false;
        EXPECT_EQ(command(), 0);
        expectHeader(expected, nullptr, nullptr);
        // The setters with input know one failure only.
        refuses = true;
        EXPECT_EQ(command(), expected.used_length == UsedLength::kNone ? -1 : -2);
    }
    std::filesystem::remove("/dev/idpfw");
    for (const auto &[command, expected] : rows)
        EXPECT_EQ(command(), -1);
}
