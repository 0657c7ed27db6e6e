#include "board/board_region.h"

#include "board/board_block.h"
#include "platform/nvram.h"

#include <cstdio>
#include <cstring>

namespace {

struct RegionRow {
    uint16_t code;
    char region[BD_REGION_SIZE];
    char language[BD_LANGUAGE_SIZE];
    char time_zone[BD_TIME_ZONE_SIZE];
    char offset[BD_OFFSET_SIZE];
};
static_assert(sizeof(RegionRow) == 54);

// The first row is the default, for unknown codes too.
constexpr RegionRow region_mapping[] = {
    {0, "", "English", "5", "0"},
    {1, "NA", "English", "11", "-8"},
    {2, "WW", "English", "5", "0"},
    {3, "GR", "German", "5", "1"},
    {4, "PR", "Chinese", "16", "8"},
    {5, "RU", "Russian", "14", "3"},
    {6, "BZ", "Portuguese", "10", "-3"},
    {7, "IN", "Indic", "5", "55"}, // deliberate: "55" is five and a half hours
    {8, "KO", "Korean", "8", "9"},
    {9, "JP", "Japanese", "7", "9"},
    {10, "AU", "English", "3", "10"},
    {11, "PA", "English", "4", "-5"},
    {12, "NA", "English", "11", "-8"}, // deliberate: as code 1
};

enum class SkuError { kArguments = 1, kFlash = 2 };

int fail(const char *action, SkuError error) {
    printf("sku_info %s fail, err_code %d\n", action, static_cast<int>(error));
    return -1;
}

const RegionRow &find_region(uint32_t code) {
    for (const RegionRow &row : region_mapping) {
        if (row.code == code)
            return row;
    }
    return region_mapping[0];
}

bool has_room(const char *out, int size, int needed) {
    return out != nullptr && size >= needed;
}

} // namespace

int bd_read_sku_info(uint32_t *code_out, char *region_out, int region_size, char *language_out,
                     int language_size, char *tz_out, int tz_size, char *offset_out,
                     int offset_size) {
    if (code_out == nullptr || !has_room(region_out, region_size, BD_REGION_SIZE) ||
        !has_room(language_out, language_size, BD_LANGUAGE_SIZE) ||
        !has_room(tz_out, tz_size, BD_TIME_ZONE_SIZE) ||
        !has_room(offset_out, offset_size, BD_OFFSET_SIZE))
        return fail("read", SkuError::kArguments);
    const auto block = load_board_block();
    const uint32_t code =
        block ? load_u16(block.get() + offsetof(BoardFields, region_code)) : region_mapping[0].code;
    const RegionRow &row = find_region(code);
    *code_out = code;
    memcpy(region_out, row.region, sizeof row.region);
    memcpy(language_out, row.language, sizeof row.language);
    memcpy(tz_out, row.time_zone, sizeof row.time_zone);
    memcpy(offset_out, row.offset, sizeof row.offset);
    return block ? 0 : fail("read", SkuError::kFlash);
}

int bd_write_sku_info(int code) {
    if (code < 0 || code > UINT16_MAX)
        return fail("write", SkuError::kArguments);
    const auto block = load_board_block();
    if (!block)
        return fail("write", SkuError::kFlash);
    store_u16(block.get() + offsetof(BoardFields, region_code), static_cast<uint16_t>(code));
    return write_board_data(block.get());
}

// The same question under two names that callers use.
int is_russia_specific_support() {
    return is_ru_region();
}

int is_ru_region() {
    if (kelpNvramConfig_match("sku_name", "RU") != 0)
        return 1;
    return kelpNvramConfig_match("sku_name", "WW") != 0 &&
                   kelpNvramConfig_match("gui_region", "Russian") != 0
               ? 1
               : 0;
}

int is_china_specific_support() {
    return kelpNvramConfig_match("sku_name", "PR") != 0 ? 1 : 0;
}
