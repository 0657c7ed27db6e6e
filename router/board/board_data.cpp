#include "board/board_data.h"

#include "board/board_block.h"
#include "board/mtd_util.h"

namespace {

constexpr char kReadDevice[] = "/dev/mtdblock4";
constexpr char kWriteDevice[] = "/dev/mtd4";

} // namespace

static_assert(BOARD_DATA_SIZE == MTD_IMAGE_SIZE);

int read_board_data(unsigned char *buffer) {
    return read_mtd_data(buffer, kReadDevice);
}

int write_board_data(const unsigned char *buffer) {
    return mtd_write(kWriteDevice, buffer, BOARD_DATA_SIZE);
}

Allocated<unsigned char> routerutil::new_board_block() {
    return Allocated<unsigned char>(static_cast<unsigned char *>(malloc(BOARD_DATA_SIZE)));
}

Allocated<unsigned char> routerutil::load_board_block() {
    auto block = new_board_block();
    if (block && read_board_data(block.get()) != 0)
        block.reset();
    return block;
}
