// The packets of a capture file, one after the other.
#pragma once

#include "engine/packets/packet_names.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace idpfwd {

struct CapturedPacket {
    std::uint64_t milliseconds = 0; // since the epoch
    std::uint32_t length = 0;       // on the wire, at least what was captured
    std::span<const std::uint8_t> bytes;
};

// What most programs write is read here, a block at a time and without a copy of each packet: half
// the time that a packet takes would go into that. libpcap reads everything else.
class CaptureFile {
  public:
    // Takes the file over; name is what messages call it. Null with a one-line reason in error when
    // it is no capture of Ethernet frames.
    static std::unique_ptr<CaptureFile> open(FILE *file, const std::string &name,
                                             std::string &error);

    // The next packet, valid until the next call; null at the end, or where the file is damaged.
    const CapturedPacket *next();

    // What is damaged; empty while nothing is.
    [[nodiscard]] const std::string &damage() const { return damage_; }

  private:
    struct FileCloser {
        void operator()(FILE *file) const { fclose(file); }
    };

    bool readHere(FILE *file);
    bool nextHere();
    bool nextOfPcap();
    std::span<const std::uint8_t> take(std::size_t size);
    [[nodiscard]] std::uint32_t number(std::span<const std::uint8_t> bytes,
                                       std::size_t offset) const;

    Pcap pcap_;                              // null when the file is read here
    std::unique_ptr<FILE, FileCloser> file_; // null when libpcap has it
    bool swapped_ = false;                   // written by a machine of the other byte order
    std::int32_t perMillisecond_ = 0;        // what a packet's time counts beside the seconds
    std::vector<std::uint8_t> block_;
    std::span<const std::uint8_t> rest_; // of the block
    CapturedPacket packet_;
    std::string damage_;
};

} // namespace idpfwd
