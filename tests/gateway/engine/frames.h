// Frames of a home network, made by hand.
#pragma once

#include "engine/tables.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace frames {

using Bytes = std::vector<std::uint8_t>;
using idpfwd::Mac;

inline Bytes operator+(Bytes head, const Bytes &tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

inline Bytes word(std::size_t value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

inline Bytes text(std::string_view letters) {
    return {letters.begin(), letters.end()};
}

inline Bytes ethernet(const Mac &from, const Mac &to, std::uint16_t type, const Bytes &body) {
    return Bytes(to.begin(), to.end()) + Bytes(from.begin(), from.end()) + word(type) + body;
}

// Fragment: the flags and the offset as they stand in the header. Options: whole words.
inline Bytes ipv4(const Bytes &from, const Bytes &to, std::uint8_t protocol, const Bytes &body,
                  std::uint16_t fragment = 0, const Bytes &options = {}) {
    const auto first = static_cast<std::uint8_t>(0x45 + options.size() / 4);
    return Bytes{first, 0} + word(20 + options.size() + body.size()) + word(77) + word(fragment) +
           Bytes{64, protocol, 0, 0} + from + to + options + body;
}

inline Bytes ipv6(const Bytes &from, const Bytes &to, std::uint8_t next, const Bytes &body) {
    return Bytes{0x60, 0, 0, 0} + word(body.size()) + Bytes{next, 64} + from + to + body;
}

inline Bytes udp(std::uint16_t from, std::uint16_t to, const Bytes &payload) {
    return word(from) + word(to) + word(8 + payload.size()) + word(0) + payload;
}

constexpr std::uint8_t kFin = 1, kSyn = 2, kPush = 8, kAck = 16;

inline Bytes tcp(std::uint16_t from, std::uint16_t to, std::uint8_t flags, const Bytes &payload) {
    return word(from) + word(to) +
           Bytes{0, 0, 0, 1, 0, 0, 0, 1, 0x50, flags, 250, 240, 0, 0, 0, 0} + payload;
}

// Asks for www.example.com.
inline Bytes dnsQuery() {
    return Bytes{0, 7, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0} + text("\3www\7example\3com") +
           Bytes{0, 0, 1, 0, 1};
}

// A TLS hello that names the server.
inline Bytes clientHello(std::string_view name) {
    const Bytes host = Bytes{0} + word(name.size()) + text(name);
    const Bytes extension = word(0) + word(host.size() + 2) + word(host.size()) + host;
    const Bytes body = Bytes{3, 3} + Bytes(32, 9) + Bytes{0, 0, 2, 0xc0, 0x2f, 1, 0} +
                       word(extension.size()) + extension;
    const Bytes hello = Bytes{1, 0} + word(body.size()) + body;
    return Bytes{22, 3, 1} + word(hello.size()) + hello;
}

inline Bytes option(std::uint8_t code, std::string_view value) {
    return Bytes{code, static_cast<std::uint8_t>(value.size())} + text(value);
}

inline Bytes dhcpRequest(const Mac &client, const Bytes &options) {
    return Bytes{1, 1, 6, 0} + Bytes(24, 0) + Bytes(client.begin(), client.end()) + Bytes(202, 0) +
           Bytes{99, 130, 83, 99, 53, 1, 3} + options + Bytes{255};
}

} // namespace frames
