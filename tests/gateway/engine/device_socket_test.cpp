// The socket device and the shim together: the shim is linked into this executable, so that its
// ioctl is the one that is called.
#include "engine/device/device_socket.h"

#include "device_rig.h"
#include "engine/device/wire.h"
#include "own_dev.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

volatile std::sig_atomic_t millisecondsAhead = 0;

} // namespace

// The clocks of this executable can be set ahead.
extern "C" int clock_gettime(clockid_t clock, timespec *now) {
    const auto result = syscall(SYS_clock_gettime, clock, now);
    const long nanoseconds = now->tv_nsec + millisecondsAhead % 1000 * 1'000'000;
    now->tv_sec += millisecondsAhead / 1000 + nanoseconds / 1'000'000'000;
    now->tv_nsec = nanoseconds % 1'000'000'000;
    return static_cast<int>(result);
}

namespace idpfwd {
namespace {

using SocketDeviceTest = DeviceTest;
using Words = std::vector<std::uint32_t>;

constexpr sockaddr_un kAddress = {AF_UNIX, "/dev/engine.sock"};
const std::string kSocket = kAddress.sun_path;

int withAddress(int (*function)(int, const sockaddr *, socklen_t)) {
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(function(made, reinterpret_cast<const sockaddr *>(&kAddress), sizeof kAddress), 0);
    return made;
}

// What the engine answers before it hangs up. The request comes byte by byte.
Words answerTo(const Words &request) {
    const int link = withAddress(connect);
    const auto *bytes = reinterpret_cast<const char *>(request.data());
    for (std::size_t i = 0; i < request.size() * 4; ++i)
        send(link, bytes + i, 1, MSG_NOSIGNAL);
    Words reply(100);
    reply.resize(std::max<ssize_t>(recv(link, reply.data(), 400, MSG_WAITALL), 0) / 4);
    close(link);
    return reply;
}

TEST_F(SocketDeviceTest, OtherIoctlsAndOtherFilesStayWithTheKernel) {
    start();
    const int other = memfd_create("other", MFD_CLOEXEC);
    int waiting = 0;
    EXPECT_EQ(ioctl(other, FIONREAD, &waiting), 0);
#ifndef EMULATOR // which hands unknown ioctls to no kernel
    forward_ioctl asked = request(out_);
    EXPECT_EQ(ioctl(other, IDPFW_REQUEST(IDPFW_NR_VP), &asked), -1);
    EXPECT_EQ(errno, ENOTTY);
#endif
    close(other);
}

#if defined(__GLIBC__) && __SIZEOF_POINTER__ == 4
extern "C" int __ioctl_time64(int descriptor, unsigned long number, ...);

TEST_F(SocketDeviceTest, CallersWith64BitTimesAreServedToo) {
    start();
    std::vector<std::uint8_t> input(10);
    forward_ioctl asked = request(input);
    const int device = open(IDPFW_DEVICE, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(__ioctl_time64(device, IDPFW_REQUEST(IDPFW_NR_VP), &asked), 0);
    EXPECT_EQ(used_, 10U);
    close(device);
}
#endif

TEST_F(SocketDeviceTest, GarbageAndIdleCallersDoNotKeepOthersOut) {
    start();
    EXPECT_EQ(std::filesystem::status(kSocket).permissions(), std::filesystem::perms{0600});
    std::vector<int> idle(90); // more than are served at a time, and than wait
    for (int &link : idle)
        link = withAddress(connect);
    forward_ioctl empty{};
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(call(&empty), EINVAL);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2)) << "not three";
    Words request = {0, 0, 44, 0, 2U << 24, 0, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(answerTo(request), Words{}) << "no mark";
    request[0] = WIRE_MARK;
    EXPECT_EQ(answerTo(request), (Words{WIRE_MARK, ENOTTY, 0})) << "refused before its input";
    request[2] = 40;
    EXPECT_EQ(answerTo(request), Words{}) << "no header has this size";
    for (const int link : idle)
        close(link);
}

TEST_F(SocketDeviceTest, AnEngineThatIsGoneOrMadIsAnErrorNotAHang) {
    std::ofstream(IDPFW_DEVICE).put('x');
    forward_ioctl asked{};
    asked.out = out_.data();
    asked.out_len = 10;
    setenv(IDPFWD_SOCKET_VARIABLE, std::string(200, 'x').c_str(), 1);
    EXPECT_EQ(call(&asked), ENODEV) << "no socket can have this name";
    setenv(IDPFWD_SOCKET_VARIABLE, kSocket.c_str(), 1);
    const int listener = withAddress(bind);
    ASSERT_EQ(listen(listener, 8), 0);
    const std::pair<Words, int> cases[] = {
        {{WIRE_MARK, 0, 4, 4}, ENODEV},                                   // output missing
        {{1, 0, 0, 0}, EPROTO},         {{WIRE_MARK, 0, 11, 11}, EPROTO}, // more than asked for
        {{WIRE_MARK, 4095, 0}, 4095},   {{WIRE_MARK, 4096, 0}, EPROTO},
    };
    for (const auto &[reply, error] : cases) {
        const std::jthread mad([listener, &reply] {
            const int link = accept(listener, nullptr, nullptr);
            char request[sizeof(wire_request) + sizeof(forward_ioctl)];
            recv(link, request, sizeof request, MSG_WAITALL);
            send(link, reply.data(), reply.size() * 4, MSG_NOSIGNAL);
            close(link);
        });
        EXPECT_EQ(call(&asked), error);
    }
    close(listener);
    EXPECT_EQ(call(&asked), ENODEV) << "a socket without an engine";
}

TEST_F(SocketDeviceTest, ASignalDoesNotMakeTheWaitForAPlaceLonger) {
    std::ofstream(IDPFW_DEVICE).put('x');
    setenv(IDPFWD_SOCKET_VARIABLE, kSocket.c_str(), 1);
    const int listener = withAddress(bind);
    ASSERT_EQ(listen(listener, 0), 0);
    const int waiting = withAddress(connect); // all that there is room for
    struct sigaction late {};
    late.sa_handler = [](int) { millisecondsAhead = 4900; };
    sigaction(SIGALRM, &late, nullptr);
    const itimerval soon{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 50'000}};
    const auto began = std::chrono::steady_clock::now();
    setitimer(ITIMER_REAL, &soon, nullptr);
    forward_ioctl asked{};
    EXPECT_EQ(call(&asked), ETIMEDOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(7)) << "not nine";
    millisecondsAhead = 0;
    close(waiting);
    close(listener);
}

TEST_F(SocketDeviceTest, CallersThatHangUpAreDroppedAtOnce) {
    device_ = openTestedDevice(error_);
    ASSERT_NE(device_, nullptr) << error_;
    std::vector<std::uint8_t> input(kMaxInput);
    const forward_ioctl asked = request(input);
    const wire_request head{WIRE_MARK, IDPFW_REQUEST(IDPFW_NR_VP), sizeof asked};
    for (const bool whole : {false, true}) { // before the end of the request, of the reply
        const int caller = withAddress(connect);
        send(caller, &head, sizeof head, 0);
        send(caller, &asked, sizeof asked, 0);
        for (std::size_t left = whole ? input.size() : 0; left > 0; turn())
            left -= std::max<ssize_t>(send(caller, input.data(), left, MSG_DONTWAIT), 0);
        turn();
        EXPECT_NE(device_->timeout(), -1) << "it is waited for";
        close(caller);
        turn();
        EXPECT_EQ(device_->timeout(), -1);
    }
}

TEST_F(SocketDeviceTest, WithoutDescriptorsItPausesForASecond) {
    device_ = openTestedDevice(error_);
    ASSERT_NE(device_, nullptr) << error_;
    EXPECT_EQ(device_->timeout(), -1);
    const int caller = withAddress(connect);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
    const auto turn = [this] {
        std::vector<pollfd> watched;
        device_->watch(watched);
        poll(watched.data(), watched.size(), 0);
        watched[0].revents = POLLIN;
        device_->serve(watched, server_);
        return watched[0].fd;
    };
    turn(); // takes the caller
    turn(); // there is no other one: nothing to pause for
    EXPECT_LE(device_->timeout(), 1000);
    close(caller);
    turn();
    setrlimit(RLIMIT_NOFILE, &none);
    const int listener = turn();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_NE(listener, -1);
    EXPECT_GT(device_->timeout(), 500);
    EXPECT_LE(device_->timeout(), 1000);
    EXPECT_EQ(turn(), -1);
}

TEST_F(SocketDeviceTest, ADeadEnginesSocketIsReplacedALivingOnesIsNot) {
    start();
    EXPECT_EQ(openSocketDevice(kSocket, IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("another engine"));
    stop();
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));

    close(withAddress(bind));
    std::ofstream(IDPFW_DEVICE).put('x');
    start();
    stop();
    EXPECT_TRUE(std::filesystem::exists(IDPFW_DEVICE)) << "it was there before";
    std::ofstream{IDPFW_DEVICE};
    start();
    stop();
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE)) << "empty, as a killed engine leaves it";

    std::ofstream(kSocket) << "a letter";
    const int free = dup(STDIN_FILENO);
    close(free);
    EXPECT_EQ(openSocketDevice("/dev/none/socket", IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("No such file"));
    EXPECT_EQ(openSocketDevice(kSocket, IDPFW_DEVICE, error_), nullptr);
    EXPECT_EQ(dup(STDIN_FILENO), free) << "a descriptor is left open";
    close(free);
    EXPECT_EQ(std::filesystem::file_size(kSocket), 8U) << "a file is no dead engine's socket";
}

} // namespace

std::string deviceRefusal() {
    return ownDev();
}

std::unique_ptr<Device> openTestedDevice(std::string &error) {
    setenv(IDPFWD_SOCKET_VARIABLE, kSocket.c_str(), 1);
    return openSocketDevice(kSocket, IDPFW_DEVICE, error);
}

} // namespace idpfwd
