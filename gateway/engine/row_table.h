// The rows of the application table in the order in which they came, found by what they count.
#pragma once

#include "dpi/usr_ioctl.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

namespace idpfwd {

// One number for what a row counts.
constexpr std::uint32_t rowKey(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    return std::uint32_t{uid} << 24 | std::uint32_t{cat_id} << 16 | app_id;
}

inline std::uint32_t rowKey(const devid_app_rate_entry &row) {
    return rowKey(row.uid, row.cat_id, row.app_id);
}

class RowTable {
  public:
    // Null when there is no such row. Valid until the table changes, as is what add gives.
    devid_app_rate_entry *find(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id);

    // A new row at the end, its counters 0; there must be none that counts the same.
    devid_app_rate_entry &add(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id);

    void eraseIf(const std::function<bool(const devid_app_rate_entry &)> &doomed);

    // Replaces everything. Of rows that count the same the first one is found.
    void assign(std::vector<devid_app_rate_entry> rows);

    [[nodiscard]] const std::vector<devid_app_rate_entry> &all() const { return rows_; }

  private:
    void makeIndex();

    std::vector<devid_app_rate_entry> rows_;
    std::unordered_map<std::uint32_t, std::size_t> index_;
};

} // namespace idpfwd
