#include "trafficUsageDetailsD/debug_log.h"

#include "support/fixture.h"

namespace {

std::string logged(const std::string &text) {
    return rig::standardOutput([&] { tud_dbg("%s", text.c_str()); });
}

} // namespace

class DebugLog : public rig::Fixture {};

TEST_F(DebugLog, PrintsAtMost4095CharactersWhileItsSettingIsExactlyOne) {
    for (const char *setting : {"", "0", "11"}) {
        rig::setSetting("tud_dbg", setting);
        EXPECT_EQ(logged("line\n"), "");
    }
    rig::setSetting("tud_dbg", "1"); // takes effect at once
    EXPECT_EQ(logged(std::string(5000, 'x')), std::string(4095, 'x'));
    EXPECT_EQ(logged(std::string(4094, 'x') + "%%"), std::string(4094, 'x'));
}

TEST_F(DebugLog, InterpretsPercentSignsOfDataASecondTimeWithoutReadingArguments) {
    rig::setSetting("tud_dbg", "1");
    const std::pair<const char *, const char *> rows[] = {
        {"100%% sure", "100% sure"},
        {"%n%s%p", ""},
        {"a%", "a"},
        {"%-08.3lldb", "b"},
        {"%2$*1$.*fx", "x"},
        {"50% off", "50ff"},
        {"%%%d%%", "%%"},
        {"%hhn|%Lf|%zu|", "|||"},
    };
    for (const auto &[data, printed] : rows)
        EXPECT_EQ(logged(data), printed) << data;
}
