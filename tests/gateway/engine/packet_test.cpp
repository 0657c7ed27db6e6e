#include "engine/packets/packet.h"

#include "gateway/engine/frames.h"

#include <gtest/gtest.h>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kPhone = {2, 0, 0, 0, 0, 0xb};
constexpr Mac kRouter = {2, 0, 0, 0, 0, 1};
Bytes fromPhone(std::uint16_t type, const Bytes &body) {
    return ethernet(kPhone, kRouter, type, body);
}

TEST(PacketTest, ReadsTheEndsOfAConversationWhateverStandsBeforeThem) {
    const Bytes segment = tcp(40000, 443, kPush | kAck, {});
    const Bytes inner = word(0x8100) + word(3) + word(0x0800);
    const auto from4 = [&](std::uint16_t fragment, const Bytes &options = {}) {
        return ipv4(Bytes(4, 192), Bytes(4, 203), 6, segment, fragment, options);
    };
    const auto from6 = [&](std::uint8_t first, const Bytes &extensions) {
        const Bytes body = extensions + segment;
        return fromPhone(0x86dd, ipv6(Bytes(16, 0x20), Bytes(16, 0x21), first, body));
    };
    const Bytes inside6 = ipv6(Bytes(16, 0x20), Bytes(16, 0x21), 6, segment);
    const Bytes destination = Bytes{51, 1} + Bytes(14, 0);
    const Bytes authentication = Bytes{6, 1} + Bytes(10, 0);
    Bytes merged = from4(0); // may say 0: everything belongs to it
    merged[2] = merged[3] = 0;
    const auto session = [](std::size_t size) { return Bytes{0x11, 0} + word(7) + word(size); };
    const auto label = [](std::uint8_t last) { return Bytes{0, 1, last, 64}; };
    enum { kWhole, kFirst, kLater };
    const struct {
        Bytes frame;
        std::uint32_t vlan;
        std::uint8_t address;
        int piece;
    } rows[] = {
        {fromPhone(0x8100, word(0xe014) + word(0x0800) + from4(0)), 0x14, 192, kWhole},
        {fromPhone(0x88a8, word(2) + inner + from4(0)), 0x2003, 192, kWhole},
        {fromPhone(0x0800, from4(0x4000, Bytes(40, 1))), 0, 192, kWhole},
        {fromPhone(0x8864, session(42) + Bytes{0x21} + from4(0)), 7, 192, kWhole},
        {fromPhone(0x8100, word(1) + word(0x8864) + session(43) + word(0x21) + from4(0)), 0x10007,
         192, kWhole},
        {fromPhone(0x8847, label(0) + label(1) + from4(0)), 0, 192, kWhole},
        {fromPhone(0x0800, merged), 0, 192, kWhole},
        {fromPhone(0x0800, from4(0x2000)), 0, 192, kFirst},
        {fromPhone(0x0800, from4(0x1000)), 0, 192, kLater},
        {from6(60, destination + authentication), 0, 0x20, kWhole},
        {from6(4, from4(0)), 0, 192, kWhole},
        {fromPhone(0x0800, ipv4(Bytes(4, 10), Bytes(4, 11), 41, inside6)), 0, 0x20, kWhole},
        {from6(44, Bytes{6, 0, 0, 1, 0, 0, 0, 1}), 0, 0x20, kFirst},
        {from6(44, Bytes{6, 0, 0, 8, 0, 0, 0, 1}), 0, 0x20, kLater},
    };
    for (const auto &row : rows) {
        Packet packet;
        ASSERT_TRUE(parseFrame(row.frame, packet));
        EXPECT_EQ(packet.source, kPhone);
        EXPECT_EQ(packet.vlan, row.vlan);
        EXPECT_EQ(packet.sourceAddress[0], row.address);
        EXPECT_EQ(packet.fragment, row.piece != kWhole);
        EXPECT_EQ(packet.laterFragment, row.piece == kLater);
        EXPECT_EQ(packet.sourcePort, row.piece == kLater ? 0 : 40000);
        EXPECT_EQ(packet.tcpFlags, row.piece == kLater ? 0 : kPush | kAck);
    }
}

// The first bytes of what is inside must not be taken for an IP header when they are cut or not
// one.
TEST(PacketTest, TunnelsThatAreCutOrCarryNoIpHaveNoEnds) {
    const Bytes inside = ipv4(Bytes(4, 192), Bytes(4, 203), 6, tcp(1, 2, kAck, {}));
    const Bytes bodies[] = {
        Bytes{0x11, 0} + word(7) + word(0),
        Bytes{0x11, 0} + word(7) + word(4) + word(0xc021) + inside, // not for users
        Bytes{0x12, 0} + word(7) + word(42) + word(0x21) + inside,  // another version
        Bytes{0x11, 0} + word(7) + word(0) + word(0x21) + inside,   // all of it is padding
    };
    Packet packet;
    for (const Bytes &body : bodies) {
        ASSERT_TRUE(parseFrame(fromPhone(0x8864, body), packet));
        EXPECT_EQ(packet.version, 0);
    }
    for (const Bytes &labels : {Bytes{0, 1, 0, 64}, Bytes{0, 1, 1, 64}, Bytes{0, 1, 1, 64, 0}}) {
        ASSERT_TRUE(parseFrame(fromPhone(0x8848, labels), packet));
        EXPECT_EQ(packet.version, 0);
    }
    for (const Bytes &inner : {Bytes(30, 0x60), Bytes(40, 0x40)}) {
        const Bytes outer = ipv4(Bytes(4, 10), Bytes(4, 11), 41, inner);
        ASSERT_TRUE(parseFrame(fromPhone(0x0800, outer), packet));
        EXPECT_EQ(packet.sourceAddress[0], 10) << "the tunnel's own";
        EXPECT_FALSE(packet.inTunnel);
    }
}

} // namespace
} // namespace idpfwd
