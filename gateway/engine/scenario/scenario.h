// A source that plays a scenario file: repeatable facts instead of packets.
#pragma once

#include "engine/row_table.h"
#include "engine/scenario/scenario_script.h"
#include "engine/source.h"

#include <chrono>
#include <memory>
#include <string>

namespace idpfwd {

class Scenario final : public Source {
  public:
    explicit Scenario(ScenarioScript script);

    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override;
    void work() override;
    [[nodiscard]] bool finished() const override { return step_ == script_.steps.size(); }
    std::optional<Reply> answer(const Request &request) override;
    [[nodiscard]] std::string categoryName(std::uint8_t cat_id) const override;
    [[nodiscard]] std::string applicationName(std::uint8_t cat_id,
                                              std::uint16_t app_id) const override;

  private:
    using Clock = std::chrono::steady_clock;
    struct User {
        std::string name;
        devid_user_entry record;
    };

    [[nodiscard]] bool waitsForRequest() const;
    [[nodiscard]] Clock::time_point dueTime() const;
    [[nodiscard]] std::uint64_t dueRequest() const;
    [[nodiscard]] bool due() const;
    void begin();
    void apply(const Step &step);
    void applyUser(const UserChange &change, std::uint32_t now);
    void applyTraffic(const TrafficChange &change, std::uint32_t now);
    void applyGenerator(const Generator &generator, std::uint32_t now);
    void dropShiftedOut(const Generator &generator);
    std::uint8_t generateUser(std::uint64_t number, std::uint32_t now);
    void applyReply(const ReplyRule &rule);
    User *findUser(const std::string &name);
    void removeUser(const std::string &name);
    [[nodiscard]] std::uint8_t lowestFreeUid() const;
    devid_app_rate_entry &row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id);

    ScenarioScript script_;
    Clock::time_point start_ = Clock::now();
    std::size_t step_ = 0;         // the one that begins next,
    std::uint64_t repetition_ = 0; // for the how manieth time
    Clock::time_point lastBegin_ = start_;
    std::uint64_t lastRequest_ = 0;
    std::uint64_t requests_ = 0; // for the user list, so far
    std::vector<User> users_;
    RowTable rows_;
    std::vector<ReplyRule> rules_;
};

// Reads and checks the file, and writes the database files of the names that it gives. Null with a
// one-line reason in error.
std::unique_ptr<Source> openScenario(const std::string &file, const std::string &databases,
                                     std::string &error);

} // namespace idpfwd
