#include "board/bd_util.h"

#include "board/flash_sim.h"
#include "support/fixture.h"

namespace {

class BoardFields : public rig::Fixture {
  protected:
    void SetUp() override {
        rig::Fixture::SetUp();
        if (!IsSkipped())
            flash_.emplace(0x10000);
    }

    // Runs a write that must be refused with this message and must not erase or write.
    void expectRefused(const std::string &message, const std::function<int()> &write) {
        flash_->forget();
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(write(), -1); }), message);
        EXPECT_TRUE(flash_->calls().empty()) << message;
    }

    std::optional<rig::FlashSim> flash_;
};

} // namespace

TEST_F(BoardFields, AReaderIsBoundedByItsSize) {
    ASSERT_EQ(bd_write_sn(std::string(32, 'x').c_str()), 0);
    ASSERT_EQ(bd_write_board_id("abcd"), 0);
    std::vector<char> out(3, 'o'); // one more than is asked for, but for the identifier
    EXPECT_EQ(bd_read_sn(out.data(), 2), 0);
    EXPECT_STREQ(out.data(), "xx");
    EXPECT_EQ(bd_read_board_id(out.data(), 3), 0);
    EXPECT_STREQ(out.data(), "ab");
    EXPECT_EQ(bd_read_sn(out.data(), -1), -1);
    EXPECT_EQ(bd_read_board_id(out.data(), 0), -1);
    expectRefused("", [] { return bd_write_sn(nullptr); });
}

TEST_F(BoardFields, TheAddressesLieBetweenIdentifierAndSerialNumber) {
    const unsigned char mac[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0};
    ASSERT_EQ(bd_write_eth_mac(mac, mac + 6), 0);
    EXPECT_EQ(flash_->contents().substr(63, 14), 'o' + std::string(mac, mac + 12) + 'o');
    unsigned char out[12];
    EXPECT_EQ(bd_read_eth_mac(out, out + 6), 0);
    EXPECT_TRUE(std::equal(mac, mac + 12, out));
    expectRefused("", [&] { return bd_write_eth_mac(mac, nullptr); });
}

TEST_F(BoardFields, APinHasEightDigitsOfWhichTheLastChecks) {
    char out[9];
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(bd_read_pin(out, 8), -1); }),
              "PIN number not found!");
    const char *const wrong[][2] = {
        {"1234567", "length error (8 digits)\n"},  {"123456700", "length error (8 digits)\n"},
        {"1234567a", "format error (8 digits)\n"}, {"-1234567", "format error (8 digits)\n"},
        {"12345678", "checksum failed!"},          {"21345670", "checksum failed!"}};
    for (const auto &row : wrong)
        expectRefused(row[1], [&] { return bd_write_pin(row[0]); });
    for (const char *pin : {"12345670", "99999995"}) {
        ASSERT_EQ(bd_write_pin(pin), 0);
        EXPECT_EQ(bd_read_pin(out, 8), 0);
        EXPECT_STREQ(out, pin);
        EXPECT_EQ(flash_->contents().substr(108, 9), std::string(pin) + "o");
    }
}

TEST_F(BoardFields, WirelessTextsKeepTheirRulesOnBothBands) {
    const struct {
        int (*write)(const char *text, int band);
        int (*read)(char *out, int size, int band);
        int firstRecord;
        std::string shortest, longest, length, characters;
    } texts[] = {{bd_write_ssid, bd_read_ssid, 1, "", std::string(32, ' '),
                  "Invalid SSID length. Max 32 chars!\n", "Invalid chars in SSID!"},
                 {bd_write_passphrase, bd_read_passphrase, 2, "12345678", std::string(63, '~'),
                  "Invalid Passphrase length. 8 - 63 chars!\n", "Invalid chars in passphrase!"}};
    for (const auto &text : texts) {
        char out[64];
        for (const int band : {2, 1}) {
            ASSERT_EQ(text.write(text.longest.c_str(), band), 0);
            EXPECT_EQ(text.read(out, 64, band), 0);
            EXPECT_EQ(out, text.longest);
            ASSERT_EQ(text.write(text.shortest.c_str(), band), 0);
            uint32_t length = 0;
            EXPECT_EQ(bd_read_record(text.firstRecord + (band == 2 ? 2 : 0), out, &length, 64), 0);
            EXPECT_EQ(std::string(out, length), text.shortest + '\0');
        }
        expectRefused(text.length, [&] { return text.write((text.longest + "x").c_str(), 1); });
        for (const char *wrong : {"1234567\x1f", "1234567\x7f", "1234567\xe4"})
            expectRefused(text.characters, [&] { return text.write(wrong, 2); });
    }
    expectRefused(texts[1].length, [] { return bd_write_passphrase("1234567", 1); });
}

TEST_F(BoardFields, AWirelessTextThatBreaksTheRulesIsNotRead) {
    const struct {
        int record;
        std::string data;
        int size, result;
    } rows[] = {{1, std::string(33, 'x'), 64, -1},
                {1, "a\tb", 64, -1},
                {1, "abc", 3, 0}, // without a terminator: cut to "ab"
                {1, "", 0, -1},
                {2, "1234567", 64, -1},
                {2, std::string(64, 'x'), 80, -1}};
    for (const auto &row : rows) {
        std::vector<char> out(80, 'o');
        ASSERT_EQ(bd_write_record(row.record, row.data.data(), static_cast<int>(row.data.size())),
                  0);
        const auto read = row.record == 1 ? bd_read_ssid : bd_read_passphrase;
        EXPECT_EQ(read(out.data(), row.size, 1), row.result) << row.data;
        EXPECT_TRUE(row.result != 0 || row.data.starts_with(out.data())) << out.data();
    }
}
