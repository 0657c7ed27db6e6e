#include "trafficUsageDetailsD/debug_log.h"

#include "support/fixture.h"

class DebugLog : public rig::Fixture {};

TEST_F(DebugLog, PrintsAtMost4095CharactersAndNoConversionOfDataWhileItsSettingIsExactlyOne) {
    const auto logged = [](const std::string &text) {
        return rig::standardOutput([&] { tud_dbg("%s", text.c_str()); });
    };
    rig::setSetting("tud_dbg", "11");
    EXPECT_EQ(logged("line\n"), "");
    rig::setSetting("tud_dbg", "1"); // takes effect at once
    EXPECT_EQ(logged(std::string(4094, 'x') + "%%"), std::string(4094, 'x'));
    EXPECT_EQ(logged("100%% sure%n%s%p, 50% off%2$*1$.*f%-08.3lld%hhn|%%%d%%a%"),
              "100% sure, 50ff|%%a");
}
