#include "trafficUsageDetailsD/debug_log.h"

#include "support/fixture.h"

class DebugLog : public rig::Fixture {};

TEST_F(DebugLog, PrintsOnlyWhileItsSettingIsExactlyOne) {
    const auto logged = [](const char *value) {
        rig::setSetting("tud_dbg", value);
        return rig::standardOutput([] { tud_dbg("%s(%d) line\n", "caller", 7); });
    };
    EXPECT_EQ(logged("0"), "");
    EXPECT_EQ(logged("1"), "caller(7) line\n"); // takes effect at once
    EXPECT_EQ(logged("11"), "");
}

TEST_F(DebugLog, InterpretsPercentSignsOfDataASecondTimeWithoutReadingArguments) {
    rig::setSetting("tud_dbg", "1");
    struct {
        const char *data;
        const char *printed;
    } const rows[] = {
        {"100%% sure", "100% sure"},
        {"%n%s%p", ""},
        {"a%", "a"},
        {"%-08.3lldb", "b"},
        {"%*.*fx", "x"},
        {"50% off", "50ff"},
        {"%", ""},
        {"%%%d%%", "%%"},
        {"%hhn|%Lf|%zu|%jd", "|||"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(rig::standardOutput([&] { tud_dbg("%s", row.data); }), row.printed) << row.data;
}

TEST_F(DebugLog, CutsTheExpandedTextAt4095Characters) {
    rig::setSetting("tud_dbg", "1");
    const std::string text(5000, 'x');
    EXPECT_EQ(rig::standardOutput([&] { tud_dbg("%s", text.c_str()); }), text.substr(0, 4095));
}
