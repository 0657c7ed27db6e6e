#include "dpi/usr_ioctl.h"

#include "support/fixture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>

namespace {

constexpr std::size_t kUserBytes = 5760; // of the user table, the smallest of all

class UsrIoctl : public rig::Fixture {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        rig::writeFile("/dev/idpfw", "");
        rig::onIoctl([this](int device, unsigned long request, void *argument) {
            EXPECT_EQ(device, firstDevice < 0 ? firstDevice = device : firstDevice); // none is kept
            auto *header = static_cast<forward_ioctl *>(argument);
            EXPECT_EQ(request, 0xC02CBF00ul + header->nr);
            seen = text(*header);
            if (refuses)
                return -1;
            if (header->out != nullptr)
                memset(header->out, 0xEE, std::min(writes, header->out_len));
            if (header->out_used_len != nullptr)
                *header->out_used_len = reports;
            return 0;
        });
    }

    // A request as "nr/op", its input's and output's length, whose the used length is.
    [[nodiscard]] std::string text(const forward_ioctl &sent) const {
        EXPECT_EQ(sent.magic, 0xBFu);
        std::ostringstream result;
        result << static_cast<int>(sent.nr) << '/' << static_cast<int>(sent.op);
        if (sent.in_type == 2 && sent.in_raw == input)
            result << " in " << sent.in_len;
        if (sent.out != nullptr)
            result << " out " << sent.out_len;
        if (sent.out_used_len == &used)
            result << " caller's";
        else if (sent.out_used_len != nullptr)
            result << (*sent.out_used_len == 0 ? " local" : " not cleared");
        return result.str();
    }

    // Runs a reader and keeps the first bytes of what it read.
    template <typename Record, typename... Parameters, typename... Arguments>
    int read(int (*reader)(Record **output, Parameters...), Arguments... arguments) {
        Record *output = nullptr;
        const int result = reader(&output, arguments...);
        memcpy(bytes.data(), output, kUserBytes);
        free(output);
        return result;
    }

    uint32_t writes = 0;
    uint32_t reports = 0;
    int firstDevice = -1;
    bool refuses = false;
    std::string seen;
    std::vector<uint8_t> bytes = std::vector<uint8_t>(kUserBytes);
    unsigned int used = 42;
    char input[5] = "data";
};

} // namespace

TEST_F(UsrIoctl, EveryCommandSendsItsExactHeaderAndTellsWhatFailed) {
    const struct {
        std::function<int()> send;
        const char *header;
        int refused = -2;
    } rows[] = {
        {[&] { return read(get_fw_user_list); }, "10/1 out 5760 local"},
        {[&] { return read(get_fw_user_app_rate); }, "12/1 out 1161252 local"},
        {[&] { return read(get_fw_app_bw_clear); }, "12/4 out 774168 local"},
        {[&] { return read(get_fw_app_patrol); }, "12/3 out 612883 local"},
        {[&] { return read(get_fw_user_domain_list, &used, 0); }, "14/3 out 680508 caller's"},
        {[&] { return read(get_fw_user_domain_list, &used, 1); }, "14/10 out 680508 caller's"},
        {[&] { return read(get_fw_user_domain_list, &used, 2); }, "14/0 out 680508 caller's"},
        {[&] { return read(get_fw_wrs_url_list, &used); }, "14/8 out 39504 caller's"},
        {[&] { return read(get_fw_vp_list, &used, 1); }, "15/3 out 29000 caller's"},
        {[&] { return read(get_fw_vp_list, &used, 2); }, "15/7 out 29000 caller's"},
        {[&] { return read(get_fw_anomaly_list, &used); }, "15/11 out 9504 caller's"},
        {[&] { return read(get_fw_anomaly_list, nullptr); }, "15/11 out 9504"},
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

TEST_F(UsrIoctl, WhatTheEngineDidNotReportAsWrittenIsZero) {
    writes = kUserBytes;
    for (const uint32_t reported : {0u, 1u, 5759u, 5760u, 5761u, 0xFFFFFFFFu, 10u}) {
        reports = reported;
        read(get_fw_user_list);
        std::vector<uint8_t> expected(std::min(reported, writes), 0xEE);
        expected.resize(kUserBytes);
        EXPECT_EQ(bytes, expected) << reported;
    }
    read(get_fw_vp_list, &used, 2); // but an opaque list is left as the engine left it
    EXPECT_THAT(bytes, testing::Each(0xEE));
    EXPECT_EQ(used, 10u);
    refuses = true;
    read(get_fw_user_list);
    EXPECT_THAT(bytes, testing::Each(0));
}
