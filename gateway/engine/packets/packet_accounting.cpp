#include "engine/packets/packet_accounting.h"

#include "engine/packets/device_facts.h"
#include "engine/packets/dhcp.h"

#include <algorithm>

namespace idpfwd {
namespace {

// How long an ARP request may take to be answered.
constexpr std::uint64_t kAnswerTime = 5'000;

} // namespace

PacketAccounting::PacketAccounting(Tables &tables, Classifier &classifier,
                                   std::optional<Mac> gateway, std::size_t budget, std::mutex *lock)
    : ledger_(tables, lock), flows_(classifier, ledger_, budget) {
    setGateway(gateway);
}

void PacketAccounting::setGateway(const std::optional<Mac> &gateway) {
    if (!gateway || isGateway(*gateway))
        return;
    std::shift_right(gateways_.begin(), gateways_.end(), 1);
    gateways_[0] = macNumber(*gateway);
}

// Whether the packet answers a question for the address that it is sent from. Only the router's
// questions count where it is known: whoever makes addresses up can ask for them too.
bool PacketAccounting::hasAnsweredArp(const Packet &packet) {
    const auto message = readArp(packet);
    if (!message)
        return false;
    if (!message->isReply) {
        if (!knowsGateway() || isGateway(packet.source))
            questions_[nextQuestion_++ % questions_.size()] = {message->target, now_.milliseconds};
        return false;
    }
    return std::ranges::any_of(questions_, [&](const Question &question) {
        return question.asked != 0 && question.address == message->sender &&
               now_.milliseconds - question.asked <= kAnswerTime;
    });
}

// A lease may be announced to everybody: then its message names the device. One that is sent to a
// single device may be some server's on the Internet, which the router only passes on.
void PacketAccounting::noteLease(const Packet &packet) {
    if (packet.protocol != kProtocolUdp || packet.sourcePort != kDhcpServerPort ||
        isDevice(packet.destination) || (knowsGateway() && !isGateway(packet.source)))
        return;
    const auto client = readDhcpLease(packet.payload);
    if (client && isClient(*client))
        ledger_.see(*client, kHasAnswered, nullptr, now_);
}

std::uint64_t PacketAccounting::seeSender(const Packet &packet, bool answered) {
    const unsigned evidence = answered ? kHasSent | kHasAnswered : kHasSent;
    return ledger_.see(packet.source, evidence, &packet, now_);
}

std::uint64_t PacketAccounting::seeReceiver(const Packet &packet) {
    const unsigned fromRouter = isGateway(packet.source) ? kHasEarned : kNoEvidence;
    return ledger_.see(packet.destination, kHasReceived | fromRouter, nullptr, now_);
}

void PacketAccounting::add(Packet::Bytes captured, std::uint32_t length, const Moment &now) {
    Packet packet;
    if (!parseFrame(captured, packet))
        return;
    if (now.seconds != now_.seconds)
        flush();
    now_ = now;
    ++frames_;
    gatewaySeen_ |= isGateway(packet.source) || isGateway(packet.destination);
    if (length > kLongestFrame) {
        ledger_.addCapped(length - captured.size());
        length = static_cast<std::uint32_t>(captured.size());
    }
    std::array<Holding, 2> concerned;
    std::size_t count = 0;
    noteLease(packet);
    const bool answered = packet.version == 0 && hasAnsweredArp(packet);
    if (isClient(packet.source))
        concerned[count++] = {packet.source, seeSender(packet, answered), {0, length, 0, 1}};
    if (isClient(packet.destination))
        concerned[count++] = {packet.destination, seeReceiver(packet), {length, 0, 1, 0}};
    const auto holdings = std::span(concerned).first(count);
    if (packet.version != 0 && count != 0)
        flows_.add(packet, holdings, now);
    else
        for (const Holding &holding : holdings)
            ledger_.count(holding, {});
}

void PacketAccounting::advance(const Moment &now) {
    now_ = now;
    flows_.expire(now.milliseconds);
    flush();
}

void PacketAccounting::finish() {
    flows_.finish();
    flush();
}

} // namespace idpfwd
