// One ioctl on the device in user space takes several rounds: the kernel is asked to map the
// caller's header, then its input, then exactly the bytes that will be written. This decides each
// round, apart from the library that carries it out.
#pragma once

#include "engine/requests.h"

#include <cstdint>
#include <map>
#include <span>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace idpfwd {

// A piece of the caller's memory that the kernel is to map.
struct Mapping {
    std::uint64_t address = 0;
    std::uint32_t size = 0;
    bool operator==(const Mapping &) const = default;
};

struct Round {
    enum class Kind { kRetry, kFail, kDone };
    Kind kind = Kind::kDone;
    std::vector<Mapping> in, out;     // kRetry: what to map for the next round
    int error = 0;                    // kFail
    std::vector<std::uint8_t> output; // kDone: goes into the mapped out pieces, in their order
};

// The memory of the caller that waits in the ioctl, for what is too large to be mapped.
class CallerMemory {
  public:
    virtual ~CallerMemory() = default;
    virtual bool read(std::uint64_t address, std::span<std::uint8_t> bytes) = 0;
    virtual bool write(std::uint64_t address, std::span<const std::uint8_t> bytes) = 0;
};

// What the kernel maps at most, all pieces of one direction together.
constexpr std::size_t kMaxMapped = 131072;

class IoctlExchange {
  public:
    struct Call {
        pid_t caller = 0; // the thread that waits
        std::uint32_t number = 0;
        std::uint64_t argument = 0;       // the header's address
        std::size_t headerSize = 0;       // 44 or 64
        std::span<const std::uint8_t> in; // what the kernel has mapped for us to read
        std::size_t outSize = 0;          // and to write
    };

    Round next(const Call &call, CallerMemory &memory, RequestServer &server);

  private:
    struct Answer {
        CallerHeader header;
        Reply reply;
        std::uint64_t number; // in the order of the calls
    };
    using Key = std::pair<pid_t, std::uint64_t>;

    Round answer(const Call &call, CallerMemory &memory, RequestServer &server);
    Round deliver(const Answer &answer, CallerMemory &memory);

    std::map<Key, Answer> answers_; // waiting for their memory to be mapped
    std::uint64_t answered_ = 0;
};

} // namespace idpfwd
