// The real device that the kernel makes for the engine, in the router in a machine.
#include "engine/device_cuse.h"

#include "device_rig.h"
#include "scratch.h"

#include <csignal>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace idpfwd {
namespace {

using CuseDeviceTest = DeviceTest;

TEST_F(CuseDeviceTest, TheDeviceIsThereAsLongAsItsEngineAndHasOneEngine) {
    start();
    EXPECT_TRUE(std::filesystem::is_character_file(IDPFW_DEVICE));
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_EQ(error_, "/dev/idpfw is there already: another engine, or the kernel's own");
    stop();
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));
    start();
    forward_ioctl asked = header(IDPFW_NR_USER, 1);
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), 0);
}

TEST_F(CuseDeviceTest, RelativePathsKeepTheirMeaning) {
    const Scratch scratch;
    std::filesystem::current_path(scratch.path());
    start();
    EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical(scratch.path()));
    std::filesystem::current_path("/");
}

TEST_F(CuseDeviceTest, UnknownRequestsAndOtherOperationsAreRefused) {
    start();
    forward_ioctl asked = header(IDPFW_NR_DOMAIN, 8);
    EXPECT_EQ(call(&asked, IDPFW_NR_DOMAIN), ENOTTY);
    const int device = open(IDPFW_DEVICE, O_RDWR | O_CLOEXEC);
    char byte = 0;
    EXPECT_EQ(read(device, &byte, 1), -1);
    EXPECT_EQ(write(device, &byte, 1), -1);
    EXPECT_EQ(ioctl(device, 0x5401, &byte), -1); // a terminal's
    EXPECT_EQ(errno, ENOTTY);
    close(device);
}

// The answer of a caller that died in the middle must not reach the next one.
TEST_F(CuseDeviceTest, CallersThatDieInTheMiddleDoNoHarm) {
    source_.tables.replace(std::vector<devid_user_entry>(63),
                           std::vector<devid_app_rate_entry>(32256));
    start();
    for (int i = 0; i < 20; ++i) {
        const pid_t caller = fork();
        if (caller == 0) {
            forward_ioctl asked = header(IDPFW_NR_APP, 1);
            for (;;)
                call(&asked, IDPFW_NR_APP);
        }
        usleep(static_cast<useconds_t>(5000 + 1000 * i));
        kill(caller, SIGKILL);
        waitpid(caller, nullptr, 0);
    }
    forward_ioctl asked = header(IDPFW_NR_APP, 1);
    EXPECT_EQ(call(&asked, IDPFW_NR_APP), 0);
    EXPECT_EQ(used_, 32256U * 36U);
}

} // namespace

std::string deviceRefusal() {
    return "";
}

std::unique_ptr<Device> openTestedDevice(std::string &error) {
    return openCuseDevice(error);
}

} // namespace idpfwd
