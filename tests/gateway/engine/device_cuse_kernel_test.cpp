// What only a real kernel can show, in the router in a machine.
#include "device_rig.h"

#include <csignal>
#include <sys/wait.h>

namespace idpfwd {
namespace {

using CuseDeviceTest = DeviceTest;

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

} // namespace idpfwd
