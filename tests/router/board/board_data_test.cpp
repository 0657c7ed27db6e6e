// What the block looks like in flash.
#include "board/bd_util.h"
#include "router/board/flash_sim.h"
#include "support/fixture.h"

#include <array>

using BoardData = rig::Fixture;

namespace {

constexpr std::size_t kArea = 0x8000;                       // where the records begin
constexpr std::size_t kRoom = BOARD_DATA_SIZE - kArea - 40; // for the data of all together

std::string record(std::size_t id, const std::string &data) {
    return std::string("\xBD\x0B\x0D\xBD", 4) + static_cast<char>(id) + '\0' +
           static_cast<char>(data.size() & 0xFF) + static_cast<char>(data.size() >> 8) + data;
}

} // namespace

TEST_F(BoardData, AFieldTakesWhatItHasRoomForAndNothingElseChanges) {
    const struct {
        int (*read)(char *out, int size);
        int (*write)(const char *text);
        std::size_t offset, width, limit;
        const char *complaint;
    } fields[] = {
        {bd_read_board_id, bd_write_board_id, 0, 64, 63, "Board ID too long. Max 64 chars!\n"},
        {bd_read_sn, bd_write_sn, 76, 32, 32, "serial number too long. Max 32 chars!\n"},
        {bd_read_hw_rev, bd_write_hw_rev, 120, 16, 16, "HW rev too long. Max 16 chars!\n"},
        {bd_read_sw_feature, bd_write_sw_feature, 136, 4, 4,
         "SW feature too long. Max 4 chars!\n"}};
    rig::FlashSim flash(0x10000);
    std::string block = rig::kOldFlash;
    for (const auto &[read, write, offset, width, limit, complaint] : fields) {
        for (const std::size_t length : {limit, std::size_t{1}}) {
            std::string text(length, 't');
            char out[80];
            ASSERT_EQ(write(text.c_str()) + read(out, sizeof out - 1), 0);
            EXPECT_EQ(out, text);
            text.resize(width);
            block.replace(offset, width, text);
        }
        flash.calls.clear();
        const auto writeTooMuch = [&, write = write, limit = limit] {
            EXPECT_EQ(write(std::string(limit + 1, 'x').c_str()), -1);
        };
        EXPECT_EQ(rig::standardOutput(writeTooMuch), complaint);
        EXPECT_TRUE(flash.calls.empty());
    }
    EXPECT_TRUE(flash.contents() == block);
}

TEST_F(BoardData, RecordsAreAChainAsLongAsThereIsRoom) {
    rig::FlashSim flash(0x20000, rig::kFlashSize, std::string(rig::kFlashSize, '\xBD'));
    const std::string pieces = "\xBD\x0B\x0D\x0B\x0D\xBD\xBD\x0B"; // of the magic, never all of it
    std::array<std::string, 4> records;
    for (const auto &[id, data] : {std::pair<int, std::string>{2, "two"},
                                   {1, pieces},
                                   {3, std::string(300, '3')},
                                   {2, ""},
                                   {4, std::string(kRoom - 300 - pieces.size(), '4')}}) {
        ASSERT_EQ(bd_write_record(id, data.data(), static_cast<int>(data.size())), 0);
        records[id - 1] = data;
        const std::string chain = record(1, records[0]) + record(2, records[1]) +
                                  record(3, records[2]) + record(4, records[3]) + record(0, "");
        EXPECT_TRUE(flash.contents().substr(kArea, chain.size()) == chain);
        EXPECT_EQ(flash.contents()[kArea - 1], '\xBD');
        for (int each = 1; each <= 4; ++each) {
            const int size = static_cast<int>(records[each - 1].size());
            std::string found(size, '\0'), complaint;
            uint32_t length = 0;
            // A full area has its end marker in the place that no search sees.
            const bool seen = each < 4 || chain.size() < BOARD_DATA_SIZE - kArea;
            EXPECT_EQ(bd_read_record(each, found.data(), &length, size), seen ? 0 : -1);
            EXPECT_TRUE(!seen || (found == records[each - 1] && length == found.size())) << each;
            const auto readWithoutRoom = [&] {
                EXPECT_EQ(bd_read_record(each, found.data(), &length, size - 1), -1);
            };
            if (seen)
                complaint = "bd_record_len:" + std::to_string(size) +
                            " > buf_size:" + std::to_string(size - 1) + "\n";
            EXPECT_EQ(rig::standardOutput(readWithoutRoom), complaint);
        }
    }
    flash.calls.clear();
    const std::string data(65537, 'x');
    const int most = static_cast<int>(records[3].size());
    for (const int tooLong : {most + 1, most + 8, most + 9, 65536, 65537}) {
        const auto write = [&] { EXPECT_EQ(bd_write_record(4, data.data(), tooLong), -1); };
        EXPECT_EQ(rig::standardOutput(write), "No room to add last magic") << tooLong;
    }
    EXPECT_TRUE(flash.calls.empty());
}
