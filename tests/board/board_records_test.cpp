#include "board/board_data.h"
#include "board/board_records.h"

#include "support/fixture.h"

#include <string>
#include <vector>

namespace {

class BoardRecords : public rig::Fixture {};

constexpr std::size_t kArea = 0x8000;
constexpr int kLargestAlone = 0x8000 - 5 * 8; // one record with data, three empty ones, the marker

// A block image of exactly its size on the heap, so that any access outside is caught.
struct Block {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(BOARD_DATA_SIZE, 0xFF);

    Block &put(std::size_t offset, const std::string &data) {
        std::copy(data.begin(), data.end(), bytes.begin() + static_cast<long>(offset));
        return *this;
    }
    [[nodiscard]] std::string text(std::size_t offset, std::size_t size) const {
        return {bytes.begin() + static_cast<long>(offset),
                bytes.begin() + static_cast<long>(offset + size)};
    }
    int write(int id, const std::string &data) {
        return bd_write_record_2(id, data.data(), bytes.data(), static_cast<int>(data.size()));
    }
    // The data of a record, or "none".
    [[nodiscard]] std::string read(int id) const {
        std::string data(BOARD_DATA_SIZE, '\0');
        uint32_t length = 0;
        const int size = static_cast<int>(data.size());
        if (bd_read_record_2(id, data.data(), bytes.data(), &length, size) != 0)
            return "none";
        return data.substr(0, length);
    }
};

std::string header(unsigned int id, unsigned int length) {
    const unsigned int parts[] = {0xBD,      0x0B,    0x0D,          0xBD,
                                  id & 0xFF, id >> 8, length & 0xFF, length >> 8};
    return {std::begin(parts), std::end(parts)};
}

} // namespace

TEST_F(BoardRecords, AWriteBuildsTheWholeChainInTheOrderOfTheIds) {
    Block block;
    const Block erased;
    for (int id = 1; id <= 4; ++id)
        EXPECT_EQ(block.read(id), "none");
    ASSERT_GE(block.write(1, "first"), 0);
    ASSERT_GE(block.write(3, "third"), 0);
    const std::string chain = header(1, 5) + "first" + header(2, 0) + header(3, 5) + "third" +
                              header(4, 0) + header(0, 0);
    EXPECT_EQ(block.text(kArea, chain.size()), chain);
    EXPECT_EQ(block.text(0, kArea), erased.text(0, kArea));
    EXPECT_EQ(block.read(2), "");
    ASSERT_GE(block.write(1, ""), 0);
    EXPECT_EQ(block.read(1), "");
    EXPECT_EQ(block.read(3), "third");
}

TEST_F(BoardRecords, ARecordCountsOnlyWithAnotherHeaderRightBehindIt) {
    Block block;
    block.put(kArea + 3, header(2, 4) + "lost" + "no header");
    EXPECT_EQ(block.read(2), "none");
    block.put(kArea + 101, header(2, 4) + "seen" + header(9, 0));
    block.put(kArea + 201, header(2, 5) + "later" + header(0, 0));
    EXPECT_EQ(block.read(2), "seen");
    EXPECT_EQ(block.read(1), "none");
    block.put(kArea - 8, header(1, 0)); // in front of the record area
    block.put(kArea, header(0, 0));
    EXPECT_EQ(block.read(1), "none");
}

TEST_F(BoardRecords, TheLastPlaceForAHeaderIsWrittenButNotSeen) {
    Block block;
    ASSERT_GE(block.write(4, std::string(kLargestAlone - 1, 'x')), 0);
    EXPECT_EQ(block.read(4), std::string(kLargestAlone - 1, 'x'));
    ASSERT_GE(block.write(4, std::string(kLargestAlone, 'x')), 0);
    EXPECT_EQ(block.text(BOARD_DATA_SIZE - 8, 8), header(0, 0));
    EXPECT_EQ(block.read(4), "none");
}

TEST_F(BoardRecords, ARefusalChangesNothing) {
    Block block;
    ASSERT_GE(block.write(2, "12345"), 0);
    const Block before = block;
    const std::string data(65537, 'x');
    for (const int length : {kLargestAlone - 4, 65535, 65536, 65537}) {
        EXPECT_EQ(rig::standardOutput([&] {
                      EXPECT_EQ(bd_write_record_2(1, data.data(), block.bytes.data(), length), -1);
                  }),
                  "No room to add last magic")
            << length;
    }
    EXPECT_EQ(bd_write_record_2(1, data.data(), block.bytes.data(), -1), -1);
    EXPECT_EQ(bd_write_record_2(1, nullptr, block.bytes.data(), 0), -1);
    for (const int id : {-1, 0, 5, 65537})
        EXPECT_EQ(block.write(id, "data"), -1);
    EXPECT_EQ(block.bytes, before.bytes);

    char out = 'o';
    uint32_t length = 77;
    EXPECT_EQ(rig::standardOutput([&] {
                  for (const int size : {4, -1})
                      EXPECT_EQ(bd_read_record_2(2, &out, block.bytes.data(), &length, size), -1);
              }),
              "bd_record_len:5 > buf_size:4\nbd_record_len:5 > buf_size:-1\n");
    EXPECT_EQ(bd_read_record_2(2, nullptr, block.bytes.data(), &length, 5), -1);
    EXPECT_EQ(bd_read_record_2(0, &out, block.bytes.data(), &length, 5), -1);
    EXPECT_EQ(out, 'o');
    EXPECT_EQ(length, 77u);
}

TEST_F(BoardRecords, NoBlockLeadsOutsideIt) {
    const std::string fills[] = {
        header(3, 65535), header(4, 32752),     header(1, 0), header(2, 1),
        header(1, 3),     header(2, 3) + "abc", "\xBD",       "\xBD\x0B\x0D\xBD\x0B\x0D"};
    for (const std::string &fill : fills) {
        for (std::size_t shift = 0; shift < 8; ++shift) { // every cut of a header by the end
            Block block;
            for (std::size_t at = kArea + shift; at < BOARD_DATA_SIZE; at += fill.size())
                block.put(at, fill.substr(0, BOARD_DATA_SIZE - at));
            const Block before = block;
            const int id = 1 + static_cast<int>(shift % 4);
            int result = 0;
            const auto write = [&] { result = block.write(id, "new"); };
            rig::standardOutput(write); // such chains often have no room
            if (result < 0)
                EXPECT_EQ(block.bytes, before.bytes);
            else
                EXPECT_EQ(block.text(kArea, 5), header(1, 0).substr(0, 5));
            EXPECT_EQ(block.text(0, kArea), before.text(0, kArea));
        }
    }
}
