// A caller's header of either size and whatever it points to: an ioctl comes to its end in four
// rounds, and writes exactly what was mapped for it. The first byte chooses the size, four bytes
// are the ioctl's number, then comes the caller's memory with its header first.
#include "fuzz/target.h"

#include "engine/device/ioctl_exchange.h"
#include "gateway/engine/echo_source.h"

#include <algorithm>
#include <cstring>

namespace {

using namespace idpfwd;

class Memory final : public CallerMemory {
  public:
    Memory(const uint8_t *data, std::size_t size) : bytes_(data, data + size) {}

    bool read(std::uint64_t address, std::span<std::uint8_t> target) override {
        if (!holds(address, target.size()))
            return false;
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(address), target.size(),
                    target.begin());
        return true;
    }

    bool write(std::uint64_t address, std::span<const std::uint8_t> source) override {
        return holds(address, source.size());
    }

    // False when the kernel would find no memory there.
    bool map(const std::vector<Mapping> &pieces, std::vector<std::uint8_t> &mapped) {
        for (const Mapping &piece : pieces) {
            const std::size_t had = mapped.size();
            mapped.resize(had + piece.size);
            if (!read(piece.address, std::span(mapped).subspan(had)))
                return false;
        }
        return true;
    }

    [[nodiscard]] bool holds(std::uint64_t address, std::size_t size) const {
        return address <= bytes_.size() && size <= bytes_.size() - address;
    }

  private:
    std::vector<std::uint8_t> bytes_;
};

std::size_t sizeOf(const std::vector<Mapping> &pieces) {
    std::size_t size = 0;
    for (const Mapping &piece : pieces)
        size += piece.size;
    return size;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size < 5)
        return 0;
    const std::size_t headerSize = (data[0] & 1) != 0 ? kHeaderSize64 : kHeaderSize32;
    std::uint32_t number = 0;
    memcpy(&number, data + 1, sizeof number);
    Memory memory(data + 5, size - 5);
    static Echo source;
    static RequestServer server(source);
    IoctlExchange exchange;
    Round round;
    for (int turn = 0; turn < 4; ++turn) {
        std::vector<std::uint8_t> in;
        if (!memory.map(round.in, in))
            return 0;
        const std::size_t outSize = sizeOf(round.out);
        FUZZ_REQUIRE(in.size() <= kMaxMapped && outSize <= kMaxMapped);
        round = exchange.next({7, number, 0, headerSize, in, outSize}, memory, server);
        FUZZ_REQUIRE((round.kind == Round::Kind::kFail) == (round.error != 0));
        if (round.kind == Round::Kind::kRetry)
            continue;
        FUZZ_REQUIRE(round.kind == Round::Kind::kFail || round.output.size() == outSize);
        return 0;
    }
    FUZZ_REQUIRE(!"the exchange has an end");
    return 0;
}
