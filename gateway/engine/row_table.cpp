#include "engine/row_table.h"

namespace idpfwd {

devid_app_rate_entry *RowTable::find(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    const auto found = index_.find(rowKey(uid, cat_id, app_id));
    return found != index_.end() ? &rows_[found->second] : nullptr;
}

devid_app_rate_entry &RowTable::add(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    devid_app_rate_entry row{};
    row.uid = uid;
    row.cat_id = cat_id;
    row.app_id = app_id;
    row.available = 1;
    index_.emplace(rowKey(row), rows_.size());
    rows_.push_back(row);
    return rows_.back();
}

void RowTable::eraseIf(const std::function<bool(const devid_app_rate_entry &)> &doomed) {
    if (std::erase_if(rows_, doomed) != 0)
        makeIndex();
}

void RowTable::assign(std::vector<devid_app_rate_entry> rows) {
    rows_ = std::move(rows);
    makeIndex();
}

void RowTable::makeIndex() {
    index_.clear();
    index_.reserve(rows_.size());
    for (std::size_t i = 0; i < rows_.size(); ++i)
        index_.emplace(rowKey(rows_[i]), i);
}

} // namespace idpfwd
