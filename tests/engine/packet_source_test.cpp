#include "engine/packet_source.h"

#include "engine/frames.h"
#include "engine/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kRouter = {2, 0, 0x5e, 0, 0, 1};
constexpr Mac kPc = {2, 0, 0x5e, 0, 0, 0xa};

// Whether the source has counted anything for the PC under this application.
bool hasCounted(const Source &source, const std::string &application) {
    for (const devid_user_entry &user : source.tables.users())
        for (const devid_app_rate_entry &row : source.tables.rows())
            if (row.uid == user.uid && memcmp(user.mac, kPc.data(), 6) == 0 &&
                source.applicationName(row.cat_id, row.app_id) == application)
                return true;
    return false;
}

class PacketSourceTest : public testing::Test {
  protected:
    PacketSourceTest() {
        options_.gatewayMac = kRouter;
        options_.databases = folder_.path() / "trend";
    }

    std::unique_ptr<Source> openFile(const std::string &path, bool fast) {
        options_.name = path;
        options_.fast = fast;
        return openCapture(options_, error_);
    }

    // A capture with a frame at each of the given times, in milliseconds.
    std::string capture(const std::vector<int> &times, std::uint32_t linkType = 1) {
        const Bytes frame = ethernet(kPc, kRouter, 0x0806, Bytes(46, 0));
        std::string file;
        const auto add = [&](std::uint32_t value) {
            file.append(reinterpret_cast<const char *>(&value), sizeof value);
        };
        for (const std::uint32_t value : {0xa1b2c3d4u, 0x00040002u, 0u, 0u, 65535u, linkType})
            add(value);
        for (const int time : times) {
            add(static_cast<std::uint32_t>(time / 1000));
            add(static_cast<std::uint32_t>(time % 1000 * 1000));
            add(static_cast<std::uint32_t>(frame.size()));
            add(static_cast<std::uint32_t>(frame.size()));
            file.append(frame.begin(), frame.end());
        }
        return folder_.write("made.pcap", file);
    }

    Scratch folder_;
    std::string error_;
    PacketOptions options_;
};

TEST_F(PacketSourceTest, ACaptureIsTheSameInEitherFormat) {
    std::vector<std::string> rows;
    for (const char *name : {"home.pcap", "home.pcapng"}) {
        SCOPED_TRACE(name);
        const auto source = openFile(std::string(CAPTURE_DIR "/") + name, true);
        ASSERT_TRUE(source) << error_;
        while (!source->finished()) {
            EXPECT_EQ(source->timeout(), 0);
            source->work();
        }
        EXPECT_EQ(source->timeout(), -1);
        EXPECT_TRUE(hasCounted(*source, "YouTube"));
        EXPECT_STREQ(source->tables.users().front().host_name, "living-room-pc");
        EXPECT_EQ(source->tables.users().front().ts_create, 1700000000u);
        EXPECT_FALSE(source->tables.overflow().any());
        const auto &all = source->tables.rows();
        rows.emplace_back(reinterpret_cast<const char *>(all.data()), all.size() * sizeof all[0]);
    }
    EXPECT_EQ(rows[0], rows[1]);
    EXPECT_THAT(folder_.names("trend"),
                testing::ElementsAre("bwdpi.app.db", "bwdpi.cat.db", "bwdpi.devdb.db"));
}

TEST_F(PacketSourceTest, ACaptureIsPlayedAtItsOwnPaceUnlessFast) {
    const auto source = openFile(capture({0, 0, 150}), false);
    ASSERT_TRUE(source) << error_;
    const auto seen = [&] {
        return source->tables.rows().empty() ? 0u : source->tables.rows()[0].up_accl_pkt;
    };
    source->work();
    EXPECT_EQ(seen(), 2u);
    EXPECT_EQ(source->tables.rows()[0].last_elapsed_ts, 1u) << "0 would say never";
    EXPECT_EQ(source->tables.users()[0].ts_create, 1u);
    EXPECT_GT(source->timeout(), 0);
    EXPECT_LE(source->timeout(), 150);
    while (!source->finished()) {
        poll(nullptr, 0, source->timeout());
        source->work();
    }
    EXPECT_EQ(seen(), 3u);
}

