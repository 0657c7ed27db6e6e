// The store, over HTTP: statements and inserts, at whichever replica answers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fleet {

enum class StoreResult {
    kDone,
    kRefused, // it has read the rows and can't take them: sending them again is of no use
    kAway,    // no replica took it: none can be reached, or each has trouble of its own
};

struct Answer {
    StoreResult result = StoreResult::kAway;
    std::string text; // what was asked for, or what is wrong
};

// Whether an answer with an HTTP status other than 200 means that the rows are at fault. Only
// errors of reading a value do; trouble that will pass, or that a change of settings mends, must
// not turn reports into dead letters.
[[nodiscard]] bool refusesRows(std::string_view answer);

class Store {
  public:
    // Addresses of the replicas, "http://10.20.0.21:8123"; what stands behind a '?' is sent with
    // every request (user, password, settings).
    explicit Store(std::vector<std::string> addresses);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Called now and then while a request is on its way.
    void onWait(std::function<void()> callback);

    // Sends a statement to the replica that answered last or, when that one is away, to the others.
    Answer ask(const std::string &statement);
    // Inserts tab-separated rows; "usage.reports (router, ...)" says where.
    Answer insert(const std::string &target, std::string_view rows);
    // Sends a statement to the replica of that number.
    Answer askReplica(std::size_t replica, const std::string &statement);

    [[nodiscard]] std::size_t replicas() const { return addresses_.size(); }

  private:
    struct Handle;

    Answer post(std::size_t replica, const std::string &query, std::string_view body);
    Answer postAnywhere(const std::string &query, std::string_view body);

    std::vector<std::string> addresses_;
    std::size_t preferred_ = 0;
    std::unique_ptr<Handle> handle_;
};

} // namespace fleet
