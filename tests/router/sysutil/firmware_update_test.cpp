#include "sysutil/firmware_update.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <csignal>
#include <filesystem>

namespace {

using FirmwareUpdate = rig::Fixture;

TEST_F(FirmwareUpdate, AStatusFileGivesTheNumberOfItsFirstLine) {
    const std::pair<std::string, int> rows[] = {
        {"7\n", 7}, {"", -1}, {"\n5\n", -1}, {" -3", -3}, {std::string(63, '0') + "9\n", 0}};
    for (const auto &[content, value] : rows) {
        rig::writeFile("/tmp/status", content);
        EXPECT_EQ(get_fw_check_status("/tmp/status"), value) << content;
    }
    EXPECT_EQ(get_fw_check_status("/tmp/absent"), 0);
    EXPECT_EQ(rig::readFile("/tmp/absent"), "0\n");
}

TEST_F(FirmwareUpdate, AResetWritesZeroIntoEveryFileOfItsKindOnly) {
    EXPECT_EQ(reset_all_fw_check_status(), 0);
    EXPECT_FALSE(rig::fileExists("/tmp/device_info_status"));
    EXPECT_EQ(reset_all_device_info_check_status(), 0);
    for (const std::string name :
         {"fw_Cfg", "fw_stringtable", "fw_image", "fw_new_Cfg", "fw_language", "device_info_Cfg",
          "device_info", "device_info_new_Cfg", "ua_string_table", "mac_table",
          "device_type_index_table"})
        EXPECT_EQ(rig::readFile("/tmp/" + name + "_status"), "0\n");
}

TEST_F(FirmwareUpdate, MarkersAreSeenOnceTheyAreSet) {
    EXPECT_EQ(check_upgrade_status() + is_fw_upgrading(), 0);
    {
        const rig::Fault noDescriptor(rig::Call::kOpen, 1);
        EXPECT_EQ(create_upgrade_file(), -1);
    }
    EXPECT_EQ(create_upgrade_file(), 0);
    EXPECT_EQ(check_upgrade_status() - is_fw_upgrading(), 1);
    EXPECT_EQ(set_fw_is_upgrading(), 0);
    EXPECT_EQ(is_fw_upgrading(), 1);
}

TEST_F(FirmwareUpdate, WhereChildrenAreNotWaitedForAStatusIsWrittenButNotKnown) {
    const auto before = signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(set_fw_check_status("/tmp/status", 7), -1);
    signal(SIGCHLD, before);
    EXPECT_EQ(get_fw_check_status("/tmp/status"), 7);
}

TEST_F(FirmwareUpdate, TheImageHasItsSizeAndTheRegionItsFolder) {
    std::uint32_t size = 9;
    EXPECT_EQ(getDownloadImageSize("/tmp/no", &size), 1);
    rig::writeFile("/tmp/image", "");
    EXPECT_EQ(getDownloadImageSize("/tmp/image", &size), 0);
    rig::writeFile("/tmp/image", std::string(70000, 'i'));
    EXPECT_EQ(getDownloadImageSize("/tmp/image", &size), 0);
    EXPECT_EQ(size, 70000u);
    // Where offsets have 32 bits, half of this can't be opened.
    const bool opens = sizeof(off_t) > 4;
    std::filesystem::resize_file("/tmp/image", 0xFFFFFFFF);
    EXPECT_EQ(getDownloadImageSize("/tmp/image", &size), opens ? 0 : 1);
    EXPECT_EQ(size, opens ? 0xFFFFFFFF : 0);
    std::filesystem::resize_file("/tmp/image", 0x100000000);
    EXPECT_EQ(getDownloadImageSize("/tmp/image", &size), 1);
    EXPECT_EQ(size, 0u);
    for (const auto &[region, folder] : {std::pair{"KO", "ko"}, {"", "ww"}, {"ko", "ww"}}) {
        rig::setSetting("sku_name", region);
        EXPECT_STREQ(get_firmware_update_folder(0), folder);
        EXPECT_STREQ(get_firmware_update_folder(-1), "ww");
    }
}

} // namespace
