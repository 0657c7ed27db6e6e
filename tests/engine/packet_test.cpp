#include "engine/packet.h"

#include "engine/frames.h"

#include <gtest/gtest.h>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kPhone = {2, 0, 0, 0, 0, 0xb};
constexpr Mac kRouter = {2, 0, 0, 0, 0, 1};
const Bytes kFrom = {192, 168, 1, 11};
const Bytes kTo = {203, 0, 113, 5};
const Bytes kFrom6 = Bytes{0x20, 1, 0xd, 0xb8} + Bytes(11, 0) + Bytes{1};
const Bytes kTo6 = Bytes{0x20, 1, 0xd, 0xb8} + Bytes(11, 0) + Bytes{2};

Bytes fromPhone(std::uint16_t type, const Bytes &body) {
    return ethernet(kPhone, kRouter, type, body);
}

TEST(PacketTest, ReadsTheEndsOfAConversationWhateverStandsBeforeThem) {
    const Bytes segment = tcp(40000, 443, kPush | kAck, text("x"));
    const Bytes plain = ipv4(kFrom, kTo, 6, segment);
    const Bytes hopByHop = Bytes{60, 0, 0, 0, 0, 0, 0, 0};
    const Bytes destination = Bytes{51, 1} + Bytes(14, 0);
    const Bytes authentication = Bytes{6, 1} + Bytes(10, 0);
    const struct {
        const char *what;
        Bytes frame;
        int version;
        std::uint32_t vlan;
    } rows[] = {
        {"plain", fromPhone(0x0800, plain), 4, 0},
        {"tagged", fromPhone(0x8100, word(0x6014) + word(0x0800) + plain), 4, 0x14},
        {"tagged for priority only", fromPhone(0x8100, word(0xe000) + word(0x0800) + plain), 4, 0},
        {"tagged twice", fromPhone(0x88a8, word(2) + word(0x8100) + word(3) + word(0x0800) + plain),
         4, 0x2003},
        {"IPv4 options", fromPhone(0x0800, ipv4(kFrom, kTo, 6, segment, 0, Bytes(40, 1))), 4, 0},
        {"IPv6", fromPhone(0x86dd, ipv6(kFrom6, kTo6, 6, segment)), 6, 0},
        {"IPv6 extensions",
         fromPhone(0x86dd,
                   ipv6(kFrom6, kTo6, 0, hopByHop + destination + authentication + segment)),
         6, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        Packet packet;
        ASSERT_TRUE(parseFrame(row.frame, packet));
        EXPECT_EQ(packet.source, kPhone);
        EXPECT_EQ(packet.destination, kRouter);
        EXPECT_EQ(packet.version, row.version);
        EXPECT_EQ(packet.vlan, row.vlan);
        EXPECT_EQ(packet.protocol, kProtocolTcp);
        EXPECT_EQ(packet.sourcePort, 40000);
        EXPECT_EQ(packet.destinationPort, 443);
        EXPECT_EQ(packet.tcpFlags, kPush | kAck);
        const Bytes &from = row.version == 4 ? kFrom : kFrom6;
        EXPECT_TRUE(std::equal(from.begin(), from.end(), packet.sourceAddress.begin()));
    }
}

TEST(PacketTest, TellsThePiecesOfAPacketApart) {
    const Bytes datagram = udp(53, 5000, text("answer"));
    const auto piece6 = [&](std::uint16_t offset) {
        return fromPhone(0x86dd, ipv6(kFrom6, kTo6, 44,
                                      Bytes{17, 0} + word(offset) + word(1) + word(2) + datagram));
    };
    const struct {
        Bytes frame;
        bool fragment, later;
        std::uint32_t id;
    } rows[] = {
        {fromPhone(0x0800, ipv4(kFrom, kTo, 17, datagram, 0x4000)), false, false, 77},
        {fromPhone(0x0800, ipv4(kFrom, kTo, 17, datagram, 0x2000)), true, false, 77},
        {fromPhone(0x0800, ipv4(kFrom, kTo, 17, datagram, 0x2001)), true, true, 77},
        {fromPhone(0x0800, ipv4(kFrom, kTo, 17, datagram, 0x00b9)), true, true, 77},
        {piece6(0x0001), true, false, 0x10002},
        {piece6(0x0588), true, true, 0x10002},
    };
    for (const auto &row : rows) {
        Packet packet;
        ASSERT_TRUE(parseFrame(row.frame, packet));
        EXPECT_EQ(packet.fragment, row.fragment);
        EXPECT_EQ(packet.laterFragment, row.later);
        EXPECT_EQ(packet.fragmentId, row.id);
        EXPECT_EQ(packet.protocol, kProtocolUdp);
        EXPECT_EQ(packet.sourcePort, row.later ? 0 : 53) << "what follows is no header";
    }
}

TEST(PacketTest, LeavesEthernetsPaddingOut) {
    Packet packet;
    const Bytes padded =
        fromPhone(0x0800, ipv4(kFrom, kTo, 17, udp(1, 2, text("ab")))) + Bytes(20, 0);
    ASSERT_TRUE(parseFrame(padded, packet));
    EXPECT_EQ(packet.payload.size(), 2u);
    // A merged frame may say 0: everything belongs to it.
    Bytes merged = fromPhone(0x0800, ipv4(kFrom, kTo, 17, udp(1, 2, Bytes(100, 1))));
    merged[16] = merged[17] = 0;
    ASSERT_TRUE(parseFrame(merged, packet));
    EXPECT_EQ(packet.payload.size(), 100u);
}

} // namespace
} // namespace idpfwd
