#include "board/bd_util.h"

#include "support/fixture.h"

using BoardChecksum = rig::Fixture;

TEST_F(BoardChecksum, TheSumsAreFoldedWithTheirCarries) {
    const std::vector<unsigned char> data(5000, 0xFE);
    EXPECT_EQ(calculate_checksum(CHECKSUM_START, nullptr, 0), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, data.data(), 5000), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH + 1, nullptr, 0), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), 0x15816103u);
}

TEST_F(BoardChecksum, EverySlotIsCheckedInItsOwnPartition) {
    const struct {
        std::string header;
        int result;
        uint32_t checksum;
    } rows[] = {{std::string(8, '\0'), -1, 7},
                {std::string("\xf1\xff\0\0\0\0\0\0", 8), -1, 7},
                {std::string("\2\0\0\0\xC3\0\x24\1", 8), 0, 0x012400C3}, // 97+98, 97+195
                {std::string("\2\0\0\0\xC3\0\x24\2", 8), -1, 0x012400C3},
                {std::string("\xf0\xff\0\0\xC3\0\x24\1", 8), -1, 0xF43000C3}};
    uint32_t checksum = 7;
    for (const int slot : {-1, 0, 6, 7, 8, 9})
        EXPECT_EQ(cal_st_chksum(slot, &checksum), -1);
    int slot = 0;
    for (const char *partition : {"10", "11", "12", "13", "14", "15", "9"}) {
        for (const auto &row : rows) {
            rig::writeFile(std::string("/dev/mtdblock") + partition,
                           row.header + "reservedab" + std::string(65518, '\0'));
            checksum = 7;
            EXPECT_EQ(cal_st_chksum(slot, &checksum), row.result) << partition;
            EXPECT_EQ(checksum, row.checksum);
        }
        ++slot;
    }
}
