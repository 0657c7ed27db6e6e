#include "board/bd_util.h"

#include "support/fixture.h"

namespace {

class BoardChecksum : public rig::Fixture {};

const unsigned char *bytes(const char *text) {
    return reinterpret_cast<const unsigned char *>(text);
}

} // namespace

TEST_F(BoardChecksum, ThreeCallsMakeOne) {
    EXPECT_EQ(calculate_checksum(CHECKSUM_START, nullptr, 0), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, bytes("ab"), 1), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, bytes("bc"), 1), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, nullptr, -1), 1u);
    EXPECT_EQ(calculate_checksum(3, bytes("x"), 1), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), 0x012400C3u); // 97+98, 97+195
    const std::string data(5000, '\xfe');
    calculate_checksum(CHECKSUM_START, nullptr, 0);
    calculate_checksum(CHECKSUM_ADD, bytes(data.c_str()), 5000);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), 0x15816103u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), 0x15816103u); // the folded sums stay
}

TEST_F(BoardChecksum, EverySlotIsCheckedInItsOwnPartition) {
    uint32_t checksum = 7;
    for (const int slot : {-1, 0, 6, 7, 8, 9})
        EXPECT_EQ(cal_st_chksum(slot, &checksum), -1);
    int slot = 0;
    for (const char *partition : {"10", "11", "12", "13", "14", "15", "9"}) {
        const std::string device = std::string("/dev/mtdblock") + partition;
        const auto check = [&](const std::string &header) {
            rig::writeFile(device, header + "reservedab" + std::string(65518, '\0'));
            return cal_st_chksum(slot, &checksum);
        };
        for (const std::string length : {"", "\xf1\xff", "\xf0\xff\xff\xff"})
            EXPECT_EQ(check(length + std::string(8 - length.size(), '\0')), -1);
        EXPECT_EQ(checksum, 7u);
        EXPECT_EQ(check(std::string("\2\0\0\0\xC3\0\x24\1", 8)), 0) << partition;
        EXPECT_EQ(checksum, 0x012400C3u);
        EXPECT_EQ(check(std::string("\2\0\0\0\xC3\0\x24\2", 8)), -1);
        EXPECT_EQ(check(std::string("\xf0\xff\0\0\xC3\0\0\0", 8)), -1);
        EXPECT_NE(checksum, 0x012400C3u);
        checksum = 7;
        ++slot;
    }
    EXPECT_EQ(cal_st_chksum(0, nullptr), -1);
}
