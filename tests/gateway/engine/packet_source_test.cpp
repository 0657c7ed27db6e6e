#include "engine/capture/packet_source.h"

#include "engine/dump.h"
#include "gateway/engine/frames.h"
#include "gateway/engine/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/if_packet.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

long secondsAhead = 0;
int refusedOption = 0; // of packet sockets

} // namespace

// The clock of this executable, which is not the kernel's, can be set ahead.
extern "C" int gettimeofday(timeval *now, void *) noexcept {
    timespec present{};
    clock_gettime(CLOCK_REALTIME, &present);
    *now = {.tv_sec = present.tv_sec + secondsAhead, .tv_usec = present.tv_nsec / 1000};
    return 0;
}

extern "C" int setsockopt(int socket, int level, int option, const void *value,
                          socklen_t size) noexcept {
    if (level == SOL_PACKET && option == refusedOption) {
        errno = ENOPROTOOPT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_setsockopt, socket, level, option, value, size));
}

namespace idpfwd {
namespace {

using namespace frames;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr Mac kRouter = {2, 0, 0x5e, 0, 0, 1};
constexpr Mac kPc = {2, 0, 0x5e, 0, 0, 0xa};

class PacketSourceTest : public testing::Test {
  protected:
    PacketSourceTest() { options_.databases = folder_.path() / "trend"; }

    std::unique_ptr<Source> openFile(const std::string &path, bool fast) {
        options_.name = path;
        options_.fast = fast;
        return openCapture(options_, error_);
    }

    // A capture with a frame at each of the given times, in milliseconds.
    std::string capture(const std::vector<std::uint32_t> &times, std::uint32_t linkType = 1) {
        const Bytes frame = ethernet(kPc, kRouter, 0x0806, Bytes(46, 0));
        std::vector<std::uint32_t> words = {0xa1b2c3d4, 0x00040002, 0, 0, 65535, linkType};
        std::string file;
        const auto flush = [&] {
            file.append(reinterpret_cast<const char *>(words.data()), words.size() * 4);
        };
        flush();
        for (const std::uint32_t time : times) {
            words = {time / 1000, time % 1000 * 1000, 60, 60};
            flush();
            file.append(frame.begin(), frame.end());
        }
        return folder_.write("made.pcap", file);
    }

    Scratch folder_;
    std::string error_;
    PacketOptions options_;
};

TEST_F(PacketSourceTest, ACaptureIsPlayedAtItsOwnPaceUnlessFast) {
    const auto source = openFile(capture({0, 20, 3'600'000}), false);
    ASSERT_TRUE(source) << error_;
    source->work();
    EXPECT_EQ(source->tables.users().at(0).ts_create, 1u) << "0 would say never";
    while (source->tables.rows()[0].up_accl_pkt < 2) {
        poll(nullptr, 0, source->timeout());
        source->work();
    }
    EXPECT_EQ(source->timeout(), 1000);
}

TEST_F(PacketSourceTest, TimesThatRunBackwardsStandStillAndDamageEndsACaptureWithAWord) {
    const std::string path = capture({5000, 1000, 5001, 9000});
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 10);
    const auto source = openFile(path, true);
    ASSERT_TRUE(source) << error_;
    CaptureStderr();
    source->work();
    EXPECT_TRUE(source->finished());
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("it ends after 3 packets"));
    EXPECT_EQ(source->tables.rows().at(0).up_accl_pkt, 3u);
    EXPECT_EQ(source->tables.users().at(0).ts, 5u);
}

TEST_F(PacketSourceTest, AGatewaysAddressThatNeverOccursIsSaid) {
    for (const auto &[address, says] : {std::pair{kRouter, false}, {Mac{2, 2, 2}, true}}) {
        options_.gatewayMac = address;
        const auto source = openFile(capture({1000, 2000}), true);
        CaptureStderr();
        source->work();
        EXPECT_EQ(GetCapturedStderr().find("gateway's MAC") != std::string::npos, says);
    }
}

TEST_F(PacketSourceTest, OnlyACaptureOfEthernetCanBeUsed) {
    EXPECT_FALSE(openFile(capture({}, 113), true));
    EXPECT_THAT(error_, HasSubstr("only Ethernet"));
}

bool enterNetwork() {
    return unshare(geteuid() == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER) == 0;
}

bool setAddress(const char *name, const Mac &mac) {
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::copy(mac.begin(), mac.end(), request.ifr_hwaddr.sa_data);
    const bool set = ioctl(control, SIOCSIFHWADDR, &request) == 0;
    close(control);
    return set;
}

// The router's tap interface: what is written to its descriptor arrives.
int openTap(const char *name) {
    const int tap = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    bool made = tap >= 0 && ioctl(tap, TUNSETIFF, &request) == 0;
    made = made && setAddress(name, kRouter);
    request.ifr_flags = IFF_UP;
    made = made && ioctl(control, SIOCSIFFLAGS, &request) == 0;
    close(control);
    return made ? tap : -1;
}

// Works as the engine's loop does until the condition holds, for at most twenty seconds.
bool workUntil(Source &source, const std::function<bool()> &condition) {
    for (int round = 0; round < 200 && !condition(); round++) {
        pollfd entry{source.descriptor(), POLLIN, 0};
        poll(&entry, 1, 100);
        source.work();
    }
    return condition();
}

