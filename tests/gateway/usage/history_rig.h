// A history over an engine in memory, on a clock of the test's own.
#pragma once

#include "gateway/engine/scratch.h"
#include "usage/answers/query.h"
#include "usage/history.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace usage::testing {

// The zone of the C library for as long as this lives.
class InZone {
  public:
    explicit InZone(const char *name) {
        setenv("TZ", name, 1);
        refreshZone();
    }
    InZone(const InZone &) = delete;
    InZone &operator=(const InZone &) = delete;
    ~InZone() {
        setenv("TZ", "UTC", 1);
        refreshZone();
    }
};

inline Mac macOf(std::uint32_t number) {
    return {2,
            0,
            static_cast<std::uint8_t>(number >> 24),
            static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number)};
}

// Counters that grow as the test says, and what they have counted in all.
class FakeEngine final : public Engine {
  public:
    std::optional<Reading> read() override {
        if (!answers)
            return std::nullopt;
        Reading reading;
        reading.life = life;
        for (const auto &[number, rows] : devices_) {
            for (const auto &[application, bytes] : rows)
                reading.rows.push_back({reading.users.size(), {1, application}, bytes});
            reading.users.push_back(
                {{macOf(number), created[number]}, "host-" + std::to_string(number)});
        }
        return reading;
    }

    void grow(std::uint32_t device, std::uint16_t application, Bytes bytes) {
        devices_[device][application] += bytes;
        created.try_emplace(device, 1000);
        truth += bytes;
    }
    void forget(std::uint32_t device) {
        devices_.erase(device);
        ++created.try_emplace(device, 1000).first->second;
    }
    void beginAgain() {
        restart();
        truth = {};
    }
    void restart() {
        devices_.clear();
        ++life;
    }

    bool answers = true;
    std::uint64_t life = 1;
    std::map<std::uint32_t, std::uint32_t> created;
    Bytes truth;

  private:
    std::map<std::uint32_t, std::map<std::uint16_t, Bytes>> devices_;
};

class FakeNames final : public Names {
  public:
    ApplicationName nameOf(EngineIds ids, Seconds) override {
        return {ids.application % 2 == 0 ? "Even" : "Odd",
                "app-" + std::to_string(ids.application)};
    }
};

class HistoryTest : public ::testing::Test {
  protected:
    HistoryTest() { start(); }

    void start() {
        history.reset();
        history = std::make_unique<History>(
            HistoryOptions{.store = {.folder = folder.path(), .limit = limit},
                           .scratchFile = folder / "scratch",
                           .every = every},
            engine, names, [this](const std::string &line) { told += line + "\n"; });
    }

    void sampleAt(Seconds wall) {
        now = wall;
        history->sample({wall, wall * 1000});
    }

    Answer ask(Seconds from, Seconds to, std::optional<Level> step = {}) {
        Question question;
        question.range = {from, to};
        question.byDevice = true;
        question.byApplication = true;
        question.step = step;
        return usage::ask(history->present(), history->store(), question);
    }
    Bytes total() { return ask(0, kLatest).total; }

    Scratch folder;
    FakeEngine engine;
    FakeNames names;
    std::string told;
    std::uint64_t limit = 64U << 20U;
    Seconds every = 5;
    Seconds now = 0;
    std::unique_ptr<History> history;
};

inline Bytes sumOf(const Answer &answer) {
    Bytes sum = answer.others;
    for (const Row &row : answer.rows)
        sum += row.bytes;
    return sum;
}

} // namespace usage::testing
