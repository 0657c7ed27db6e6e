#include "board/board_checksum.h"

#include "board/board_block.h"
#include "board/mtd_util.h"

#include <iterator>

namespace {

constexpr char ml_mtd_rd_mapping[9][256] = {
    "/dev/mtdblock10",
    "/dev/mtdblock11",
    "/dev/mtdblock12",
    "/dev/mtdblock13",
    "/dev/mtdblock14",
    "/dev/mtdblock15",
    "/dev/mtdblock9",
    "",
    "",
};

struct StorageHeader {
    unsigned char length[4];
    unsigned char checksum[4];
    unsigned char reserved[8];
};
static_assert(offsetof(StorageHeader, length) == 0);
static_assert(offsetof(StorageHeader, checksum) == 4);
static_assert(offsetof(StorageHeader, reserved) == 8);
static_assert(sizeof(StorageHeader) == 16);

constexpr uint32_t kLongestData = MTD_IMAGE_SIZE - sizeof(StorageHeader);

uint32_t byte_sum;
uint32_t running_sum;

uint32_t fold(uint32_t sum) {
    const uint32_t halves = (sum & 0xFFFF) + (sum >> 16);
    return (halves + (halves >> 16)) & 0xFFFF;
}

uint32_t finish() {
    byte_sum = fold(byte_sum);
    running_sum = fold(running_sum);
    return byte_sum | running_sum << 16;
}

} // namespace

static_assert(BOARD_DATA_SIZE == MTD_IMAGE_SIZE, "a board block has room for a partition's image");

uint32_t calculate_checksum(int mode, const unsigned char *data, int length) {
    switch (mode) {
    case CHECKSUM_START:
        byte_sum = running_sum = 0;
        return 1;
    case CHECKSUM_ADD:
        for (int i = 0; i < length; ++i) {
            byte_sum += data[i];
            running_sum += byte_sum;
        }
        return 1;
    case CHECKSUM_FINISH:
        return finish();
    default:
        return 1;
    }
}

int cal_st_chksum(int index, uint32_t *checksum_out) {
    if (index < 0 || index >= static_cast<int>(std::size(ml_mtd_rd_mapping)) ||
        checksum_out == nullptr)
        return -1;
    const auto image = new_board_block();
    if (!image || read_mtd_data(image.get(), ml_mtd_rd_mapping[index]) != 0)
        return -1;
    const uint32_t length = load_u32(image.get() + offsetof(StorageHeader, length));
    if (length == 0 || length > kLongestData)
        return -1;
    calculate_checksum(CHECKSUM_START, nullptr, 0);
    calculate_checksum(CHECKSUM_ADD, image.get() + sizeof(StorageHeader), static_cast<int>(length));
    *checksum_out = calculate_checksum(CHECKSUM_FINISH, nullptr, 0);
    return *checksum_out == load_u32(image.get() + offsetof(StorageHeader, checksum)) ? 0 : -1;
}