class InterfaceTest : public PacketSourceTest, public testing::WithParamInterface<unsigned> {
  protected:
    // Opens the interface, with what arrives there at tap_.
    void SetUp() override {
        options_.name = "lan-test";
        options_.readers = GetParam();
        tap_ = enterNetwork() ? openTap("lan-test") : -1;
        if (tap_ < 0)
            GTEST_SKIP() << "no tap interface in a namespace of its own: " << strerror(errno);
        source_ = openInterface(options_, error_);
        ASSERT_TRUE(source_) << error_;
        EXPECT_EQ(source_->descriptor() != -1, GetParam() == 1) << "several have threads";
    }

    void TearDown() override { close(tap_); }

    // A look-up of 75 bytes to that server.
    void lookUp(std::uint8_t server, const Mac &router = kRouter) const {
        const Bytes packet =
            ipv4({192, 168, 1, 10}, {203, 0, 113, server}, 17, udp(50000, 53, dnsQuery()));
        const Bytes frame = ethernet(kPc, router, 0x0800, packet);
        EXPECT_EQ(write(tap_, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    }

    // Works as the engine's loop does until so many bytes of look-ups are counted.
    bool counts(std::uint64_t bytes) {
        return workUntil(*source_, [&] {
            const auto locked = source_->lockTables();
            const auto &rows = source_->tables.rows();
            return rows.size() == 1 && rows[0].up_accl_byte == bytes &&
                   source_->applicationName(rows[0].cat_id, rows[0].app_id) == "DNS";
        });
    }

    int tap_ = -1;
    std::unique_ptr<Source> source_;
};

TEST_P(InterfaceTest, IsTakenUpAgainWhenItComesBackAndEverythingCountsOnce) {
    source_->work();
    for (std::uint8_t server = 0; server < 100; server++)
        lookUp(server);
    EXPECT_TRUE(counts(7500)) << dumpTables(*source_);
    EXPECT_EQ(source_->tables.users().size(), 1U) << "the interface itself is the router";
    EXPECT_EQ(source_->captureDrops(), 0U);

    CaptureStderr();
    const Bytes forTheFirst = ethernet(kPc, kRouter, 0x0806, Bytes(46, 0));
    for (int frame = 0; frame < 20'000; frame++) // another one finds the interface gone meanwhile
        EXPECT_GT(write(tap_, forTheFirst.data(), forTheFirst.size()), 0);
    close(tap_);
    EXPECT_TRUE(workUntil(*source_, [&] { return source_->descriptor() == -1; }));
    tap_ = openTap("lan-test");
    EXPECT_TRUE(workUntil(*source_, [&] {
        lookUp(7);
        const auto locked = source_->lockTables();
        return source_->tables.rows().at(0).up_accl_byte > 7500;
    }));
    EXPECT_THAT(GetCapturedStderr(), testing::AllOf(HasSubstr("interface disappeared; waiting"),
                                                    HasSubstr("packets are read again")));
    source_->stop();
    EXPECT_TRUE(source_->finished());
}

// As a bridge's does when it gets another port; who has not noticed sends to the one before.
TEST_P(InterfaceTest, IsNoClientByAnyAddressThatItHasHad) {
    constexpr Mac kBridged = {2, 0, 0x5e, 0, 0, 2};
    ASSERT_TRUE(setAddress("lan-test", kBridged));
    source_->work();
    lookUp(1, kBridged);
    lookUp(1, kRouter);
    EXPECT_TRUE(counts(150)) << dumpTables(*source_);
}

TEST_P(InterfaceTest, CannotBeSharedWhereTheKernelRefuses) {
    for (const auto &[option, says] : {std::pair{PACKET_FANOUT, "cannot share"},
                                       {PACKET_FANOUT_DATA, "cannot choose a reader"}}) {
        refusedOption = option;
        EXPECT_EQ(openInterface(options_, error_) == nullptr, GetParam() > 1);
        EXPECT_THAT(error_, HasSubstr(GetParam() > 1 ? says : ""));
    }
    refusedOption = 0;
}

TEST_P(InterfaceTest, IsReadOnWhenTheClockIsSetBack) {
    source_.reset();
    secondsAhead = 3600;
    source_ = openInterface(options_, error_);
    secondsAhead = 0;
    EXPECT_TRUE(workUntil(*source_, [&] {
        lookUp(7);
        const auto locked = source_->lockTables();
        return !source_->tables.rows().empty();
    }));
}

INSTANTIATE_TEST_SUITE_P(Readers, InterfaceTest, testing::Values(1U, 2U));

TEST_F(PacketSourceTest, AnInterfaceThatStaysAwayIsAFailure) {
    const int tap = enterNetwork() ? openTap("lan-test") : -1;
    if (tap < 0)
        GTEST_SKIP() << "no tap interface in a namespace of its own: " << strerror(errno);
    options_.name = "lan-test";
    options_.awaySeconds = 0;
    const auto source = openInterface(options_, error_);
    ASSERT_TRUE(source) << error_;
    EXPECT_EQ(source->failure(), "");
    close(tap);
    EXPECT_TRUE(workUntil(*source, [&] { return !source->failure().empty(); }));
    EXPECT_THAT(source->failure(), HasSubstr("lan-test has been gone for"));
}

} // namespace
} // namespace idpfwd
