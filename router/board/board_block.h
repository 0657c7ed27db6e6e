// The board-data block as it lies on flash; every number in it is little-endian.
#pragma once

#include "board/board_data.h"
#include "common/file.h"

#include <cstddef>
#include <cstdint>

inline namespace routerutil {

// The head of the block. Made of bytes only, so that the layout is packed and alignment is none.
struct BoardFields {
    char board_id[64];
    unsigned char first_mac[6];
    unsigned char second_mac[6];
    char serial_number[32]; // not terminated when full, as the fields below
    char pin[8];
    unsigned char region_code[2];
    unsigned char reserved[2];
    char hardware_revision[16];
    char software_feature[4];
};
static_assert(offsetof(BoardFields, board_id) == 0);
static_assert(offsetof(BoardFields, first_mac) == 64);
static_assert(offsetof(BoardFields, second_mac) == 70);
static_assert(offsetof(BoardFields, serial_number) == 76);
static_assert(offsetof(BoardFields, pin) == 108);
static_assert(offsetof(BoardFields, region_code) == 116);
static_assert(offsetof(BoardFields, reserved) == 118);
static_assert(offsetof(BoardFields, hardware_revision) == 120);
static_assert(offsetof(BoardFields, software_feature) == 136);
static_assert(sizeof(BoardFields) == 140);

inline uint16_t load_u16(const unsigned char *bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

inline uint32_t load_u32(const unsigned char *bytes) {
    return load_u16(bytes) | uint32_t{load_u16(bytes + 2)} << 16;
}

inline void store_u16(unsigned char *bytes, uint16_t value) {
    bytes[0] = static_cast<unsigned char>(value & 0xFF);
    bytes[1] = static_cast<unsigned char>(value >> 8);
}

inline void store_u32(unsigned char *bytes, uint32_t value) {
    store_u16(bytes, static_cast<uint16_t>(value & 0xFFFF));
    store_u16(bytes + 2, static_cast<uint16_t>(value >> 16));
}

// Room for one block, or nothing when there is no memory.
Allocated<unsigned char> new_board_block();

// The block that is in flash, or nothing when it cannot be read.
Allocated<unsigned char> load_board_block();

} // namespace routerutil
