#include "board/bd_util.h"

#include "board/flash_sim.h"
#include "support/fixture.h"

using BoardRegion = rig::Fixture;

namespace {

// "code/region/language/zone/offset".
std::string skuInfo(int result, int zoneSize = 4) {
    uint32_t code = 77;
    char region[8] = "?", language[32] = "?", zone[4] = "?", offset[8] = "?";
    EXPECT_EQ(bd_read_sku_info(&code, region, 8, language, 32, zone, zoneSize, offset, 8), result);
    return std::to_string(code) + "/" + region + "/" + language + "/" + zone + "/" + offset;
}

} // namespace

TEST_F(BoardRegion, ACodeSelectsItsRowAndAnUnknownOneTheDefaults) {
    EXPECT_EQ(skuInfo(-1), "0//English/5/0"); // without flash
    const rig::FlashSim flash(0x10000);
    for (const char *row : {"1/NA/English/11/-8", "6/BZ/Portuguese/10/-3", "7/IN/Indic/5/55",
                            "12/NA/English/11/-8", "13//English/5/0", "4660//English/5/0"}) {
        ASSERT_EQ(bd_write_sku_info(std::stoi(row)), 0);
        EXPECT_EQ(skuInfo(0), row);
    }
    EXPECT_EQ(flash.contents().substr(114, 6), "oo\x34\x12oo");
    EXPECT_EQ(bd_write_sku_info(65536), -1);
    EXPECT_EQ(skuInfo(-1, 3), "77/?/?/?/?");
}
