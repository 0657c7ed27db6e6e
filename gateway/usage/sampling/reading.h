// One look at the engine's tables.
#pragma once

#include "usage/types.h"

#include <compare>
#include <optional>
#include <string>
#include <vector>

namespace usage {

// One uninterrupted presence of a device in the engine: its counters begin at 0 with it.
struct Stay {
    Mac mac{};
    std::uint32_t created = 0; // seconds since the epoch, by the engine's clock
    auto operator<=>(const Stay &) const = default;
};

// The engine's own numbers of an application.
struct EngineIds {
    std::uint8_t category = 0;
    std::uint16_t application = 0;
    auto operator<=>(const EngineIds &) const = default;
};

// What the engine could not count, in this life of it. Nothing where it does not know or tell.
struct Lost {
    std::optional<std::uint64_t> devices;
    std::optional<std::uint64_t> rows;
    std::optional<std::uint64_t> packets; // of what did not fit, and those that the kernel dropped
    std::optional<std::uint64_t> bytes;
};

struct Reading {
    struct User {
        Stay stay;
        std::string hostName; // clean text, may be empty
    };
    struct Row {
        std::size_t user = 0; // index of users
        EngineIds ids;
        Bytes bytes;
    };
    std::uint64_t life = 0; // of the engine, 0 when it does not tell
    Lost lost;
    std::vector<User> users;
    std::vector<Row> rows;
};

// Where readings come from.
class Engine {
  public:
    Engine() = default;
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;
    virtual ~Engine() = default;

    // Nothing when the engine is away or does not answer.
    virtual std::optional<Reading> read() = 0;
};

struct ApplicationName {
    std::string category;
    std::string name;
    auto operator<=>(const ApplicationName &) const = default;
};

// What the engine's numbers are called.
class Names {
  public:
    Names() = default;
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;
    virtual ~Names() = default;

    // Never empty: an unknown number is called by its number.
    virtual ApplicationName nameOf(EngineIds ids, Seconds now) = 0;
};

} // namespace usage
