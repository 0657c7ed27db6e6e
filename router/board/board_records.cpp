#include "board/board_records.h"

#include "board/board_block.h"

#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr std::size_t kRecordArea = 0x8000;
constexpr uint32_t kRecordMagic = 0xBD0D0BBD;
constexpr int kFirstId = BD_RECORD_SSID_1;
constexpr int kLastId = BD_RECORD_PASSPHRASE_2;
constexpr int kEndMarker = 0;

struct RecordHeader {
    unsigned char magic[4];
    unsigned char id[2];
    unsigned char length[2];
};
static_assert(offsetof(RecordHeader, magic) == 0);
static_assert(offsetof(RecordHeader, id) == 4);
static_assert(offsetof(RecordHeader, length) == 6);
static_assert(sizeof(RecordHeader) == 8);

// Headers are looked for below this offset only: one at exactly this offset would still fit, yet
// is deliberately not seen.
constexpr std::size_t kSearchEnd = BOARD_DATA_SIZE - sizeof(RecordHeader);

using Data = std::span<const unsigned char>;

bool is_record_id(int id) {
    return id >= kFirstId && id <= kLastId;
}

bool holds_magic(const unsigned char *block, std::size_t offset) {
    return offset < kSearchEnd &&
           load_u32(block + offset + offsetof(RecordHeader, magic)) == kRecordMagic;
}

// Where the next header at or behind offset stands; kSearchEnd when there is none.
std::size_t next_header(const unsigned char *block, std::size_t offset) {
    constexpr int kFirstByte = kRecordMagic & 0xFF;
    while (offset < kSearchEnd) {
        const void *found = memchr(block + offset, kFirstByte, kSearchEnd - offset);
        if (found == nullptr)
            break;
        offset = static_cast<std::size_t>(static_cast<const unsigned char *>(found) - block);
        if (holds_magic(block, offset))
            return offset;
        ++offset;
    }
    return kSearchEnd;
}

// The data of the first record of this id that another header follows; a null span without one.
Data find_record(const unsigned char *block, int id) {
    for (std::size_t offset = next_header(block, kRecordArea); offset < kSearchEnd;
         offset = next_header(block, offset + 1)) {
        const unsigned char *header = block + offset;
        const std::size_t length = load_u16(header + offsetof(RecordHeader, length));
        if (load_u16(header + offsetof(RecordHeader, id)) == id &&
            holds_magic(block, offset + sizeof(RecordHeader) + length))
            return {header + sizeof(RecordHeader), length};
    }
    return {};
}

// Builds a chain of records; refuses what would pass the end of the block.
class ChainWriter {
  public:
    explicit ChainWriter(unsigned char *block) : block_(block) {}

    bool add(int id, Data data) {
        const std::size_t room = BOARD_DATA_SIZE - offset_;
        if (room < sizeof(RecordHeader) || data.size() > room - sizeof(RecordHeader)) {
            printf("No room to add last magic");
            return false;
        }
        unsigned char *header = block_ + offset_;
        store_u32(header + offsetof(RecordHeader, magic), kRecordMagic);
        store_u16(header + offsetof(RecordHeader, id), static_cast<uint16_t>(id));
        store_u16(header + offsetof(RecordHeader, length), static_cast<uint16_t>(data.size()));
        if (!data.empty())
            memcpy(header + sizeof(RecordHeader), data.data(), data.size());
        offset_ += sizeof(RecordHeader) + data.size();
        return true;
    }

  private:
    unsigned char *block_;
    std::size_t offset_ = kRecordArea;
};
static_assert(BOARD_DATA_SIZE - kRecordArea <= UINT16_MAX, "what fits has a length that fits");

bool rebuild_chain(unsigned char *block, const unsigned char *old_block, int changed_id,
                   Data changed) {
    ChainWriter chain(block);
    for (int id = kFirstId; id <= kLastId; ++id) {
        if (!chain.add(id, id == changed_id ? changed : find_record(old_block, id)))
            return false;
    }
    return chain.add(kEndMarker, {});
}

} // namespace

int bd_read_record_2(int id, char *buffer, const unsigned char *block, uint32_t *length_out,
                     int size) {
    if (!is_record_id(id) || buffer == nullptr || block == nullptr || length_out == nullptr)
        return -1;
    const Data data = find_record(block, id);
    if (data.data() == nullptr)
        return -1;
    const int length = static_cast<int>(data.size());
    if (length > size) {
        printf("bd_record_len:%d > buf_size:%d\n", length, size);
        return -1;
    }
    *length_out = static_cast<uint32_t>(length);
    memcpy(buffer, data.data(), data.size());
    return 0;
}

int bd_read_record(int id, char *buffer, uint32_t *length_out, int size) {
    if (!is_record_id(id) || buffer == nullptr || length_out == nullptr)
        return -1;
    const auto block = load_board_block();
    return bd_read_record_2(id, buffer, block.get(), length_out, size);
}

int bd_write_record_2(int id, const char *data, unsigned char *block, int length) {
    if (!is_record_id(id) || data == nullptr || block == nullptr || length < 0)
        return -1;
    const auto rebuilt = new_board_block();
    if (!rebuilt)
        return -1;
    memcpy(rebuilt.get(), block, BOARD_DATA_SIZE);
    const Data changed(reinterpret_cast<const unsigned char *>(data),
                       static_cast<std::size_t>(length));
    if (!rebuild_chain(rebuilt.get(), block, id, changed))
        return -1;
    memcpy(block, rebuilt.get(), BOARD_DATA_SIZE);
    return 0;
}

int bd_write_record(int id, const char *data, int length) {
    if (!is_record_id(id) || data == nullptr || length < 0)
        return -1;
    const auto block = load_board_block();
    if (bd_write_record_2(id, data, block.get(), length) != 0)
        return -1;
    return write_board_data(block.get());
}
