#include "sysutil/firmware_update.h"

#include "support/fixture.h"

namespace {

using FirmwareUpdate = rig::Fixture;

TEST_F(FirmwareUpdate, AStatusFileGivesTheNumberOfItsFirstLine) {
    const std::pair<std::string, int> rows[] = {
        {"7\n", 7}, {"", -1}, {"\n5\n", -1}, {" -3", -3}, {std::string(63, '0') + "9\n", 0}};
    for (const auto &[content, value] : rows) {
        rig::writeFile("/tmp/status", content);
        EXPECT_EQ(get_fw_check_status("/tmp/status"), value) << content;
    }
}

} // namespace
