// The real device that the kernel makes for the engine, in the router in a machine.
#include "engine/device/device_cuse.h"

#include "device_rig.h"

#include <csignal>
#include <filesystem>
#include <sys/wait.h>

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

// The answer of a caller that died in the middle must not reach the next one.
TEST_F(CuseDeviceTest, CallersThatDieInTheMiddleDoNoHarm) {
    start();
    std::vector<std::uint8_t> input(1'000'000, 7);
    forward_ioctl asked = request(input);
    for (int i = 0; i < 20; ++i) {
        const pid_t caller = fork();
        while (caller == 0)
            call(&asked);
        usleep(static_cast<useconds_t>(5000 + 1000 * i));
        kill(caller, SIGKILL);
        waitpid(caller, nullptr, 0);
    }
    EXPECT_EQ(call(&asked), 0);
    EXPECT_EQ(used_, input.size());
}

} // namespace

std::string deviceRefusal() {
    return "";
}

std::unique_ptr<Device> openTestedDevice(std::string &error) {
    return openCuseDevice(error);
}

} // namespace idpfwd
