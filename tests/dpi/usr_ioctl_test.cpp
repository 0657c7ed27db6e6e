#include "dpi/usr_ioctl.h"

#include "support/fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

class UsrIoctl : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::writeFile("/dev/idpfw", "");
        rig::onIoctl([this](int device, unsigned long request, void *argument) {
            EXPECT_EQ(device, firstDevice < 0 ? firstDevice = device : firstDevice); // none is kept
            auto *header = static_cast<forward_ioctl *>(argument);
            seen = text(request, *header);
            if (refuses) {
                errno = EPERM;
                return -1;
            }
            if (header->out != nullptr)
                memset(header->out, 0xEE, std::min(writes, header->out_len));
            if (header->out_used_len != nullptr)
                *header->out_used_len = reports;
            return 0;
        });
    }

    // A request as "nr/op", its input's and output's length, whose the used length is. Every byte
    // of the header that is not told must be zero.
    std::string text(unsigned long request, forward_ioctl &sent) {
        forward_ioctl header;
        memcpy(&header, &sent, sizeof header);
        EXPECT_EQ(request, 0xC02CBF00ul + header.nr);
        EXPECT_EQ(header.magic, 0xBFu);
        std::string result = std::to_string(header.nr) + "/" + std::to_string(header.op);
        if (header.in_type == 2 && header.in_raw == input)
            result += " in " + std::to_string(header.in_len);
        if (header.out != nullptr)
            result += " out " + std::to_string(header.out_len);
        if (header.out_used_len == &used)
            result += " caller's";
        else if (header.out_used_len != nullptr)
            result += *header.out_used_len == 0 ? " local" : " not cleared";
        header.magic = header.in_len = header.out_len = 0;
        header.nr = header.op = header.in_type = 0;
        header.in_raw = header.out = header.out_used_len = nullptr;
        forward_ioctl zero;
        memset(&zero, 0, sizeof zero);
        EXPECT_EQ(memcmp(&header, &zero, sizeof zero), 0) << result;
        return result;
    }

    // Runs a reader and keeps what it read, as long as its table is, in bytes.
    template <typename Record>
    int read(int (*reader)(Record **output), std::size_t size = 0) {
        Record *output = nullptr;
        const int result = reader(&output);
        const auto *start = reinterpret_cast<const uint8_t *>(output);
        bytes.assign(start, start + size);
        free(output);
        return result;
    }
    int readUsers() { return read(get_fw_user_list, 5760); }

    // Likewise for a list in the engine's own format.
    int readOpaque(const std::function<int(void **output)> &reader) {
        void *output = nullptr;
        const int result = reader(&output);
        const auto *start = static_cast<const uint8_t *>(output);
        bytes.assign(start, start + 30);
        free(output);
        return result;
    }

    uint32_t writes = 0;
    uint32_t reports = 0;
    int firstDevice = -1;
    bool refuses = false;
    std::string seen;
    std::vector<uint8_t> bytes;
    unsigned int used = 42;
    char input[5] = "data";
};

std::vector<uint8_t> writtenThenZero(std::size_t written, std::size_t size) {
    std::vector<uint8_t> result(written, 0xEE);
    result.resize(size);
    return result;
}

} // namespace

