#include "engine/packets/packet_source.h"

#include "gateway/engine/frames.h"
#include "gateway/engine/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

// The router's tap interface, in a network namespace of its own: what is written to its descriptor
// arrives.
int openTap(const char *name) {
    const int flags = geteuid() == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER;
    const int tap = unshare(flags) == 0 ? open("/dev/net/tun", O_RDWR | O_CLOEXEC) : -1;
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    bool made = tap >= 0 && ioctl(tap, TUNSETIFF, &request) == 0;
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::copy(kRouter.begin(), kRouter.end(), request.ifr_hwaddr.sa_data);
    made = made && ioctl(control, SIOCSIFHWADDR, &request) == 0;
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

TEST_F(PacketSourceTest, AnInterfaceIsReadUntilItGoesAway) {
    const int tap = openTap("lan-test");
    if (tap < 0)
        GTEST_SKIP() << "no tap interface in a namespace of its own: " << strerror(errno);
    options_.name = "lan-test";
    const auto source = openInterface(options_, error_);
    ASSERT_TRUE(source) << error_;

    const Bytes hello = tcp(50000, 443, kPush | kAck, clientHello("www.youtube.com"));
    const Bytes frame =
        ethernet(kPc, kRouter, 0x0800, ipv4({192, 168, 1, 10}, {203, 0, 113, 5}, 6, hello));
    ASSERT_EQ(write(tap, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    EXPECT_TRUE(workUntil(*source, [&] { return !source->tables.rows().empty(); }));
    const devid_app_rate_entry row = source->tables.rows().at(0);
    EXPECT_EQ(source->applicationName(row.cat_id, row.app_id), "YouTube");
    EXPECT_EQ(source->tables.users().size(), 1U) << "the interface itself is the router";

    CaptureStderr();
    close(tap);
    EXPECT_TRUE(workUntil(*source, [&] { return source->finished(); }));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("no more packets are read"));
    EXPECT_EQ(source->descriptor(), -1);
}

} // namespace
} // namespace idpfwd
