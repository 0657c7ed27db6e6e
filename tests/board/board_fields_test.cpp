#include "board/bd_util.h"

#include "board/flash_sim.h"
#include "support/fixture.h"

using testing::IsEmpty;

namespace {

class BoardFields : public rig::Fixture {
  protected:
    void SetUp() override {
        rig::Fixture::SetUp();
        if (!IsSkipped())
            flash_.emplace(0x10000);
    }

    // Runs a write that must be refused with this message and must not erase or write.
    template <typename Write>
    void expectRefused(const std::string &message, Write write) {
        flash_->forget();
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(write(), -1); }), message);
        EXPECT_THAT(flash_->calls(), IsEmpty()) << message;
    }

    std::optional<rig::FlashSim> flash_;
};

struct TextField {
    int (*read)(char *out, int size);
    int (*write)(const char *text);
    std::size_t offset, width, limit;
    const char *message;
};

constexpr TextField kTextFields[] = {
    {bd_read_board_id, bd_write_board_id, 0, 64, 63, "Board ID too long. Max 64 chars!\n"},
    {bd_read_sn, bd_write_sn, 76, 32, 32, "serial number too long. Max 32 chars!\n"},
    {bd_read_hw_rev, bd_write_hw_rev, 120, 16, 16, "HW rev too long. Max 16 chars!\n"},
    {bd_read_sw_feature, bd_write_sw_feature, 136, 4, 4, "SW feature too long. Max 4 chars!\n"},
};

} // namespace

TEST_F(BoardFields, ATextFillsItsFieldAndNothingElse) {
    for (const TextField &field : kTextFields) {
        std::string expected = flash_->contents();
        const std::string longest(field.limit, 'x');
        for (const std::string &text : {longest, std::string("abcd"), std::string("abc")}) {
            ASSERT_EQ(field.write(text.c_str()), 0);
            expected.replace(field.offset, field.width,
                             text + std::string(field.width - text.size(), '\0'));
            EXPECT_TRUE(flash_->contents() == expected) << field.message;
            char out[80];
            EXPECT_EQ(field.read(out, sizeof out - 1), 0);
            EXPECT_EQ(out, text);
        }
        expectRefused(field.message, [&] { return field.write((longest + "y").c_str()); });
        expectRefused("", [&] { return field.write(nullptr); });
        std::vector<char> out(3, 'o'); // one more than is asked for, but for the identifier
        EXPECT_EQ(field.read(out.data(), field.offset == 0 ? 3 : 2), 0);
        EXPECT_STREQ(out.data(), "ab");
        EXPECT_EQ(field.read(out.data(), -1), -1);
        EXPECT_EQ(field.read(nullptr, 3), -1);
    }
    char one = 'o';
    EXPECT_EQ(bd_read_sn(&one, 0), 0);
    EXPECT_EQ(one, '\0');
    EXPECT_EQ(bd_read_board_id(&one, 0), -1);
}

TEST_F(BoardFields, TheAddressesLieBetweenIdentifierAndSerialNumber) {
    std::string expected = flash_->contents();
    const unsigned char first[] = {0, 1, 2, 3, 4, 5};
    const unsigned char second[] = {6, 7, 8, 9, 10, 0};
    ASSERT_EQ(bd_write_eth_mac(first, second), 0);
    expected.replace(64, 12, std::string("\0\1\2\3\4\5\6\7\x8\x9\xA\0", 12));
    EXPECT_TRUE(flash_->contents() == expected);
    unsigned char out[12];
    EXPECT_EQ(bd_read_eth_mac(out, out + 6), 0);
    EXPECT_EQ(std::string(out, out + 12), expected.substr(64, 12));
    expectRefused("", [&] { return bd_write_eth_mac(first, nullptr); });
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
    for (const char *pin : {"12345670", "00000000", "99999995"}) {
        ASSERT_EQ(bd_write_pin(pin), 0);
        EXPECT_EQ(bd_read_pin(out, 8), 0);
        EXPECT_STREQ(out, pin);
        EXPECT_EQ(flash_->contents().substr(108, 9), std::string(pin) + "o");
    }
}

TEST_F(BoardFields, WirelessTextsKeepTheirRulesOnBothBands) {
    const std::string ssid32(32, ' ');
    const std::string phrase63(63, '~');
    char out[64];
    for (const int band : {2, 1}) {
        ASSERT_EQ(bd_write_ssid(ssid32.c_str(), band), 0);
        ASSERT_EQ(bd_write_passphrase(phrase63.c_str(), band), 0);
        EXPECT_EQ(bd_read_ssid(out, 33, band), 0);
        EXPECT_EQ(out, ssid32);
        EXPECT_EQ(bd_read_passphrase(out, 64, band), 0);
        EXPECT_EQ(out, phrase63);
        ASSERT_EQ(bd_write_ssid("", band), 0);
        ASSERT_EQ(bd_write_passphrase("12345678", band), 0);
    }
    for (const int record : {1, 2, 3, 4}) {
        uint32_t length = 0;
        EXPECT_EQ(bd_read_record(record, out, &length, sizeof out), 0);
        EXPECT_EQ(std::string(out, length),
                  record % 2 == 1 ? std::string(1, '\0') : std::string("12345678\0", 9));
    }
    const std::string ssidLength = "Invalid SSID length. Max 32 chars!\n";
    const std::string phraseLength = "Invalid Passphrase length. 8 - 63 chars!\n";
    expectRefused(ssidLength, [&] { return bd_write_ssid((ssid32 + "x").c_str(), 1); });
    expectRefused("Invalid chars in SSID!", [] { return bd_write_ssid("a\x1f", 1); });
    expectRefused("Invalid chars in SSID!", [] { return bd_write_ssid("\x7f", 2); });
    expectRefused(phraseLength, [] { return bd_write_passphrase("1234567", 1); });
    expectRefused(phraseLength, [&] { return bd_write_passphrase((phrase63 + "x").c_str(), 1); });
    expectRefused("Invalid chars in passphrase!",
                  [] { return bd_write_passphrase("1234567\xe4", 2); });
}

TEST_F(BoardFields, AWirelessTextThatBreaksTheRulesIsNotRead) {
    const struct {
        int record;
        std::string data;
        int size, result;
    } rows[] = {{1, "", 64, 0},
                {1, std::string(33, 'x'), 64, -1},
                {1, "a\tb", 64, -1},
                {1, "abc", 3, 0}, // without a terminator: cut to "ab"
                {1, "abcd", 3, -1},
                {1, "", 0, -1},
                {2, "12345678", 64, 0},
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