TEST_F(PacketSourceTest, TimesThatRunBackwardsStandStillAndDamageEndsACaptureWithAWord) {
    const std::string path = capture({5000, 1000, 5001, 9000});
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 10);
    const auto source = openFile(path, true);
    ASSERT_TRUE(source) << error_;
    testing::internal::CaptureStderr();
    for (int calls = 0; calls < 10 && !source->finished(); calls++)
        source->work();
    EXPECT_TRUE(source->finished());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("it ends after 3 packets"));
    EXPECT_EQ(source->tables.rows().at(0).up_accl_pkt, 3u);
    EXPECT_EQ(source->tables.users().at(0).ts, 5u);
}

TEST_F(PacketSourceTest, SaysWhyAnInputCannotBeUsed) {
    EXPECT_FALSE(openFile(folder_.path() / "none.pcap", true));
    EXPECT_EQ(error_, folder_.path().string() + "/none.pcap: No such file or directory");
    EXPECT_FALSE(openFile(capture({}, 113), true));
    EXPECT_THAT(error_, testing::HasSubstr("only Ethernet"));
    EXPECT_THAT(error_, testing::HasSubstr("LINUX_SLL"));
    options_.databases = "/dev/null/trend";
    EXPECT_FALSE(openFile(capture({}), true));
    EXPECT_THAT(error_, testing::HasSubstr("/dev/null/trend/bwdpi.app.db"));
    options_.name = "no-such-if";
    EXPECT_FALSE(openInterface(options_, error_));
    EXPECT_THAT(error_, testing::StartsWith("no-such-if: "));
}

// A tap interface in a network namespace of its own: what is written to its descriptor arrives.
int openTap(const char *name) {
    const int flags = geteuid() == 0 ? CLONE_NEWNET : CLONE_NEWNET | CLONE_NEWUSER;
    const int tap = unshare(flags) == 0 ? open("/dev/net/tun", O_RDWR | O_CLOEXEC) : -1;
    ifreq request{};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (tap < 0 || ioctl(tap, TUNSETIFF, &request) != 0)
        return -1;
    const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    request.ifr_flags = IFF_UP;
    const int result = ioctl(control, SIOCSIFFLAGS, &request);
    close(control);
    return result == 0 ? tap : -1;
}

// Works as the engine's loop does until the condition holds, for at most five seconds.
bool workUntil(Source &source, const std::function<bool()> &condition) {
    for (int round = 0; round < 50 && !condition(); round++) {
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
    options_.gatewayMac.reset();
    const auto source = openInterface(options_, error_);
    ASSERT_TRUE(source) << error_;

    const Bytes hello =
        ethernet(kPc, kRouter, 0x0800,
                 ipv4({192, 168, 1, 10}, {203, 0, 113, 5}, 6,
                      tcp(50000, 443, kPush | kAck, clientHello("www.youtube.com"))));
    ASSERT_EQ(write(tap, hello.data(), hello.size()), static_cast<ssize_t>(hello.size()));
    const auto counted = [&] { return hasCounted(*source, "YouTube"); };
    EXPECT_TRUE(workUntil(*source, counted));
    EXPECT_GE(source->tables.users().at(0).ts, 1'600'000'000u);
    for (const devid_user_entry &user : source->tables.users())
        EXPECT_TRUE(memcmp(user.mac, kPc.data(), 6) == 0 ||
                    memcmp(user.mac, kRouter.data(), 6) == 0)
            << "the interface's own address is the router's side";

    testing::internal::CaptureStderr();
    close(tap);
    EXPECT_TRUE(workUntil(*source, [&] { return source->finished(); }));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("no more packets are read"));
    EXPECT_EQ(source->descriptor(), -1);
    EXPECT_TRUE(counted()) << "the tables go on being served";
}

} // namespace
} // namespace idpfwd
