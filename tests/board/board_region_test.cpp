#include "board/bd_util.h"

#include "board/flash_sim.h"
#include "support/fixture.h"

namespace {

class BoardRegion : public rig::Fixture {
  protected:
    // "code region language zone offset", or what the call printed.
    static std::string skuInfo(int zoneSize = 4) {
        uint32_t code = 77;
        char region[8] = "?", language[32] = "?", zone[4] = "?", offset[8] = "?";
        int result = 0;
        const std::string printed = rig::standardOutput([&] {
            result = bd_read_sku_info(&code, region, 8, language, 32, zone, zoneSize, offset, 8);
        });
        EXPECT_EQ(result, printed.empty() ? 0 : -1);
        return printed + std::to_string(code) + "/" + region + "/" + language + "/" + zone + "/" +
               offset;
    }
};

} // namespace

TEST_F(BoardRegion, ACodeSelectsItsRowAndAnUnknownOneTheDefaults) {
    const rig::FlashSim flash(0x10000);
    EXPECT_EQ(skuInfo(), "28527//English/5/0");
    const std::pair<int, const char *> rows[] = {
        {0, "0//English/5/0"},   {1, "1/NA/English/11/-8"},  {6, "6/BZ/Portuguese/10/-3"},
        {7, "7/IN/Indic/5/55"},  {11, "11/PA/English/4/-5"}, {12, "12/NA/English/11/-8"},
        {13, "13//English/5/0"},
    };
    for (const auto &[code, info] : rows) {
        ASSERT_EQ(bd_write_sku_info(code), 0);
        EXPECT_EQ(skuInfo(), info);
    }
    ASSERT_EQ(bd_write_sku_info(0x1234), 0);
    EXPECT_EQ(flash.contents().substr(114, 6), "oo\x34\x12oo");
}

TEST_F(BoardRegion, FailuresAreNumbered) {
    rig::FlashSim flash(0x10000);
    EXPECT_EQ(skuInfo(3), "sku_info read fail, err_code 1\n77/?/?/?/?");
    flash.forget();
    for (const int code : {-1, 65536}) {
        EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(bd_write_sku_info(code), -1); }),
                  "sku_info write fail, err_code 1\n");
    }
    EXPECT_TRUE(flash.calls().empty());
    ASSERT_EQ(remove(rig::kFlashBlockDevice), 0);
    EXPECT_EQ(skuInfo(), "sku_info read fail, err_code 2\n0//English/5/0");
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(bd_write_sku_info(1), -1); }),
              "sku_info write fail, err_code 2\n");
}

TEST_F(BoardRegion, SettingsAnswerForRussiaAndChina) {
    const struct {
        const char *sku, *gui;
        int russia, china;
    } rows[] = {{"RU", "", 1, 0},        {"WW", "Russian", 1, 0}, {"WW", "English", 0, 0},
                {"NA", "Russian", 0, 0}, {"PR", "Russian", 0, 1}, {"", "", 0, 0}};
    for (const auto &row : rows) {
        rig::setSetting("sku_name", row.sku);
        rig::setSetting("gui_region", row.gui);
        EXPECT_EQ(is_russia_specific_support(), row.russia) << row.sku << row.gui;
        EXPECT_EQ(is_ru_region(), row.russia) << row.sku << row.gui;
        EXPECT_EQ(is_china_specific_support(), row.china) << row.sku;
    }
}
