#include "engine/capture/capture_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace idpfwd {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kFileHeader = 24;
constexpr std::size_t kPacketHeader = 16;
constexpr std::uint32_t kMostCaptured = 262'144; // of a packet; more is damage
constexpr std::size_t kBlock = 2 * kMostCaptured;

std::uint64_t sinceEpoch(std::int64_t seconds, std::int64_t milliseconds) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(seconds, 0) * 1000 +
                                      std::max<std::int64_t>(milliseconds, 0));
}

// The beginning of the file, which stays unread: it is still in the buffer of the C library, that
// takes it back even from a pipe. Zeros when the file is shorter.
std::array<std::uint8_t, kFileHeader> peek(FILE *file) {
    std::array<std::uint8_t, kFileHeader> bytes{};
    const std::size_t size = fread(bytes.data(), 1, bytes.size(), file);
    for (std::size_t count = size; count > 0; --count)
        ungetc(bytes[count - 1], file);
    return size == bytes.size() ? bytes : std::array<std::uint8_t, kFileHeader>{};
}

} // namespace

std::uint32_t CaptureFile::number(Bytes bytes, std::size_t offset) const {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return swapped_ ? __builtin_bswap32(value) : value;
}

// Whether it is of the usual kind: pcap's format in its only version since 1998, Ethernet frames.
bool CaptureFile::readHere(FILE *file) {
    constexpr std::uint32_t kMicroseconds = 0xa1b2c3d4, kNanoseconds = 0xa1b23c4d, kEthernet = 1;
    const auto header = peek(file);
    for (const bool swapped : {false, true}) {
        swapped_ = swapped;
        const std::uint32_t magic = number(header, 0);
        const std::uint32_t version = number(header, 4);
        if ((magic != kMicroseconds && magic != kNanoseconds) || number(header, 20) != kEthernet ||
            (version != 0x00040002 && version != 0x00020004))
            continue;
        perMillisecond_ = magic == kMicroseconds ? 1'000 : 1'000'000;
        file_.reset(file);
        block_.resize(kBlock);
        take(kFileHeader);
        return true;
    }
    return false;
}

std::unique_ptr<CaptureFile> CaptureFile::open(FILE *file, const std::string &name,
                                               std::string &error) {
    auto opened = std::make_unique<CaptureFile>();
    if (opened->readHere(file))
        return opened;
    char reason[PCAP_ERRBUF_SIZE] = "";
    opened->pcap_.reset(pcap_fopen_offline(file, reason));
    if (!opened->pcap_) {
        fclose(file);
        error = name + ": " + reason;
        return nullptr;
    }
    return isEthernet(opened->pcap_.get(), name, error) ? std::move(opened) : nullptr;
}

// The next bytes of the file, valid until the next call: fewer where it ends.
Bytes CaptureFile::take(std::size_t size) {
    if (rest_.size() < size) {
        std::copy(rest_.begin(), rest_.end(), block_.begin());
        const std::size_t more =
            fread(block_.data() + rest_.size(), 1, block_.size() - rest_.size(), file_.get());
        rest_ = Bytes(block_).first(rest_.size() + more);
    }
    const Bytes taken = rest_.first(std::min(size, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
}

bool CaptureFile::nextHere() {
    const Bytes header = take(kPacketHeader);
    if (header.size() < kPacketHeader) {
        if (ferror(file_.get()) != 0)
            damage_ = strerror(errno);
        else if (!header.empty())
            damage_ = "it is cut in a packet's header";
        return false;
    }
    const auto seconds = static_cast<std::int32_t>(number(header, 0));
    const auto fraction = static_cast<std::int32_t>(number(header, 4));
    const std::uint32_t captured = number(header, 8), length = number(header, 12);
    if (captured > kMostCaptured) {
        damage_ = "a packet claims " + std::to_string(captured) + " bytes";
        return false;
    }
    packet_ = {.milliseconds = sinceEpoch(seconds, fraction / perMillisecond_),
               .length = std::max(length, captured),
               .bytes = take(captured)};
    if (packet_.bytes.size() < captured) {
        damage_ = "it is cut in a packet";
        return false;
    }
    return true;
}

bool CaptureFile::nextOfPcap() {
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
    if (result != 1) {
        if (result != PCAP_ERROR_BREAK)
            damage_ = pcap_geterr(pcap_.get());
        return false;
    }
    packet_ = {.milliseconds = sinceEpoch(header->ts.tv_sec, header->ts.tv_usec / 1000),
               .length = std::max(header->len, header->caplen),
               .bytes = {bytes, header->caplen}};
    return true;
}

const CapturedPacket *CaptureFile::next() {
    return (pcap_ ? nextOfPcap() : nextHere()) ? &packet_ : nullptr;
}

} // namespace idpfwd
