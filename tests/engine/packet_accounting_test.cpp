#include "engine/packet_accounting.h"

#include "engine/frames.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kRouter = {2, 0, 0, 0, 0, 1};
constexpr Mac kPc = {2, 0, 0, 0, 0, 0xa};
constexpr Mac kPhone = {2, 0, 0, 0, 0, 0xb};
constexpr Mac kGroup = {1, 0, 0x5e, 0, 0, 0xfb};
constexpr Mac kEveryone = {255, 255, 255, 255, 255, 255};
const Bytes kPcAddress = {192, 168, 1, 10};
const Bytes kPhoneAddress = {192, 168, 1, 11};
const Bytes kServer = {203, 0, 113, 5};
const Bytes kNoise = {0x81, 0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8, 0x19, 0x2a, 0x3b, 0x4c};
constexpr std::uint32_t kForget = 600;

class PacketAccountingTest : public testing::Test {
  protected:
    PacketAccountingTest() : names_(namesOf(*classifier_)) {}

    static std::map<std::uint16_t, std::string> namesOf(const Classifier &classifier) {
        std::map<std::uint16_t, std::string> names;
        for (const NamedApplication &named : classifier.applications())
            names[named.application.id] = named.name;
        return names;
    }

    // As on the wire, unless a length says that only a part of it was captured. The buffer has no
    // byte more than the frame.
    void pass(const Bytes &frame, std::uint32_t length = 0) {
        const auto exact = std::make_unique<std::uint8_t[]>(frame.size());
        std::copy(frame.begin(), frame.end(), exact.get());
        const auto captured = static_cast<std::uint32_t>(frame.size());
        accounting_->add({exact.get(), frame.size()}, std::max(length, captured), now_);
    }

    void wait(std::uint64_t milliseconds) {
        now_.milliseconds += milliseconds;
        now_.seconds = static_cast<std::uint32_t>(now_.milliseconds / 1000);
        accounting_->advance(now_);
    }

    // "Name up/down" of every application of a device, in the order of the rows.
    std::string usage(const Mac &mac) {
        const devid_user_entry *user = tables_.findUser(mac);
        if (user == nullptr)
            return "no user";
        std::string text;
        for (const devid_app_rate_entry &row : tables_.rows())
            if (row.uid == user->uid)
                text += (text.empty() ? "" : ", ") + names_[row.app_id] + " " +
                        std::to_string(row.up_accl_byte) + "/" + std::to_string(row.down_accl_byte);
        return text;
    }

    static Bytes up(const Bytes &segment, std::uint8_t protocol = kProtocolTcp) {
        return ethernet(kPc, kRouter, 0x0800, ipv4(kPcAddress, kServer, protocol, segment));
    }
    static Bytes down(const Bytes &segment, std::uint8_t protocol = kProtocolTcp,
                      std::uint16_t fragment = 0) {
        return ethernet(kRouter, kPc, 0x0800,
                        ipv4(kServer, kPcAddress, protocol, segment, fragment));
    }

    void shakeHands() {
        pass(up(tcp(50000, 443, kSyn, {})));
        pass(down(tcp(443, 50000, kSyn | kAck, {})));
    }

    // The beginning of a conversation with the named server; gives the size of its frame.
    std::size_t greet(std::string_view server) {
        const Bytes frame = up(tcp(50000, 443, kPush | kAck, clientHello(server)));
        pass(frame);
        return frame.size();
    }

    std::unique_ptr<Classifier> classifier_ = Classifier::create();
    std::map<std::uint16_t, std::string> names_;
    Tables tables_;
    Moment now_{1000, 1'000'000};
    std::unique_ptr<PacketAccounting> accounting_ =
        std::make_unique<PacketAccounting>(tables_, *classifier_, kRouter, kForget);
};

