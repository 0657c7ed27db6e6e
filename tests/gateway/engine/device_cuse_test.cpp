// The device that the kernel makes for the engine.
#include "engine/device/device_cuse.h"

#include "device_rig.h"

#include <filesystem>

namespace idpfwd {
namespace {

using CuseDeviceTest = DeviceTest;

TEST_F(CuseDeviceTest, TheDeviceIsThereAsLongAsItsEngineAndHasOneEngine) {
    std::filesystem::current_path("/tmp");
    start();
    EXPECT_EQ(std::filesystem::current_path(), "/tmp") << "relative paths keep their meaning";
    EXPECT_TRUE(std::filesystem::is_character_file(IDPFW_DEVICE));
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_EQ(error_, "/dev/idpfw is there already: another engine, or the kernel's own");
    stop();
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));
    start();
}

} // namespace

std::unique_ptr<Device> openTestedDevice(std::string &error) {
    return openCuseDevice(error);
}

} // namespace idpfwd
