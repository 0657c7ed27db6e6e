// The daemon's document on its way from its file into the message that carries it. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace uplink {

// No message is larger; a report is bounded so that its message with the longest router id is not.
constexpr std::size_t kMaxEnvelope = 256 << 10;
constexpr std::size_t kMaxReport = kMaxEnvelope - 512;

// One of the two is empty.
struct CheckedReport {
    std::string text;    // the document, unchanged but for white space between its tokens
    std::string refusal; // why the file holds none
};

// Takes what a file holds for a report if it is a JSON object that fits into a message. Bytes that
// are no UTF-8 become U+FFFD: a name that was cut inside a character costs that character only.
CheckedReport checkReport(std::string_view file);

// What the outbox keeps of one report.
struct Message {
    std::int64_t sequence = 0; // from 1, never used twice by one outbox
    std::int64_t taken = 0;    // seconds since 1970
    std::int64_t dropped = 0;  // reports that the outbox had dropped for want of room by then
    std::string report;
};

// The message's body, compact JSON. The same message gives the same bytes at each try. router needs
// no escaping in JSON; outbox is the identity in hexadecimal.
std::string envelope(const std::string &router, const std::string &outbox, const Message &message);

} // namespace uplink
