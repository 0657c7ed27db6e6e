// Record search and rewrite over blocks that may hold anything.
//
// Input: a byte that selects the record (its lowest two bits) and where the rest goes (0x80: to
// the end of the record area, else to its start); the length of the new data as two bytes,
// little-endian; then the content of the record area, the remainder of which stays erased.
#include "fuzz/target.h"

#include "board/board_data.h"
#include "board/board_records.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace {

constexpr std::size_t kArea = 0x8000;

// False when there is no such record.
bool readRecord(int id, const std::vector<std::uint8_t> &block, std::vector<char> &data) {
    data.resize(BOARD_DATA_SIZE - kArea);
    uint32_t length = 0;
    const int size = static_cast<int>(data.size());
    if (bd_read_record_2(id, data.data(), block.data(), &length, size) != 0)
        return false;
    FUZZ_REQUIRE(length <= data.size());
    data.resize(length);
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, std::size_t size) {
    if (size < 3)
        return 0;
    const int id = 1 + (input[0] & 3);
    const bool atEnd = (input[0] & 0x80) != 0;
    const std::vector<char> written(input[1] | std::size_t{input[2]} << 8, 'n');
    const std::span area(input + 3, std::min(size - 3, BOARD_DATA_SIZE - kArea));
    std::vector<uint8_t> block(BOARD_DATA_SIZE, 0xFF);
    std::copy(area.begin(), area.end(),
              atEnd ? block.end() - static_cast<std::ptrdiff_t>(area.size())
                    : block.begin() + static_cast<std::ptrdiff_t>(kArea));

    std::vector<char> data;
    for (int each = 1; each <= 4; ++each)
        readRecord(each, block, data);
    const auto before = block;
    const int length = static_cast<int>(written.size());
    if (bd_write_record_2(id, written.data() == nullptr ? "" : written.data(), block.data(),
                          length) < 0) {
        FUZZ_REQUIRE(block == before);
        return 0;
    }
    FUZZ_REQUIRE(std::equal(block.begin(), block.begin() + kArea, before.begin()));
    // Nothing stands before the first record that could hide it.
    FUZZ_REQUIRE(id != 1 || (readRecord(1, block, data) && data == written));
    return 0;
}
