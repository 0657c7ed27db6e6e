// The socket device and the shim together: the shim is linked into this executable, so that its
// ioctl is the one that is called.
#include "engine/device_socket.h"

#include "device_rig.h"
#include "engine/wire.h"
#include "own_dev.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>

namespace idpfwd {
namespace {

const std::string kSocket = "/dev/engine.sock"; // in the tests' own /dev

sockaddr_un addressOf(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int connectTo(const std::string &path) {
    const int link = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(connect(link, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return link;
}

class SocketDeviceTest : public DeviceTest {
  protected:
    void TearDown() override {
        DeviceTest::TearDown();
        unlink(IDPFW_DEVICE);
        unlink(kSocket.c_str());
    }
};

TEST_F(SocketDeviceTest, OtherIoctlsAndOtherFilesStayWithTheKernel) {
    start();
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    ASSERT_EQ(write(pipes[1], "abc", 3), 3);
    int waiting = 0;
    EXPECT_EQ(ioctl(pipes[0], FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 3);
#ifdef EMULATOR
    GTEST_SKIP() << "the emulator hands unknown ioctls to no kernel";
#endif
    forward_ioctl asked = header(IDPFW_NR_USER, 1);
    EXPECT_EQ(ioctl(pipes[0], IDPFW_REQUEST(IDPFW_NR_USER), &asked), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(ioctl(-1, IDPFW_REQUEST(IDPFW_NR_USER), &asked), -1);
    EXPECT_EQ(errno, EBADF);
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(SocketDeviceTest, GarbageAndIdleCallersDoNotKeepOthersOut) {
    start();
    std::vector<int> links;
    links.reserve(40);
    for (int i = 0; i < 40; ++i)
        links.push_back(connectTo(kSocket)); // more than are served at a time, and silent
    for (const auto &bytes : {std::vector<std::uint32_t>{1, 2, 3}, {WIRE_MARK, 0, 0xFFFFFFFF}}) {
        const int link = links[bytes[0] == 1 ? 0 : 1];
        ASSERT_EQ(send(link, bytes.data(), 12, 0), 12);
        char byte = 0;
        EXPECT_LE(recv(link, &byte, 1, 0), 0) << "dropped without an answer";
    }
    forward_ioctl asked = header(IDPFW_NR_USER, 1);
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), 0);
    for (const int link : links)
        close(link);
}

TEST_F(SocketDeviceTest, A32BitCallersHeaderIsServedInPieces) {
    source_.tables.seeUser({1, 2, 3, 4, 5, 6}, {});
    start();
    std::vector<std::uint8_t> bytes(12 + 44);
    const wire_request request{WIRE_MARK, 0xC02CBF0A, 44};
    memcpy(bytes.data(), &request, sizeof request);
    bytes[12] = 191;
    bytes[16] = 10;
    bytes[17] = 1;
    bytes[12 + 16] = 1;  // any address
    bytes[12 + 24] = 50; // capacity
    const int link = connectTo(kSocket);
    for (const std::uint8_t byte : bytes)
        ASSERT_EQ(send(link, &byte, 1, 0), 1);
    std::vector<std::uint8_t> reply(200);
    ASSERT_EQ(recv(link, reply.data(), reply.size(), MSG_WAITALL), 12 + 4 + 50);
    EXPECT_EQ(reply[4], 0) << "errno";
    EXPECT_EQ(reply[8], 50) << "output length";
    EXPECT_EQ(reply[12 + 50], 50) << "used length, behind the output";
    close(link);
}

TEST_F(SocketDeviceTest, AnEngineThatIsGoneOrMadIsAnErrorNotAHang) {
    std::ofstream(IDPFW_DEVICE).put('x');
    forward_ioctl asked = header(IDPFW_NR_USER, 1);
    asked.out_len = 10;
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), ENODEV) << "no socket";
    setenv(IDPFWD_SOCKET_VARIABLE, std::string(200, 'x').c_str(), 1);
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), ENODEV) << "no socket can have this name";
    setenv(IDPFWD_SOCKET_VARIABLE, kSocket.c_str(), 1);

    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(kSocket);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    struct Case {
        std::vector<std::uint32_t> reply;
        int error;
    };
    const Case cases[] = {
        {{}, ENODEV},
        {{WIRE_MARK, 0}, ENODEV},
        {{WIRE_MARK, 0, 4, 4}, ENODEV}, // output missing
        {{1, 0, 0, 0}, EPROTO},
        {{WIRE_MARK, 5000, 0}, EPROTO},   // no errno
        {{WIRE_MARK, 0, 11, 11}, EPROTO}, // more than asked for
        {{WIRE_MARK, EBUSY, 0}, EBUSY},
    };
    for (const Case &each : cases) {
        std::thread mad([&] {
            const int link = accept(listener, nullptr, nullptr);
            char request[sizeof(wire_request) + sizeof(forward_ioctl)];
            recv(link, request, sizeof request, MSG_WAITALL);
            send(link, each.reply.data(), each.reply.size() * 4, MSG_NOSIGNAL);
            close(link);
        });
        EXPECT_EQ(call(&asked, IDPFW_NR_USER), each.error);
        mad.join();
    }
    close(listener);
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), ENODEV) << "a socket without an engine";
}

TEST_F(SocketDeviceTest, ADeadEnginesSocketIsReplacedALivingOnesIsNot) {
    start();
    EXPECT_EQ(openSocketDevice(kSocket, IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("another engine"));
    EXPECT_TRUE(std::filesystem::exists(kSocket));
    stop();
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));

    const int dead = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(kSocket);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(dead);
    std::ofstream(IDPFW_DEVICE).put('x');
    start();
    stop();
    EXPECT_TRUE(std::filesystem::exists(IDPFW_DEVICE)) << "it was there before";

    std::ofstream(kSocket) << "a letter";
    EXPECT_EQ(openSocketDevice(kSocket, IDPFW_DEVICE, error_), nullptr);
    EXPECT_EQ(std::filesystem::file_size(kSocket), 8U) << "a file is no dead engine's socket";
    EXPECT_EQ(openSocketDevice(std::string(108, 'x'), IDPFW_DEVICE, error_), nullptr);
    EXPECT_EQ(openSocketDevice("/dev/no/folder", IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("No such file"));
}

} // namespace

std::string deviceRefusal() {
    return ownDevRefusal;
}

std::unique_ptr<Device> openTestedDevice(std::string &error) {
    setenv(IDPFWD_SOCKET_VARIABLE, kSocket.c_str(), 1);
    return openSocketDevice(kSocket, IDPFW_DEVICE, error);
}

} // namespace idpfwd
