#include "board/bd_util.h"
#include "board/mtd_util.h"

#include "router/board/flash_sim.h"
#include "support/fixture.h"

using BoardFields = rig::Fixture;

TEST_F(BoardFields, AReaderIsBoundedByItsSize) {
    const rig::FlashSim flash(0x10000);
    std::vector<char> out(3); // one more than is asked for, but for the identifier
    EXPECT_EQ(bd_read_sn(out.data(), 2), 0);
    EXPECT_STREQ(out.data(), "oo");
    EXPECT_EQ(bd_read_board_id(out.data(), 3), 0);
    EXPECT_STREQ(out.data(), "oo");
    EXPECT_EQ(bd_read_sn(out.data(), -1), -1);
    EXPECT_EQ(bd_read_board_id(out.data(), 0), -1);
    EXPECT_EQ(bd_read_board_id(out.data(), 1), 0);
    EXPECT_STREQ(out.data(), "");
    EXPECT_EQ(bd_read_sn(out.data(), 0), 0);
}

TEST_F(BoardFields, WithoutATextOrAPlaceForOneNothingIsDone) {
    const rig::FlashSim flash(0x10000);
    std::vector<unsigned char> block(BOARD_DATA_SIZE);
    unsigned char mac[6] = {};
    char text[9] = "";
    uint32_t length = 0;
    for (const int result : {bd_read_sn(nullptr, 1),
                             bd_write_sn(nullptr),
                             bd_read_eth_mac(nullptr, mac),
                             bd_read_eth_mac(mac, nullptr),
                             bd_write_eth_mac(nullptr, mac),
                             bd_write_eth_mac(mac, nullptr),
                             bd_read_pin(nullptr, 8),
                             bd_read_pin(text, -1),
                             bd_write_pin(nullptr),
                             bd_read_ssid(nullptr, 9, 1),
                             bd_read_ssid(text, 0, 1),
                             bd_write_ssid(nullptr, 1),
                             bd_read_record(0, text, &length, 8),
                             bd_read_record(5, text, &length, 8),
                             bd_read_record(1, nullptr, &length, 8),
                             bd_read_record(1, text, nullptr, 8),
                             bd_read_record_2(0, text, block.data(), &length, 8),
                             bd_read_record_2(1, nullptr, block.data(), &length, 8),
                             bd_read_record_2(1, text, nullptr, &length, 8),
                             bd_read_record_2(1, text, block.data(), nullptr, 8),
                             bd_write_record(0, text, 1),
                             bd_write_record(5, text, 1),
                             bd_write_record(1, nullptr, 1),
                             bd_write_record(1, text, -1),
                             bd_write_record_2(0, text, block.data(), 1),
                             bd_write_record_2(1, nullptr, block.data(), 1),
                             bd_write_record_2(1, text, nullptr, 1),
                             bd_write_record_2(1, text, block.data(), -1),
                             read_mtd_data(nullptr, rig::kFlashDevice),
                             read_mtd_data(block.data(), nullptr),
                             read_mtd_data(block.data(), "/none"),
                             mtd_write(nullptr, mac, 1),
                             mtd_write(rig::kFlashDevice, nullptr, 1),
                             mtd_open(nullptr, 0),
                             cal_st_chksum(0, nullptr)})
        EXPECT_EQ(result, -1);
    EXPECT_EQ(flash.contents(), rig::kOldFlash);
}

TEST_F(BoardFields, WhereTheFlashCannotBeReadEverythingFails) {
    unsigned char mac[6] = {};
    char text[9] = "";
    for (const int result :
         {bd_read_sn(text, 8), bd_write_sn("1"), bd_read_eth_mac(mac, mac),
          bd_write_eth_mac(mac, mac), bd_read_pin(text, 8), bd_write_pin("12345670")})
        EXPECT_EQ(result, -1);
}

