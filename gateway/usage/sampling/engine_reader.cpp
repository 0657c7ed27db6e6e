#include "usage/sampling/engine_reader.h"

#include "common/file.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "engine/engine_state.h"
#include "usage/text.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace usage {
namespace {

constexpr Seconds kReloadSeconds = 60;

// The records of one of the engine's tables up to its end mark; nothing when the request failed.
template <typename Record>
std::optional<std::vector<Record>> readTable(int (*request)(Record **), std::size_t slots) {
    Record *output = nullptr;
    const int result = request(&output);
    const Allocated<Record> owned(output);
    if (result != 0 || output == nullptr)
        return std::nullopt;
    const std::span all(output, slots - 1);
    const auto end = std::find_if(all.begin(), all.end(),
                                  [](const Record &record) { return record.available == 0; });
    return std::vector<Record>(all.begin(), end);
}

std::optional<std::vector<devid_user_entry>> readUsers() {
    return readTable(get_fw_user_list, IDPFW_USER_SLOTS);
}

// An engine of another make refuses the request, and then tells nothing.
idpfwd_state readState() {
    idpfwd_state state{};
    std::uint32_t written = 0;
    forward_ioctl header;
    memset(&header, 0, sizeof header);
    header.magic = IDPFW_MAGIC;
    header.nr = IDPFWD_NR_STATE;
    header.op = IDPFWD_OP_STATE;
    header.out = &state;
    header.out_len = sizeof state;
    header.out_used_len = &written;
    if (run_ioctl(IDPFWD_REQUEST_STATE, &header) != 0 || written < sizeof state)
        return {};
    return state;
}

std::optional<std::uint64_t> known(std::uint64_t value) {
    return value == IDPFWD_UNKNOWN ? std::nullopt : std::optional(value);
}

Lost lostOf(const idpfwd_state &state) {
    if (state.life == 0)
        return {};
    Lost lost{known(state.overflow_users), known(state.overflow_rows),
              known(state.overflow_packets), known(state.overflow_bytes)};
    if (lost.packets)
        lost.packets = Bytes::sum(*lost.packets, known(state.capture_drops).value_or(0));
    return lost;
}

Stay stayOf(const devid_user_entry &user) {
    Stay stay{.mac = {}, .created = user.ts_create};
    memcpy(stay.mac.data(), user.mac, stay.mac.size());
    return stay;
}

// The users that are in both lists as the same stay, by uid; of two with the same uid the first.
std::map<std::uint8_t, std::size_t> takeUsers(const std::vector<devid_user_entry> &before,
                                              const std::vector<devid_user_entry> &after,
                                              Reading &reading) {
    std::map<std::uint8_t, Stay> known;
    for (const devid_user_entry &user : after)
        known.try_emplace(user.uid, stayOf(user));
    std::map<std::uint8_t, std::size_t> indexes;
    for (const devid_user_entry &user : before) {
        const auto same = known.find(user.uid);
        if (same == known.end() || same->second != stayOf(user) || indexes.contains(user.uid))
            continue;
        const std::string_view name(user.host_name, strnlen(user.host_name, sizeof user.host_name));
        indexes.emplace(user.uid, reading.users.size());
        reading.users.push_back({stayOf(user), cleanText(name)});
    }
    return indexes;
}

void takeRows(const std::vector<devid_app_rate_entry> &rows,
              const std::map<std::uint8_t, std::size_t> &indexes, Reading &reading) {
    std::map<std::pair<Stay, EngineIds>, std::size_t> taken;
    for (const devid_app_rate_entry &row : rows) {
        const auto user = indexes.find(row.uid);
        if (user == indexes.end())
            continue;
        const EngineIds ids{row.cat_id, row.app_id};
        const Bytes bytes{row.down_accl_byte, row.up_accl_byte};
        const auto [first, isNew] =
            taken.try_emplace({reading.users[user->second].stay, ids}, reading.rows.size());
        if (isNew)
            reading.rows.push_back({user->second, ids, bytes});
        else
            reading.rows[first->second].bytes += bytes; // a table may hold a pair twice
    }
}

} // namespace

std::optional<Reading> EngineReader::read() {
    const idpfwd_state state = readState(); // first: an engine holds back who does not ask for it
    const auto users = readUsers();
    if (!users)
        return std::nullopt;
    const auto rows = readTable(get_fw_user_app_rate, IDPFW_APP_SLOTS);
    const auto usersAgain = rows ? readUsers() : std::nullopt;
    if (!usersAgain || readState().life != state.life)
        return std::nullopt;
    Reading reading;
    reading.life = state.life;
    reading.lost = lostOf(state);
    takeRows(*rows, takeUsers(*users, *usersAgain, reading), reading);
    return reading;
}

ApplicationName DatabaseNames::nameOf(EngineIds ids, Seconds now) {
    const std::pair<std::uint32_t, std::uint32_t> key{ids.category, ids.application};
    const bool known = categories_.contains(ids.category) && applications_.contains(key);
    if (!known && (loaded_ == 0 || now < loaded_ || now - loaded_ >= kReloadSeconds)) {
        load();
        loaded_ = now;
    }
    const auto category = categories_.find(ids.category);
    const auto application = applications_.find(key);
    return {category != categories_.end() ? category->second
                                          : "Category " + std::to_string(ids.category),
            application != applications_.end() ? application->second
                                               : "Application " + std::to_string(ids.category) +
                                                     "/" + std::to_string(ids.application)};
}

void DatabaseNames::load() {
    list_head head = LIST_HEAD_INIT(head);
    if (init_app_cat(&head) == 0) {
        categories_.clear();
        for (const list_head *link = head.next; link != &head; link = link->next) {
            const auto *record = LIST_RECORD(link, const app_cat, list);
            if (std::string name = cleanText(record->cat_name); !name.empty())
                categories_.try_emplace(record->cat_id, std::move(name));
        }
    }
    free_app_cat(&head);
    list_init(&head);
    if (init_app_inf(&head) == 0) {
        applications_.clear();
        for (const list_head *link = head.next; link != &head; link = link->next) {
            const auto *record = LIST_RECORD(link, const app_inf, list);
            if (std::string name = cleanText(record->app_name); !name.empty())
                applications_.try_emplace({record->cat_id, record->app_id}, std::move(name));
        }
    }
    free_app_inf(&head);
}

} // namespace usage