TEST_F(PacketAccountingTest, AFlowIsHeldUntilItsApplicationIsKnownThenCountedOnceUnderIt) {
    shakeHands();
    EXPECT_EQ(usage(kPc), "") << "there, but nothing is counted yet";
    const std::size_t sent = 54 + greet("www.youtube.com");
    EXPECT_EQ(usage(kPc), "YouTube " + std::to_string(sent) + "/54");
    // What follows is counted straight away, whatever it looks like.
    const std::size_t more = greet("www.netflix.com");
    pass(down(tcp(443, 50000, kPush | kAck, Bytes(946, 1))));
    wait(60'000);
    accounting_->finish();
    EXPECT_EQ(usage(kPc), "YouTube " + std::to_string(sent + more) + "/1054");
}

TEST_F(PacketAccountingTest, AFlowThatShowsNothingIsGivenUpAndStaysUnknown) {
    const auto noise = [&](int number) {
        return up(udp(50000, 50001, kNoise + Bytes(88, static_cast<std::uint8_t>(number * 91))),
                  17);
    };
    pass(noise(1));
    wait(5000);
    EXPECT_EQ(usage(kPc), "");
    wait(1);
    EXPECT_EQ(usage(kPc), "Unknown 142/0") << "idle for too long";
    pass(up(udp(50000, 50001, dnsQuery("www.example.com")), 17));
    EXPECT_EQ(usage(kPc), "Unknown 217/0") << "what is counted never moves";
}

TEST_F(PacketAccountingTest, AFlowThatNeverGoesIdleIsGivenUpInTime) {
    pass(up(tcp(50000, 50001, kPush | kAck, kNoise)));
    for (int second = 0; second < 15; second++) {
        EXPECT_EQ(usage(kPc), "");
        wait(1001);
        pass(up(tcp(50000, 50001, kPush | kAck, {})));
    }
    EXPECT_EQ(usage(kPc), "Unknown 876/0");
}

TEST_F(PacketAccountingTest, MergedFramesCountAtFullLengthAndAreStillRecognised) {
    Bytes merged = up(tcp(50000, 80, kPush | kAck, httpGet("www.netflix.com") + Bytes(1000, 'a')));
    merged[16] = merged[17] = 0xff;
    pass(merged, 65535 + 14);
    EXPECT_EQ(usage(kPc), "NetFlix 65549/0");
}

TEST_F(PacketAccountingTest, OnlyDevicesOfTheLanAreUsers) {
    const Bytes query = udp(5353, 5353, dnsQuery("_http._tcp.local"));
    pass(ethernet(kPhone, kGroup, 0x0800, ipv4(kPhoneAddress, {224, 0, 0, 251}, 17, query)));
    pass(ethernet(kRouter, kEveryone, 0x0806, Bytes(46, 0)));
    pass(ethernet({}, kGroup, 0x0800, ipv4(kServer, kPhoneAddress, 17, query)));
    EXPECT_EQ(tables_.users().size(), 1u);
    accounting_->finish();
    EXPECT_EQ(usage(kPhone), "MDNS 76/0");
    // Between two clients: up for one, down for the other.
    pass(ethernet(kPhone, kPc, 0x0800,
                  ipv4(kPhoneAddress, kPcAddress, 17, udp(5000, 53, dnsQuery("nas.lan")))));
    EXPECT_EQ(usage(kPhone), "MDNS 76/0, DNS 67/0");
    EXPECT_EQ(usage(kPc), "DNS 0/67");
}

TEST_F(PacketAccountingTest, WhatIsNoIpIsUnknownTrafficButTellsTheAddress) {
    const auto arp = [](const Mac &sender, const Bytes &address) {
        return ethernet(kPc, kEveryone, 0x0806,
                        Bytes{0, 1, 8, 0, 6, 4, 0, 1} + Bytes(sender.begin(), sender.end()) +
                            address + Bytes(10, 0));
    };
    const Bytes own = arp(kPc, kPcAddress);
    pass(Bytes(own.begin(), own.end() - 1), 42);
    pass(arp(kPhone, kPhoneAddress));
    const devid_user_entry *user = tables_.findUser(kPc);
    EXPECT_EQ(user->ipv4[0], 0) << "cut short, and on another one's behalf";
    pass(own);
    pass(ethernet(kRouter, kPc, 0x88cc, Bytes(46, 0)));
    EXPECT_EQ(usage(kPc), "Unknown 126/60");
    pass(ethernet(kPc, kRouter, 0x0800, ipv4(kServer, kPhoneAddress, 1, Bytes(8, 0))));
    EXPECT_TRUE(std::equal(kPcAddress.begin(), kPcAddress.end(), user->ipv4))
        << "not that of a packet that it only passes on";
}

TEST_F(PacketAccountingTest, PiecesOfAPacketFollowTheFirstOne) {
    pass(up(udp(50000, 53, dnsQuery("big.example.com")), 17));
    pass(down(udp(53, 50000, Bytes(1472, 0)), 17, 0x2000));
    pass(down(Bytes(1480, 0), 17, 0x2000 | 185));
    EXPECT_EQ(usage(kPc), "DNS 75/3028");
    // One whose beginning was not seen has no ports: unknown when it is given up.
    pass(ethernet(kRouter, kPc, 0x0800, ipv4({203, 0, 113, 6}, kPcAddress, 17, Bytes(80, 1), 185)));
    wait(5001);
    EXPECT_EQ(usage(kPc), "DNS 75/3028, Unknown 0/114");
}

TEST_F(PacketAccountingTest, TheSameAddressesOnAnotherVlanAreAnotherFlow) {
    const auto tagged = [](std::uint8_t vlan, const Bytes &segment) {
        return ethernet(kPc, kRouter, 0x8100,
                        Bytes{0, vlan, 8, 0} + ipv4(kPcAddress, kServer, 6, segment));
    };
    pass(tagged(20, tcp(50000, 443, kPush | kAck, clientHello("www.youtube.com"))));
    const std::string first = usage(kPc);
    pass(tagged(30, tcp(50000, 443, kSyn, {})));
    EXPECT_EQ(usage(kPc), first) << "held, not counted as more of the first";
}

TEST_F(PacketAccountingTest, PortsThatServeAnotherConnectionAreLookedAtAgain) {
    shakeHands();
    std::size_t video = 54 + greet("www.youtube.com");
    shakeHands();
    video += 54;
    EXPECT_EQ(usage(kPc), "YouTube " + std::to_string(video) + "/108") << "it is still open";
    pass(up(tcp(50000, 443, kFin | kAck, {})));
    shakeHands();
    const std::size_t film = 54 + greet("www.netflix.com");
    EXPECT_EQ(usage(kPc), "YouTube " + std::to_string(video + 54) + "/108, NetFlix " +
                              std::to_string(film) + "/54");
}

TEST_F(PacketAccountingTest, LearnsNameKindAndAddressesFromTheDeviceItself) {
    const auto request = [](const Mac &client, const Bytes &options) {
        return ethernet(
            kPhone, kEveryone, 0x0800,
            ipv4(Bytes(4, 0), Bytes(4, 255), 17, udp(68, 67, dhcpRequest(client, options))));
    };
    pass(request(kPc, option(12, "someone-else")));
    const devid_user_entry *user = tables_.findUser(kPhone);
    EXPECT_STREQ(user->host_name, "");
    pass(request(kPhone, option(12, std::string(40, 'h')) + option(60, "android-dhcp-13")));
    pass(request(kPhone, option(12, "iphone")));
    EXPECT_STREQ(user->host_name, "iphone");
    EXPECT_EQ(user->os.detail.vendor_id, 2) << "a host name says less than the vendor class";
    EXPECT_EQ(user->ipv4[0], 0);

    const auto address = [](std::uint8_t first, std::uint8_t second, std::uint8_t last) {
        return Bytes{first, second} + Bytes(13, 0) + Bytes{last};
    };
    for (const Bytes &from :
         {address(0, 0, 0), address(0xfe, 0x80, 1), address(0x20, 1, 2), address(0xfe, 0x80, 3)})
        pass(ethernet(kPhone, kRouter, 0x86dd, ipv6(from, address(0x20, 1, 9), 58, Bytes(8, 0))));
    EXPECT_EQ(user->ipv6[0], 0x20) << "rather the address that it talks to the world with";
    EXPECT_EQ(user->ipv6[15], 2);
}

TEST_F(PacketAccountingTest, AForgottenDeviceTakesItsRowsAlongAndStartsAtZero) {
    accounting_ = std::make_unique<PacketAccounting>(tables_, *classifier_, kRouter, 2);
    pass(up(udp(50000, 53, dnsQuery("www.example.com")), 17));
    pass(up(udp(50000, 50001, kNoise), 17));
    wait(2000);
    EXPECT_EQ(usage(kPc), "DNS 75/0");
    wait(1000);
    EXPECT_EQ(usage(kPc), "no user");
    wait(3000);
    EXPECT_EQ(usage(kPc), "no user") << "what was held for it went with it";
    EXPECT_TRUE(tables_.rows().empty());

    pass(up(udp(50002, 50003, kNoise), 17));
    wait(3000);
    pass(up(udp(50002, 50003, kNoise), 17));
    accounting_->finish();
    EXPECT_EQ(usage(kPc), "Unknown 54/0") << "only what it did since it came back";
    EXPECT_EQ(tables_.rows().front().last_elapsed_ts, now_.seconds);
}

TEST_F(PacketAccountingTest, WhatIsHeldForADeviceWithoutARoomIsNeverLost) {
    accounting_ = std::make_unique<PacketAccounting>(tables_, *classifier_, kRouter, 2);
    for (std::uint8_t other = 0; other < kMaxUsers; other++)
        pass(ethernet({4, 0, 0, 0, 0, other}, kRouter, 0x88cc, Bytes(46, 0)));
    for (int second = 0; second < 4; second++) { // the others are forgotten meanwhile
        pass(up(udp(50000, 50001, kNoise), 17));
        wait(1000);
    }
    accounting_->finish();
    EXPECT_EQ(usage(kPc), "Unknown 216/0");
    EXPECT_EQ(tables_.overflow().users, 1u);
    EXPECT_EQ(tables_.overflow().bytes, 0u);
}

TEST_F(PacketAccountingTest, AFullFlowTableCountsTheFlowThatWasIdleLongest) {
    const auto flow = [](std::size_t number) {
        const auto from = static_cast<std::uint16_t>(40000 + number % 1000);
        const auto to = static_cast<std::uint16_t>(61000 + number / 1000);
        return up(udp(from, to, {}), 17);
    };
    for (std::size_t number = 0; number < FlowTable::kMaxFlows; number++)
        pass(flow(number));
    EXPECT_EQ(usage(kPc), "");
    pass(flow(FlowTable::kMaxFlows));
    EXPECT_EQ(accounting_->flows(), FlowTable::kMaxFlows);
    EXPECT_NE(usage(kPc), "");
    accounting_->finish();
    std::uint64_t sum = 0;
    for (const devid_app_rate_entry &row : tables_.rows())
        sum += row.up_accl_byte;
    EXPECT_EQ(sum, (FlowTable::kMaxFlows + 1) * 42);
}

TEST_F(PacketAccountingTest, SettledFlowsAreReleasedWhenTheyHaveBeenIdleForLong) {
    pass(up(udp(50000, 53, dnsQuery("www.example.com")), 17));
    greet("www.youtube.com");
    for (const auto &[idle, left] : {std::pair{0, 2u}, {120'001, 1u}, {1'700'000, 0u}}) {
        wait(static_cast<std::uint64_t>(idle));
        EXPECT_EQ(accounting_->flows(), left);
    }
}

// Every byte of a client ends in a row or is said not to have fitted, whatever the frames look
// like; and nothing is read behind the end of one.
TEST_F(PacketAccountingTest, DamagedFramesNeitherCrashNorLoseBytes) {
    const Bytes v6 = Bytes{0x20, 1} + Bytes(14, 3);
    const std::vector<Bytes> whole = {
        up(tcp(50000, 443, kPush | kAck, clientHello("www.youtube.com"))),
        up(tcp(50001, 80, kPush | kAck, httpGet("www.netflix.com"))),
        up(udp(50000, 53, dnsQuery("www.example.com")), 17),
        down(udp(53, 50000, Bytes(600, 0)), 17, 0x2000),
        down(Bytes(100, 0), 17, 0x2040),
        ethernet(kPhone, kEveryone, 0x0800,
                 ipv4(Bytes(4, 0), Bytes(4, 255), 17,
                      udp(68, 67, dhcpRequest(kPhone, option(12, "a") + option(60, "MSFT 5.0"))))),
        ethernet(kPhone, kRouter, 0x8100,
                 Bytes{0, 5, 0x86, 0xdd} +
                     ipv6(v6, v6, 0,
                          Bytes{44, 0} + Bytes(6, 0) + Bytes{17, 0, 0, 1, 0, 0, 0, 1} +
                              udp(1, 53, dnsQuery("a.b")))),
        ethernet(kPhone, kPc, 0x0806, Bytes(46, 1)),
    };
    std::uint64_t expected = 0;
    const auto counts = [](const Bytes &frame, std::size_t at) {
        Mac mac;
        std::copy_n(frame.data() + at, mac.size(), mac.begin());
        return isDevice(mac) && mac != kRouter ? 1u : 0u;
    };
    const auto damaged = [&](const Bytes &frame, std::size_t length) {
        pass(frame, static_cast<std::uint32_t>(length));
        if (frame.size() >= kEthernetHeader)
            expected += (counts(frame, 0) + counts(frame, 6)) * std::max(length, frame.size());
    };
    for (const Bytes &frame : whole)
        for (std::size_t size = 0; size <= frame.size(); size++)
            damaged(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)),
                    frame.size());
    std::mt19937 random(42);
    for (int round = 0; round < 20000; round++) {
        Bytes frame = whole[random() % whole.size()];
        for (unsigned change = random() % 6; change > 0; change--)
            frame[random() % std::min<std::size_t>(frame.size(), 120)] =
                static_cast<std::uint8_t>(random());
        frame.resize(frame.size() - (random() % 4 == 0 ? random() % frame.size() : 0));
        damaged(frame, 0);
        if (round % 100 == 0)
            wait(random() % 3000);
    }
    accounting_->finish();
    std::uint64_t sum = tables_.overflow().bytes;
    for (const devid_app_rate_entry &row : tables_.rows())
        sum += row.up_accl_byte + row.down_accl_byte;
    EXPECT_EQ(sum, expected);
    EXPECT_EQ(tables_.users().size(), kMaxUsers);
    EXPECT_GT(tables_.overflow().users, 0u);
}

} // namespace
} // namespace idpfwd
