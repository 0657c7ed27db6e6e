// The socket device and the shim together: the shim is linked into this executable, so that its
// ioctl is the one that is called.
#include "engine/device_socket.h"

#include "dpi/usr_ioctl.h"
#include "engine/caller_header.h"
#include "engine/scenario.h"
#include "engine/wire.h"
#include "own_dev.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace idpfwd {
namespace {

// Answers group 15 with the input that it was sent, everything else from its tables.
class Echo final : public Source {
  public:
    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override { return -1; }
    void work() override {}
    [[nodiscard]] bool finished() const override { return false; }
    std::optional<Reply> answer(const Request &request) override {
        if (request.nr != IDPFW_NR_VP)
            return std::nullopt;
        return Reply{.error = 0, .output = request.input, .reportedLength = {}};
    }
};

// An engine on a thread of its own.
class Running {
  public:
    Running(Device &device, Source &source) : thread_([&] { serve(device, source); }) {}
    ~Running() {
        stop_ = true;
        thread_.join();
    }

  private:
    void serve(Device &device, Source &source) {
        std::vector<pollfd> watched;
        while (!stop_) {
            watched.clear();
            device.watch(watched);
            poll(watched.data(), watched.size(), 2);
            device.serve(watched, source);
        }
    }

    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

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

// An address that belongs to nobody.
void *badAddress() {
    return reinterpret_cast<void *>(std::uintptr_t{0x1000});
}

class SocketDeviceTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!ownDevRefusal.empty())
            GTEST_SKIP() << ownDevRefusal;
        setenv(IDPFWD_SOCKET_VARIABLE, path_.c_str(), 1);
    }

    void TearDown() override {
        running_.reset();
        device_.reset();
        unlink(IDPFW_DEVICE);
    }

    void start() {
        device_ = openSocketDevice(path_, IDPFW_DEVICE, error_);
        ASSERT_NE(device_, nullptr) << error_;
        running_.emplace(*device_, source_);
    }

    // 0, or the errno of the ioctl on a device that is opened for it.
    static int call(forward_ioctl *header, std::uint8_t nr) {
        const int device = open(IDPFW_DEVICE, O_RDWR | O_CLOEXEC);
        const int result = ioctl(device, IDPFW_REQUEST(nr), header);
        const int error = errno;
        close(device);
        return result == 0 ? 0 : error;
    }

    forward_ioctl header(std::uint8_t nr, std::uint8_t op) {
        forward_ioctl made{};
        made.magic = IDPFW_MAGIC;
        made.nr = nr;
        made.op = op;
        made.out = out_.data();
        made.out_len = static_cast<std::uint32_t>(out_.size());
        made.out_used_len = &used_;
        return made;
    }

    forward_ioctl withInput(std::vector<std::uint8_t> &input) {
        forward_ioctl made = header(IDPFW_NR_VP, 5);
        made.in_type = 2;
        made.in_raw = input.data();
        made.in_len = static_cast<std::uint32_t>(input.size());
        return made;
    }

    Scratch scratch_;
    std::string path_ = scratch_.path() / "socket";
    std::string error_;
    Echo source_;
    std::unique_ptr<Device> device_;
    std::optional<Running> running_;
    std::vector<std::uint8_t> out_ = std::vector<std::uint8_t>(2'000'000);
    std::uint32_t used_ = 0;
};

TEST_F(SocketDeviceTest, TablesArriveWholeWithTheirLength) {
    devid_user_entry user{};
    user.uid = 9;
    devid_app_rate_entry row{};
    row.uid = 7;
    source_.tables.replace(std::vector(63, user), std::vector(32256, row));
    start();
    forward_ioctl users = header(IDPFW_NR_USER, 1);
    EXPECT_EQ(call(&users, IDPFW_NR_USER), 0);
    EXPECT_EQ(used_, 63U * 90U);
    EXPECT_EQ(out_[62 * 90], 9);
    forward_ioctl rows = header(IDPFW_NR_APP, 1);
    EXPECT_EQ(call(&rows, IDPFW_NR_APP), 0);
    EXPECT_EQ(used_, 32256U * 36U);
    EXPECT_EQ(out_[32255 * 36], 7);

    rows.out_len = 37;
    rows.out_used_len = nullptr;
    out_.assign(out_.size(), 0xEE);
    EXPECT_EQ(call(&rows, IDPFW_NR_APP), 0);
    EXPECT_EQ(out_[36], 7);
    EXPECT_EQ(out_[37], 0xEE) << "nothing beyond the capacity";
}