TEST_F(BoardFields, TheAddressesAreKept) {
    const rig::FlashSim flash(0x10000);
    const unsigned char mac[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0};
    ASSERT_EQ(bd_write_eth_mac(mac, mac + 6), 0);
    unsigned char out[12];
    EXPECT_EQ(bd_read_eth_mac(out, out + 6), 0);
    EXPECT_TRUE(std::equal(mac, mac + 12, out));
}

TEST_F(BoardFields, APinHasEightDigitsOfWhichTheLastChecks) {
    const rig::FlashSim flash(0x10000);
    char out[9];
    const std::pair<const char *, const char *> refusals[] = {
        {"1234567", "length error (8 digits)\n"},  {"123456700", "length error (8 digits)\n"},
        {"1234567:", "format error (8 digits)\n"}, {"-1234567", "format error (8 digits)\n"},
        {"12345678", "checksum failed!"},          {"21345670", "checksum failed!"}};
    for (const auto &[pin, printed] : refusals)
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(bd_write_pin(pin), -1); }), printed) << pin;
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(bd_read_pin(out, 8), -1); }),
              "PIN number not found!");
    for (const char *pin : {"12345670", "99999995"}) {
        ASSERT_EQ(bd_write_pin(pin), 0);
        EXPECT_EQ(bd_read_pin(out, 8), 0);
        EXPECT_STREQ(out, pin);
        EXPECT_EQ(bd_read_pin(out, 0), 0);
    }
}

TEST_F(BoardFields, WirelessTextsKeepTheirRulesOnBothBands) {
    const rig::FlashSim flash(0x10000);
    const struct {
        int (*write)(const char *text, int band);
        int (*read)(char *out, int size, int band);
        int record; // of the first band
        std::string shortest, longest, tooLong, notPrintable;
    } texts[] = {{bd_write_ssid, bd_read_ssid, 1, "", std::string(32, ' '),
                  "Invalid SSID length. Max 32 chars!\n", "Invalid chars in SSID!"},
                 {bd_write_passphrase, bd_read_passphrase, 2, "12345678", std::string(63, '~'),
                  "Invalid Passphrase length. 8 - 63 chars!\n", "Invalid chars in passphrase!"}};
    for (const auto &[write, read, record, shortest, longest, tooLong, notPrintable] : texts) {
        const auto refusal = [write = write](const std::string &text) {
            return rig::standardOutput([&] { EXPECT_EQ(write(text.c_str(), 2), -1) << text; });
        };
        for (const int band : {2, 1}) {
            for (const std::string &text : {shortest, longest}) {
                char out[64];
                uint32_t length = 0;
                ASSERT_EQ(write(text.c_str(), band), 0);
                bd_read_record(band == 2 ? record + 2 : record, out, &length, 64);
                EXPECT_EQ(std::string(out, length), text + '\0');
                EXPECT_EQ(read(out, 64, band), 0);
                EXPECT_EQ(out, text);
            }
        }
        for (const char *wrong : {"1234567\x1f", "1234567\x7f", "1234567\xe4"})
            EXPECT_EQ(refusal(wrong), notPrintable);
        EXPECT_EQ(refusal(longest + "x"), tooLong);
    }
    EXPECT_EQ(bd_write_passphrase("1234567", 1), -1);
}

TEST_F(BoardFields, AWirelessTextIsCutAtTheBufferAndNotReadWhenItBreaksTheRules) {
    const rig::FlashSim flash(0x10000);
    std::vector<char> out(5, 'x');
    ASSERT_EQ(bd_write_record(1, "abc", 3), 0); // without a terminator
    EXPECT_EQ(bd_read_ssid(out.data(), 5, 1), 0);
    EXPECT_STREQ(out.data(), "abc");
    out.resize(3);
    EXPECT_EQ(bd_read_ssid(out.data(), 3, 1), 0);
    EXPECT_STREQ(out.data(), "ab");
    ASSERT_EQ(bd_write_record(1, "a\t", 3), 0);
    EXPECT_EQ(bd_read_ssid(out.data(), 3, 1), -1);
}
