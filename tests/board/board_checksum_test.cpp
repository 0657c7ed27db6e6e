#include "board/bd_util.h"

#include "support/fixture.h"

namespace {

class BoardChecksum : public rig::Fixture {};

std::string littleEndian(uint32_t value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
            static_cast<char>(value >> 24)};
}

const unsigned char *bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

} // namespace

TEST_F(BoardChecksum, ThreeCallsMakeOne) {
    const std::string data(5000, '\xfe');
    EXPECT_EQ(calculate_checksum(CHECKSUM_START, nullptr, 0), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, bytes("ab"), 1), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, bytes("bc"), 1), 1u);
    for (const int length : {0, -1})
        EXPECT_EQ(calculate_checksum(CHECKSUM_ADD, nullptr, length), 1u);
    EXPECT_EQ(calculate_checksum(3, bytes("x"), 1), 1u);
    EXPECT_EQ(calculate_checksum(-1, bytes("x"), 1), 1u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), 0x012400C3u); // 97+98, 97+195
    calculate_checksum(CHECKSUM_START, nullptr, 0);
    calculate_checksum(CHECKSUM_ADD, bytes(data), 5000);
    const uint32_t folded = calculate_checksum(CHECKSUM_FINISH, nullptr, 0);
    EXPECT_EQ(folded, 0x15816103u);
    EXPECT_EQ(calculate_checksum(CHECKSUM_FINISH, nullptr, 0), folded); // the folded sums stay
}

TEST_F(BoardChecksum, EverySlotIsCheckedInItsOwnPartition) {
    const char *const partitions[] = {"10", "11", "12", "13", "14", "15", "9"};
    uint32_t checksum = 7;
    for (const int slot : {-1, 0, 6, 7, 8, 9})
        EXPECT_EQ(cal_st_chksum(slot, &checksum), -1);
    EXPECT_EQ(checksum, 7u);
    for (int slot = 0; slot < 7; ++slot) {
        const std::string image = littleEndian(2) + littleEndian(0x012400C3) + "reservedab";
        rig::writeFile(std::string("/dev/mtdblock") + partitions[slot],
                       image + std::string(65536 - image.size(), 'x'));
        EXPECT_EQ(cal_st_chksum(slot, &checksum), 0) << slot;
        EXPECT_EQ(checksum, 0x012400C3u);
    }
    EXPECT_EQ(cal_st_chksum(0, nullptr), -1);
}

TEST_F(BoardChecksum, AWrongSumIsToldAndAWrongLengthRefused) {
    const auto check = [](uint32_t length, uint32_t *checksum) {
        rig::writeFile("/dev/mtdblock10", littleEndian(length) + littleEndian(1) + "reserved" +
                                              std::string(65520, '\0'));
        return cal_st_chksum(0, checksum);
    };
    uint32_t checksum = 7;
    for (const uint32_t length : {0u, 65521u, 0xFFFFFFF0u, 0xFFFFFFFFu})
        EXPECT_EQ(check(length, &checksum), -1) << length;
    EXPECT_EQ(checksum, 7u);
    EXPECT_EQ(check(65520, &checksum), -1);
    EXPECT_EQ(checksum, 0u);
}