TEST_F(SocketDeviceTest, InputReachesTheEngineUpToItsLimit) {
    start();
    std::vector<std::uint8_t> input(kMaxInput);
    std::iota(input.begin(), input.end(), 0);
    forward_ioctl asked = withInput(input);
    EXPECT_EQ(call(&asked, IDPFW_NR_VP), 0);
    EXPECT_EQ(used_, kMaxInput);
    EXPECT_TRUE(std::equal(input.begin(), input.end(), out_.begin()));
    input.push_back(0);
    asked = withInput(input);
    EXPECT_EQ(call(&asked, IDPFW_NR_VP), EINVAL);
}

TEST_F(SocketDeviceTest, FailuresCarryTheirErrnoAndTouchNothing) {
    start();
    used_ = 77;
    forward_ioctl asked = header(99, 1);
    EXPECT_EQ(call(&asked, 99), ENOTTY);
    asked = header(IDPFW_NR_USER, 1);
    asked.magic = 0;
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), EINVAL);
    EXPECT_EQ(used_, 77U);
}

TEST_F(SocketDeviceTest, BadAddressesFailAndTheEngineGoesOn) {
    source_.tables.seeUser({1, 2, 3, 4, 5, 6}, {});
    start();
    std::vector<std::uint8_t> input(100);
    forward_ioctl good = header(IDPFW_NR_USER, 1);
    forward_ioctl badOut = good, badUsed = good, badInput = withInput(input);
    badOut.out = badAddress();
    badUsed.out_used_len = static_cast<std::uint32_t *>(badAddress());
    badInput.in_raw = badAddress();
    EXPECT_EQ(call(nullptr, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(static_cast<forward_ioctl *>(badAddress()), IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badOut, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badUsed, IDPFW_NR_USER), EFAULT);
    EXPECT_EQ(call(&badInput, IDPFW_NR_VP), EFAULT);
    EXPECT_EQ(call(&good, IDPFW_NR_USER), 0);
}

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

TEST_F(SocketDeviceTest, ManyThreadsEachGetTheirOwnAnswer) {
    start();
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::vector<std::uint8_t> input(5000, static_cast<std::uint8_t>(t)), output(5000);
            forward_ioctl asked = withInput(input);
            asked.out = output.data();
            asked.out_len = 5000;
            asked.out_used_len = nullptr;
            for (int i = 0; i < 25; ++i) {
                if (call(&asked, IDPFW_NR_VP) == 0 && output == input)
                    ++right;
                output.assign(5000, 0xFF);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 8 * 25);
}

TEST_F(SocketDeviceTest, GarbageAndIdleCallersDoNotKeepOthersOut) {
    start();
    std::vector<int> links;
    links.reserve(40);
    for (int i = 0; i < 40; ++i)
        links.push_back(connectTo(path_)); // more than are served at a time, and silent
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
    const int link = connectTo(path_);
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
    setenv(IDPFWD_SOCKET_VARIABLE, path_.c_str(), 1);

    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path_);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 8), 0);
    struct Case {
        std::vector<std::uint32_t> reply;
        int error;
    };
    const Case cases[] = {
        {{}, ENODEV},
        {{WIRE_MARK, 0}, ENODEV},
        {{WIRE_MARK, 0, 4, 4}, ENODEV}, // used length missing
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
        EXPECT_EQ(used_, 0U) << "nothing that was cut short counts as there";
    }
    close(listener);
    EXPECT_EQ(call(&asked, IDPFW_NR_USER), ENODEV) << "a socket without an engine";
}

TEST_F(SocketDeviceTest, ADeadEnginesSocketIsReplacedALivingOnesIsNot) {
    start();
    EXPECT_EQ(openSocketDevice(path_, IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("another engine"));
    EXPECT_TRUE(std::filesystem::exists(path_));
    running_.reset();
    device_.reset();
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));

    const int dead = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path_);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(dead);
    std::ofstream(IDPFW_DEVICE).put('x');
    start();
    running_.reset();
    device_.reset();
    EXPECT_TRUE(std::filesystem::exists(IDPFW_DEVICE)) << "it was there before";

    scratch_.write("socket", "a letter");
    EXPECT_EQ(openSocketDevice(path_, IDPFW_DEVICE, error_), nullptr);
    EXPECT_EQ(scratch_.read("socket"), "a letter");
    EXPECT_EQ(openSocketDevice(std::string(108, 'x'), IDPFW_DEVICE, error_), nullptr);
    EXPECT_EQ(openSocketDevice(scratch_.path() / "no" / "folder", IDPFW_DEVICE, error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("No such file"));
}

} // namespace
} // namespace idpfwd
