// The settings store of a workstation router: one LMDB environment that all its processes share.
//
// Results are 0 or a code that reason() puts into words. A change is seen by every process as soon
// as it is committed. A process may die at any point: what it had committed stays, the rest never
// happened, and it leaves no lock behind. The machine may lose its power at any point: what was
// saved stays, of later changes maybe the last one is undone. The price is that a commit waits for
// the disk once (some milliseconds).
#pragma once

#include <cstddef>
#include <lmdb.h>
#include <string_view>

namespace store {

constexpr std::size_t kLargestName = 511;
constexpr std::size_t kLargestValue = 65536;

constexpr bool valid_name(std::string_view name) {
    return !name.empty() && name.size() <= kLargestName;
}

constexpr bool valid_value(std::string_view value) {
    return value.size() <= kLargestValue;
}

// The store's folder: the environment variable NVRAM_DIR, "/var/lib/router-nvram" without it.
const char *directory();

const char *reason(int result);

// The store as it is at one moment. A thread has one at a time; it should not last, because the
// space of what others replace meanwhile is kept for it.
class Reading {
  public:
    Reading();
    ~Reading();
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

    // Not 0 when there is nothing to read from; every setting is unset then.
    [[nodiscard]] int result() const { return result_; }

    // The text of a setting, without a terminator, as long as this Reading lasts; "" when unset.
    [[nodiscard]] std::string_view value(std::string_view name) const;

    // Calls visit(name, value) for every setting, sorted by name.
    template <typename Visit>
    [[nodiscard]] int each(Visit visit) const;

  private:
    MDB_txn *transaction_ = nullptr;
    MDB_dbi settings_ = 0;
    int result_;
};

// Changes that happen together when they are committed, or not at all. Waits for its turn.
class Writing {
  public:
    Writing();
    ~Writing();
    Writing(const Writing &) = delete;
    Writing &operator=(const Writing &) = delete;

    [[nodiscard]] int result() const { return result_; }
    [[nodiscard]] int set(std::string_view name, std::string_view value);
    // Unsetting what is not set is no failure.
    [[nodiscard]] int unset(std::string_view name);
    [[nodiscard]] int commit();

  private:
    MDB_txn *transaction_ = nullptr;
    MDB_dbi settings_ = 0;
    int result_;
};

// Puts everything that was committed so far on permanent storage.
[[nodiscard]] int save();

inline MDB_val as_bytes(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

inline std::string_view as_text(const MDB_val &bytes) {
    return {static_cast<const char *>(bytes.mv_data), bytes.mv_size};
}

template <typename Visit>
int Reading::each(Visit visit) const {
    if (result_ != 0)
        return result_;
    MDB_cursor *cursor = nullptr;
    int result = mdb_cursor_open(transaction_, settings_, &cursor);
    if (result != 0)
        return result;
    MDB_val name{};
    MDB_val value{};
    while ((result = mdb_cursor_get(cursor, &name, &value, MDB_NEXT)) == 0)
        visit(as_text(name), as_text(value));
    mdb_cursor_close(cursor);
    return result == MDB_NOTFOUND ? 0 : result;
}

} // namespace store