TEST_F(UsrIoctl, EveryCommandSendsItsExactHeaderAndTellsWhatFailed) {
    const auto domains = [this](int flag) {
        return readOpaque([&](void **out) { return get_fw_user_domain_list(out, &used, flag); });
    };
    const auto vp = [this](int flag) {
        return readOpaque([&](void **out) { return get_fw_vp_list(out, &used, flag); });
    };
    struct {
        std::function<int()> send;
        const char *header;
        int refused = -2;
    } const rows[] = {
        {[&] { return readUsers(); }, "10/1 out 5760 local"},
        {[&] { return read(get_fw_user_app_rate); }, "12/1 out 1161252 local"},
        {[&] { return read(get_fw_app_bw_clear); }, "12/4 out 774168 local"},
        {[&] { return read(get_fw_app_patrol); }, "12/3 out 612883 local"},
        {[&] { return domains(0); }, "14/3 out 680508 caller's"},
        {[&] { return domains(1); }, "14/10 out 680508 caller's"},
        {[&] { return domains(2); }, "14/0 out 680508 caller's"},
        {[&] { return domains(-1); }, "14/0 out 680508 caller's"},
        {[&] { return readOpaque([&](void **out) { return get_fw_wrs_url_list(out, &used); }); },
         "14/8 out 39504 caller's"},
        {[&] { return vp(0); }, "15/3 out 29000 caller's"},
        {[&] { return vp(1); }, "15/3 out 29000 caller's"},
        {[&] { return vp(2); }, "15/7 out 29000 caller's"},
        {[&] { return readOpaque([&](void **out) { return get_fw_anomaly_list(out, &used); }); },
         "15/11 out 9504 caller's"},
        {[&] { return readOpaque([](void **out) { return get_fw_anomaly_list(out, nullptr); }); },
         "15/11 out 9504"},
        {[] { return set_fw_user_domain_clear(); }, "14/4 local"},
        {[] { return set_fw_url_check(0); }, "14/1 local"},
        {[] { return set_fw_url_check(5); }, "14/2 local"},
        {[] { return set_fw_vp_check(0); }, "15/1 local"},
        {[] { return set_fw_vp_check(255); }, "15/2 local"},
        {[] { return _set_anomaly(0x7FFFFF0C); }, "15/12 local"},
        {[] { return set_anomaly_enable(); }, "15/9 local"},
        {[] { return set_anomaly_disable(); }, "15/8 local"},
        // The setters with input know one failure only.
        {[this] { return set_fw_app_patrol(input, 5); }, "12/2 in 5", -1},
        {[this] { return set_fw_vp(input, 3); }, "15/5 in 3", -1},
    };
    for (const auto &row : rows) {
        refuses = false;
        EXPECT_EQ(row.send(), 0) << row.header;
        EXPECT_EQ(seen, row.header);
        refuses = true;
        EXPECT_EQ(row.send(), row.refused) << row.header;
    }
    std::filesystem::remove("/dev/idpfw");
    for (const auto &row : rows)
        EXPECT_EQ(row.send(), -1) << row.header;
}

// What the kernel module reads, where pointers are as wide as the router's (44 bytes) and
// elsewhere.
TEST_F(UsrIoctl, TheHeaderHasEveryByteInItsPlace) {
    constexpr bool narrow = sizeof(void *) == 4;
    std::string sent;
    std::string expected(narrow ? 44 : 64, '\0');
    const auto put = [&](std::size_t offset, auto value) {
        memcpy(&expected[offset], &value, sizeof value);
    };
    rig::onIoctl([&](int, unsigned long, void *argument) {
        sent.assign(static_cast<const char *>(argument), expected.size());
        return 0;
    });
    void *output = nullptr;
    ASSERT_EQ(get_fw_anomaly_list(&output, &used), 0);
    expected[0] = '\xBF';
    expected[4] = 15;
    expected[5] = 11;
    put(narrow ? 16 : 24, output);
    put(narrow ? 20 : 32, &used);
    put(narrow ? 24 : 40, uint32_t{9504});
    EXPECT_EQ(sent, expected);
    free(output);

    ASSERT_EQ(set_fw_vp(input, 3), 0);
    EXPECT_EQ(sent.substr(0, 8), std::string("\xBF\0\0\0\x0F\5\0\2", 8));
    const void *const address = input;
    EXPECT_EQ(memcmp(&sent[8], &address, sizeof address), 0);
    EXPECT_EQ(sent.substr(narrow ? 12 : 16, 4), std::string("\3\0\0\0", 4));
}

TEST_F(UsrIoctl, WhatTheEngineDidNotReportAsWrittenIsZero) {
    writes = 5760;
    for (const uint32_t reported : {0u, 1u, 100u, 5759u, 5760u, 5761u, 0xFFFFFFFFu}) {
        reports = reported;
        EXPECT_EQ(readUsers(), 0);
        EXPECT_EQ(bytes, writtenThenZero(std::min(reported, 5760u), 5760)) << reported;
    }
    refuses = true;
    readUsers();
    EXPECT_EQ(bytes, writtenThenZero(0, 5760));
}

TEST_F(UsrIoctl, OpaqueListsAndTheirLengthAreLeftAsTheEngineLeavesThem) {
    const auto readVp = [&](void **out) { return get_fw_vp_list(out, &used, 2); };
    writes = 20;
    reports = 10;
    readOpaque(readVp);
    EXPECT_EQ(used, 10u);
    EXPECT_EQ(bytes, writtenThenZero(20, 30)); // nothing behind the reported length is cleared
    refuses = true;
    readOpaque(readVp);
    EXPECT_EQ(used, 10u);
}
