#include "board/board_data.h"
#include "board/board_records.h"

#include "support/fixture.h"

#include <vector>

namespace {

class BoardRecords : public rig::Fixture {};

constexpr std::size_t kArea = 0x8000;

// A block image of exactly its size on the heap, so that any access outside is caught.
struct Block {
    std::vector<char> bytes = std::vector<char>(BOARD_DATA_SIZE, '\xff');

    unsigned char *data() { return reinterpret_cast<unsigned char *>(bytes.data()); }
    void put(std::size_t offset, const std::string &text) {
        text.copy(&bytes[offset], text.size());
    }
    int write(int id, const std::string &text) {
        return bd_write_record_2(id, text.data(), data(), static_cast<int>(text.size()));
    }
    // The data of a record, or "none".
    std::string read(int id) {
        char out[8];
        uint32_t length = 0;
        const int result = bd_read_record_2(id, out, data(), &length, sizeof out);
        return result == 0 ? std::string(out, length) : "none";
    }
};

std::string header(int id, int length) {
    return {'\xBD', '\x0B', '\x0D', '\xBD', static_cast<char>(id), '\0', static_cast<char>(length),
            '\0'};
}

} // namespace

TEST_F(BoardRecords, AWriteBuildsTheWholeChainInTheOrderOfTheIds) {
    Block block;
    EXPECT_EQ(block.read(1), "none");
    ASSERT_GE(block.write(1, "first"), 0);
    ASSERT_GE(block.write(3, "third"), 0);
    const std::string chain = header(1, 5) + "first" + header(2, 0) + header(3, 5) + "third" +
                              header(4, 0) + header(0, 0);
    EXPECT_EQ(std::string(&block.bytes[kArea - 1], chain.size() + 2), "\xff" + chain + "\xff");
    EXPECT_EQ(block.read(2), "");
}

TEST_F(BoardRecords, ARecordCountsOnlyWithAnotherHeaderRightBehindIt) {
    Block block;
    block.put(kArea + 3, header(2, 4) + "lost" + "no header");
    EXPECT_EQ(block.read(2), "none");
    block.put(kArea + 101, header(2, 4) + "seen" + header(9, 0));
    block.put(kArea + 201, header(2, 5) + "later" + header(0, 0));
    EXPECT_EQ(block.read(2), "seen");
    block.put(kArea - 8, header(1, 0)); // in front of the record area
    block.put(kArea, header(0, 0));
    EXPECT_EQ(block.read(1), "none");
}

TEST_F(BoardRecords, ARefusalChangesNothing) {
    Block block;
    ASSERT_GE(block.write(2, "12345"), 0);
    const Block before = block;
    EXPECT_EQ(bd_write_record_2(1, "", block.data(), -1), -1);
    EXPECT_EQ(bd_write_record_2(1, nullptr, block.data(), 0), -1);
    for (const int id : {-1, 0, 5, 65537})
        EXPECT_EQ(block.write(id, "data"), -1);
    EXPECT_EQ(block.bytes, before.bytes);
    char out = 'o';
    uint32_t length = 77;
    const auto read = [&] { EXPECT_EQ(bd_read_record_2(2, &out, block.data(), &length, 4), -1); };
    EXPECT_EQ(rig::standardOutput(read), "bd_record_len:5 > buf_size:4\n");
    EXPECT_EQ(out, 'o');
    EXPECT_EQ(length, 77u);
}
