#include "engine/packets/packet_accounting.h"

#include "engine/packets/application_names.h"
#include "gateway/engine/frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kRouter = {2, 0, 0, 0, 0, 1};
constexpr Mac kPc = {2, 0, 0, 0, 0, 0xa};
constexpr Mac kPhone = {2, 0, 0, 0, 0, 0xb};
constexpr Mac kTablet = {2, 0, 0, 0, 0, 0xc};
constexpr Mac kGroup = {1, 0, 0x5e, 0, 0, 0xfb};
const Bytes kPcAddress = {192, 168, 1, 10};
const Bytes kServer = {203, 0, 113, 5};
const Bytes kNoise = {0x81, 0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8, 0x19, 0x2a, 0x3b, 0x4c};

Bytes up(std::uint8_t protocol, const Bytes &segment) {
    return ethernet(kPc, kRouter, 0x0800, ipv4(kPcAddress, kServer, protocol, segment));
}

Bytes down(std::uint8_t protocol, const Bytes &segment, std::uint16_t fragment = 0) {
    return ethernet(kRouter, kPc, 0x0800, ipv4(kServer, kPcAddress, protocol, segment, fragment));
}

const Bytes kLookUp = up(17, udp(50000, 53, dnsQuery())); // 75 bytes

class PacketAccountingTest : public testing::Test {
  protected:
    std::unique_ptr<PacketAccounting> accounting(std::size_t budget = FlowTable::kDefaultBudget) {
        return std::make_unique<PacketAccounting>(tables_, *classifier_, kRouter, budget);
    }

    // As on the wire, unless a length says that only a part of it was captured. The buffer has no
    // byte more than the frame.
    void pass(const Bytes &frame, std::uint32_t length = 0) {
        const Bytes exact(frame.begin(), frame.end());
        accounting_->add(exact, std::max(length, static_cast<std::uint32_t>(exact.size())), now_);
        accounting_->flush();
    }

    void wait(std::uint64_t milliseconds) {
        now_.milliseconds += milliseconds;
        now_.seconds = static_cast<std::uint32_t>(now_.milliseconds / 1000);
        accounting_->advance(now_);
        tables_.forgetUnseen(now_, forgetSeconds_);
    }

    // "Name up/down" of every application of the PC, in the order of the rows.
    std::string usage() {
        const devid_user_entry *user = tables_.findUser(kPc);
        if (user == nullptr)
            return "no user";
        std::string text;
        for (const devid_app_rate_entry &row : tables_.rows())
            if (row.uid == user->uid)
                text += (text.empty() ? "" : ", ") + names_.application({row.cat_id, row.app_id}) +
                        " " + std::to_string(row.up_accl_byte) + "/" +
                        std::to_string(row.down_accl_byte);
        return text;
    }

    // 54 bytes up and 54 down.
    void shakeHands() {
        pass(up(6, tcp(50000, 443, kSyn, {})));
        pass(down(6, tcp(443, 50000, kSyn | kAck, {})));
    }

    // 130 bytes up, with a name of 15 letters.
    void greet(std::string_view server) {
        pass(up(6, tcp(50000, 443, kPush | kAck, clientHello(server))));
    }

    std::unique_ptr<Classifier> classifier_ = Classifier::create();
    NameTable names_{classifier_->applications(), classifier_->categories()};
    Tables tables_;
    Moment now_{1000, 1'000'000};
    std::uint32_t forgetSeconds_ = 600;
    std::unique_ptr<PacketAccounting> accounting_ = accounting();
};

TEST_F(PacketAccountingTest, AFlowIsHeldUntilItsApplicationIsKnownThenCountedOnceUnderIt) {
    shakeHands();
    EXPECT_EQ(usage(), "") << "there, but nothing is counted yet";
    greet("www.youtube.com");
    EXPECT_EQ(usage(), "YouTube 184/54");
    greet("www.netflix.com");
    pass(down(6, tcp(443, 50000, kPush | kAck, Bytes(946, 1))));
    EXPECT_EQ(usage(), "YouTube 314/1054") << "counted straight away, whatever it looks like";
}

