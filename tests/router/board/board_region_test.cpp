#include "board/bd_util.h"

#include "router/board/flash_sim.h"
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
    const rig::FlashSim flash(0x10000);
    for (const char *row :
         {"0//English/5/0", "1/NA/English/11/-8", "2/WW/English/5/0", "3/GR/German/5/1",
          "4/PR/Chinese/16/8", "5/RU/Russian/14/3", "6/BZ/Portuguese/10/-3", "7/IN/Indic/5/55",
          "8/KO/Korean/8/9", "9/JP/Japanese/7/9", "10/AU/English/3/10", "11/PA/English/4/-5",
          "12/NA/English/11/-8", "13//English/5/0", "4660//English/5/0"}) {
        ASSERT_EQ(bd_write_sku_info(std::stoi(row)), 0);
        EXPECT_EQ(skuInfo(0), row);
    }
    EXPECT_EQ(flash.contents().substr(114, 6), "oo\x34\x12oo");
}

TEST_F(BoardRegion, FailuresAreNumbered) {
    EXPECT_EQ(rig::standardOutput([] {
                  EXPECT_EQ(skuInfo(-1, 3), "77/?/?/?/?");
                  EXPECT_EQ(bd_write_sku_info(65536), -1);
                  EXPECT_EQ(skuInfo(-1), "0//English/5/0");
                  EXPECT_EQ(bd_write_sku_info(1), -1);
              }),
              "sku_info read fail, err_code 1\nsku_info write fail, err_code 1\n"
              "sku_info read fail, err_code 2\nsku_info write fail, err_code 2\n");
}

TEST_F(BoardRegion, SettingsAnswerForRussiaAndChina) {
    const struct {
        const char *sku, *gui;
        int russia, china;
    } rows[] = {{"RU", "", 1, 0},
                {"WW", "Russian", 1, 0},
                {"WW", "English", 0, 0},
                {"PR", "Russian", 0, 1}};
    for (const auto &row : rows) {
        rig::setSetting("sku_name", row.sku);
        rig::setSetting("gui_region", row.gui);
        EXPECT_EQ(is_russia_specific_support(), row.russia) << row.sku << row.gui;
        EXPECT_EQ(is_ru_region(), row.russia) << row.sku << row.gui;
        EXPECT_EQ(is_china_specific_support(), row.china) << row.sku;
    }
}