TEST_F(PacketAccountingTest, AServerWithoutAKnownNameIsWaitedForUntilNoCertificateCanCome) {
    const Bytes done = {20, 3, 3, 0, 1, 1}, data = {23, 3, 3, 0, 4, 9, 9, 9, 9};
    shakeHands();
    greet("www.example.com");
    pass(down(6, tcp(443, 50000, kPush | kAck, done)));
    EXPECT_EQ(usage(), "");
    pass(up(6, tcp(50000, 443, kPush | kAck, data)));
    EXPECT_EQ(usage(), "TLS 247/114") << "data flows";
    pass(up(6, tcp(50001, 443, kPush | kAck, clientHello("www.example.com"))));
    for (int number = 0; number < 12; number++) {
        EXPECT_EQ(usage(), "TLS 247/114");
        pass(down(6, tcp(443, 50001, kAck, {})));
    }
    EXPECT_EQ(usage(), "TLS 377/762") << "nDPI waits for no more";
}

TEST_F(PacketAccountingTest, AFlowThatShowsNothingIsGivenUpAndStaysUnknown) {
    pass(up(17, udp(50000, 50001, kNoise)));
    wait(15'000);
    EXPECT_EQ(usage(), "");
    wait(1);
    EXPECT_EQ(usage(), "Unknown 54/0") << "held for too long";
    pass(up(17, udp(50000, 50001, dnsQuery())));
    EXPECT_EQ(usage(), "Unknown 129/0") << "what is counted never moves";
    for (unsigned number = 0; number < Classifier::kMostPackets; number++) {
        EXPECT_EQ(usage(), "Unknown 129/0");
        pass(up(17, udp(50002, 50003, kNoise)));
    }
    EXPECT_EQ(usage(), "Unknown 1857/0") << "looked at often enough";
}

TEST_F(PacketAccountingTest, AnApplicationThatShowsLateCountsFromThereOn) {
    forgetSeconds_ = 3600;
    const auto late = [&] {
        pass(up(6, tcp(50000, 9999, kSyn, {})));
        wait(15'001);
        pass(up(6, tcp(50000, 9999, kPush | kAck, {})));
    };
    late();
    EXPECT_EQ(usage(), "Unknown 108/0") << "shown in time";
    wait(590'000);
    pass(up(6, tcp(50000, 9999, kPush | kAck, clientHello("www.youtube.com"))));
    EXPECT_EQ(usage(), "Unknown 108/0, YouTube 130/0");
    pass(up(6, tcp(50000, 9999, kFin | kAck, {})));
    late();
    wait(600'001);
    pass(up(6, tcp(50000, 9999, kPush | kAck, clientHello("www.youtube.com"))));
    EXPECT_EQ(usage(), "Unknown 346/0, YouTube 184/0") << "it was idle for too long";
}

TEST_F(PacketAccountingTest, MergedFramesCountAtFullLengthAndAreStillRecognised) {
    Bytes merged = up(6, tcp(50000, 443, kPush | kAck, clientHello("www.netflix.com")));
    merged[16] = merged[17] = 0xff;
    pass(merged, 65535 + 14);
    accounting_->finish();
    EXPECT_EQ(usage(), "NetFlix 65549/0");
}

TEST_F(PacketAccountingTest, WhatIsNoIpIsUnknownTrafficButTellsTheAddress) {
    const auto arp = [](const Mac &sender) {
        const Bytes head = Bytes{0, 1, 8, 0, 6, 4, 0, 1} + Bytes(sender.begin(), sender.end());
        return ethernet(kPc, kGroup, 0x0806, head + kPcAddress + Bytes(10, 0));
    };
    pass(arp(kPhone));
    const devid_user_entry *user = tables_.findUser(kPc);
    EXPECT_EQ(user->ipv4[0], 0) << "on another one's behalf";
    pass(arp(kPc));
    pass(ethernet(kRouter, kPc, 0x88cc, Bytes(46, 0)));
    EXPECT_EQ(usage(), "Unknown 84/60");
    EXPECT_EQ(tables_.users().size(), 1u) << "neither a group nor the router";
    pass(ethernet(kPc, kRouter, 0x0800, ipv4(kServer, kPcAddress, 1, Bytes(8, 0))));
    pass(ethernet(kRouter, kPc, 0x0800, ipv4({10, 0, 0, 9}, kPcAddress, 1, Bytes(8, 0))));
    EXPECT_EQ(user->ipv4[0], 192) << "not that of a packet that it only passes on, or is sent";
}

TEST_F(PacketAccountingTest, PortsThatServeAnotherConnectionAreLookedAtAgain) {
    shakeHands();
    greet("www.youtube.com");
    shakeHands();
    EXPECT_EQ(usage(), "YouTube 238/108") << "it is still open";
    pass(up(6, tcp(50000, 443, kFin | kAck, {})));
    shakeHands();
    greet("www.netflix.com");
    accounting_->finish();
    EXPECT_EQ(usage(), "YouTube 292/108, NetFlix 184/54");
}

TEST_F(PacketAccountingTest, LearnsNameKindAndAddressesFromTheDeviceItself) {
    const auto request = [](const Mac &client, const Bytes &options) {
        const Bytes message = udp(68, 67, dhcpRequest(client, options));
        return ethernet(kPhone, kGroup, 0x0800, ipv4(Bytes(4, 0), Bytes(4, 255), 17, message));
    };
    pass(request(kPc, option(12, "someone-else")));
    const devid_user_entry *user = tables_.findUser(kPhone);
    EXPECT_STREQ(user->host_name, "");
    pass(request(kPhone, option(12, std::string(40, 'h')) + option(60, "android-dhcp-13")));
    pass(request(kPhone, option(12, "iphone")));
    EXPECT_STREQ(user->host_name, "iphone");
    EXPECT_EQ(user->os.detail.vendor_id, 2) << "a host name says less than the vendor class";
}

TEST_F(PacketAccountingTest, WhatIsHeldForAForgottenDeviceGoesWithIt) {
    forgetSeconds_ = 2;
    pass(up(17, udp(50000, 50001, kNoise)));
    wait(3000);
    EXPECT_EQ(usage(), "no user");
    wait(13'000); // the flow is given up
    EXPECT_EQ(usage(), "no user");
    EXPECT_EQ(tables_.forgotten().bytes, 54u);

    pass(up(17, udp(50002, 50003, kNoise)));
    wait(3000);
    pass(up(17, udp(50002, 50003, kNoise)));
    accounting_->finish();
    EXPECT_EQ(usage(), "Unknown 54/0") << "only what it did since it came back";
}

// Every byte that was passed is in a row, or in what the tables say they have not.
std::uint64_t allBytes(const Tables &tables) {
    std::uint64_t sum = tables.overflow().bytes + tables.forgotten().bytes;
    for (const devid_app_rate_entry &row : tables.rows())
        sum += row.up_accl_byte + row.down_accl_byte;
    return sum;
}

TEST_F(PacketAccountingTest, AnAddressForTheWorldIsShownRatherThanALinkLocalOne) {
    for (const Bytes &start :
         {Bytes{0xfe, 0x80}, Bytes{0x2a, 0x80}, Bytes{0xfe, 0xbf}, Bytes{0xff, 2}, Bytes{0, 0}}) {
        const Bytes from = start + Bytes(14, start[0] != 0);
        pass(ethernet(kPhone, kRouter, 0x86dd, ipv6(from, from, 17, udp(1, 2, kNoise))));
        EXPECT_EQ(tables_.users()[0].ipv6[0], start[0] == 0xfe && start[1] == 0x80 ? 0xfe : 0x2a);
    }
}

TEST_F(PacketAccountingTest, OnlyAnAddressOfNetworksAtHomeIsADevicesOwn) {
    const std::pair<Bytes, bool> rows[] = {
        {{10, 9, 9, 9}, true},     {{11, 9, 9, 9}, false},    {{172, 16, 0, 1}, true},
        {{172, 31, 0, 1}, true},   {{172, 15, 0, 1}, false},  {{172, 32, 0, 1}, false},
        {{192, 168, 0, 1}, true},  {{192, 169, 0, 1}, false}, {{169, 254, 0, 1}, true},
        {{169, 253, 0, 1}, false}, {{100, 64, 0, 1}, true},   {{100, 127, 0, 1}, true},
        {{100, 63, 0, 1}, false},  {{100, 128, 0, 1}, false}};
    for (const auto &[from, own] : rows) {
        pass(ethernet(kPhone, kRouter, 0x0800, ipv4(from, kServer, 1, Bytes(8, 0))));
        EXPECT_EQ(std::ranges::equal(tables_.users()[0].ipv4, from), own) << from[0] << from[1];
    }
}

TEST_F(PacketAccountingTest, WhatIsRememberedOfFlowsKeepsToItsBudgetTheLongestHeldGoFirst) {
    constexpr std::size_t kBudget = 1 << 18;
    accounting_ = accounting(kBudget);
    const Bytes address6 = Bytes{0x20, 1} + Bytes(13, 3);
    const Bytes hello = clientHello("www.youtube.com");
    const Bytes cut(hello.begin(), hello.end() - 20); // unfinished: it is put together in memory
    Bytes initial = Bytes{0xc0, 0, 0, 0, 1, 8} + Bytes(8, 7) + Bytes{0, 0, 0x44, 0xb0};
    initial.resize(1200, 9);
    const auto flow = [](unsigned number) { return static_cast<std::uint16_t>(number); };
    const std::function<Bytes(unsigned)> floods[] = {
        [&](unsigned number) { return up(6, tcp(flow(number), 443, kPush | kAck, cut)); },
        [&](unsigned number) { return up(17, udp(flow(number), 443, initial)); },
        [&](unsigned number) { return up(17, udp(flow(number), 53, dnsQuery())); },
        [&](unsigned number) {
            const Bytes from = word(number) + Bytes{1, 1};
            return ethernet(kPc, kRouter, 0x0800, ipv4(from, kServer, 17, Bytes(8, 3), 0x2000));
        },
        [&](unsigned number) {
            const Bytes from = address6 + Bytes{static_cast<std::uint8_t>(number)};
            const Bytes body = udp(flow(number), flow(number * 7), kNoise);
            return ethernet(kPc, kRouter, 0x86dd, ipv6(from, address6 + Bytes{1}, 17, body));
        },
    };
    pass(up(17, udp(1, 2, kNoise)));
    std::uint64_t passed = 54;
    for (const auto &flood : floods) {
        wait(15'001); // those of the last one are only watched from now on
        for (unsigned number = 0; number < 3'000; number++) {
            const Bytes frame = flood(number);
            passed += frame.size();
            accounting_->add(frame, static_cast<std::uint32_t>(frame.size()), now_);
            ASSERT_LE(accounting_->flows().memory(), kBudget);
        }
    }
    EXPECT_GT(accounting_->flows().memory(), kBudget / 2) << "it is made use of";
    wait(1);
    EXPECT_THAT(usage(), testing::StartsWith("Unknown ")) << "the first that came was given up";
    accounting_->finish();
    EXPECT_EQ(allBytes(tables_), passed);
}

TEST_F(PacketAccountingTest, SettledFlowsMakeRoomForThoseThatAreHeld) {
    accounting_ = accounting(1 << 17);
    for (std::uint16_t number = 0; number < 2000; number++)
        pass(up(17, udp(number, 53, dnsQuery())));
    pass(up(17, udp(50000, 50001, kNoise)));
    EXPECT_EQ(usage(), "DNS 150000/0");
    accounting_ = accounting(1); // not even for what it takes without a flow
    pass(up(17, udp(50000, 50001, kNoise)));
    EXPECT_EQ(accounting_->flows().size(), 0u);
}

TEST_F(PacketAccountingTest, SettledFlowsAreReleasedWhenTheyHaveBeenIdleForLong) {
    pass(kLookUp);
    pass(up(6, tcp(50000, 22, kPush | kAck, text("SSH-2.0-client\r\n"))));
    wait(15'001);
    wait(120'001);
    EXPECT_EQ(accounting_->flows().size(), 1u) << "a stream may rest for longer";
    wait(1'700'000);
    EXPECT_EQ(accounting_->flows().size(), 0u);
}

// Every byte ends in a row, whatever follows the hardware addresses; and nothing is read behind
// the end of a frame.
TEST_F(PacketAccountingTest, DamagedFramesNeitherCrashNorLoseBytes) {
    const Bytes address6 = Bytes{0x20, 1} + Bytes(14, 3);
    const Bytes piece6 = Bytes{44, 0} + Bytes(6, 0) + Bytes{17, 0, 0, 1, 0, 0, 0, 1};
    const Bytes query6 = ipv6(address6, address6, 0, piece6 + udp(1, 53, dnsQuery()));
    const std::vector<Bytes> whole = {
        kLookUp,
        up(6, tcp(50000, 443, kPush | kAck, clientHello("www.youtube.com"))),
        up(17, udp(68, 67, dhcpRequest(kPc, option(12, "a") + option(60, "MSFT 5.0")))),
        down(17, udp(53, 50000, Bytes(100, 0)), 0x2000),
        down(17, Bytes(100, 0), 0x2040),
        ethernet(kPhone, kRouter, 0x8100, Bytes{0, 5, 0x86, 0xdd} + query6),
        ethernet(kPhone, kGroup, 0x0806, Bytes(46, 1)),
    };
    std::uint64_t expected = 0;
    std::mt19937 random(42);
    for (int round = 0; round < 20000; round++) {
        Bytes frame = whole[random() % whole.size()];
        for (unsigned change = random() % 6; change > 0; change--)
            frame[12 + random() % std::min<std::size_t>(frame.size() - 12, 108)] =
                static_cast<std::uint8_t>(random());
        if (random() % 4 == 0)
            frame.resize(random() % frame.size());
        pass(frame, 1500);
        expected += frame.size() < kEthernetHeader ? 0 : 1500;
        if (round % 100 == 0)
            wait(random() % 3000);
    }
    accounting_->finish();
    EXPECT_EQ(allBytes(tables_), expected);
}

// A neighbour can make up as many source addresses as it likes.
TEST_F(PacketAccountingTest, MadeUpAddressesNeitherTakeAPlaceFromADeviceNorKeepOneOut) {
    const auto forged = [](std::uint32_t number) {
        return Mac{
            6, 0, 0, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    };
    const auto flood = [&](std::uint32_t first) {
        for (std::uint32_t number = first; number < first + 5000; number++)
            pass(ethernet(forged(number), kGroup, 0x88cc, Bytes(46, 0)));
    };
    flood(0);
    EXPECT_EQ(tables_.users().size(), kMaxUsers);
    wait(1);
    pass(kLookUp);
    EXPECT_EQ(tables_.findUser(kPc), nullptr) << "it could be made up, too";
    EXPECT_EQ(tables_.refused().latest(1).at(0).mac, kPc);
    pass(down(17, udp(53, 50000, Bytes(100, 0))));
    EXPECT_EQ(usage(), "DNS 0/142") << "the router has an answer for it";
    EXPECT_EQ(tables_.overflow().bytes, 4937u * 60 + 75);

    const Bytes question = Bytes{0, 1, 8, 0, 6, 4, 0, 1} + Bytes(kRouter.begin(), kRouter.end()) +
                           Bytes{192, 168, 1, 1} + Bytes(6, 0) + Bytes{192, 168, 1, 11};
    const Bytes answer = Bytes{0, 1, 8, 0, 6, 4, 0, 2} + Bytes(kPhone.begin(), kPhone.end()) +
                         Bytes{192, 168, 1, 11} + Bytes(10, 1);
    pass(ethernet(kPhone, kRouter, 0x0806, answer));
    EXPECT_EQ(tables_.findUser(kPhone), nullptr) << "nobody has asked";
    pass(ethernet(kRouter, kGroup, 0x0806, question));
    pass(ethernet(kPhone, kRouter, 0x0806, answer));
    EXPECT_NE(tables_.findUser(kPhone), nullptr);

    Bytes lease = dhcpRequest(kTablet, {});
    lease[0] = 2;
    lease[242] = 5;
    const Bytes offered = ipv4({192, 168, 1, 1}, Bytes(4, 255), 17, udp(67, 68, lease));
    pass(ethernet(forged(1), kGroup, 0x0800, offered));
    EXPECT_EQ(tables_.findUser(kTablet), nullptr) << "not the router's lease";
    pass(ethernet(kRouter, kPc, 0x0800, ipv4(kServer, kPcAddress, 17, udp(67, 68, lease))));
    EXPECT_EQ(tables_.findUser(kTablet), nullptr) << "a server's that it only passes on";
    pass(ethernet(kRouter, kGroup, 0x0800, offered));
    EXPECT_NE(tables_.findUser(kTablet), nullptr);

    flood(10'000);
    for (const Mac &device : {kPc, kPhone, kTablet})
        EXPECT_NE(tables_.findUser(device), nullptr);
    EXPECT_EQ(tables_.forgotten().users, 3u) << "made up, as those that are refused";
}

TEST_F(PacketAccountingTest, ALengthThatNoFrameHasCountsAsWhatWasCaptured) {
    pass(kLookUp, 4'000'000'000);
    EXPECT_EQ(usage(), "DNS 75/0");
    EXPECT_EQ(tables_.capped().packets, 1u);
    EXPECT_EQ(tables_.capped().bytes, 4'000'000'000u - 75);
    pass(kLookUp, kLongestFrame);
    EXPECT_EQ(usage(), "DNS 262219/0");
}

} // namespace
} // namespace idpfwd
