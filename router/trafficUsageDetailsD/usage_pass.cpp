// One pass over the engine's tables. Joining rows to users, naming applications and finding the
// entries that don't come in the table's order go through indexes that are built for the pass, so
// that its cost grows with the number of rows and not with its square; the result is that of the
// plain nested walk, in the same order.
#include "common/file.h"
#include "common/text.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/hash_index.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <endian.h>

namespace {

constexpr int kMostUsers = IDPFW_USER_SLOTS - 1;
constexpr int kMostRows = IDPFW_APP_SLOTS - 1;
constexpr int kUids = 256;
constexpr int kCategories = 256; // that a row's 8-bit category id can name

// What the databases call a row; the texts live as long as the pass.
struct RowNames {
    const char *category;
    const char *application;
};

// Takes four bytes at a time; the low bits can be used as they are.
class Hash {
  public:
    void add(const void *bytes, std::size_t length) {
        for (std::size_t done = 0; done < length; done += sizeof(std::uint32_t)) {
            std::uint32_t word = 0;
            memcpy(&word, static_cast<const char *>(bytes) + done,
                   std::min(length - done, sizeof word));
            value_ = (value_ ^ word) * 0x9E3779B1u;
            value_ ^= value_ >> 15;
        }
    }
    // The length, hashed too, tells where one text ends and the next begins.
    void addText(const char *text) {
        const auto length = static_cast<std::uint32_t>(strnlen(text, kNameSize - 1));
        add(&length, sizeof length);
        add(text, length);
    }
    [[nodiscard]] std::uint32_t value() const { return value_; }

  private:
    std::uint32_t value_ = 2166136261u;
};

std::uint32_t identityHash(const TrafficUsageDEntry *entry) {
    Hash hash;
    hash.add(entry->macAddress, sizeof entry->macAddress);
    hash.addText(entry->appName);
    hash.addText(entry->appType);
    return hash.value();
}

std::uint32_t idsHash(std::uint32_t categoryId, std::uint32_t applicationId) {
    const std::uint32_t mixed = (categoryId * 0x9E3779B1u) ^ (applicationId * 0x85EBCA6Bu);
    return mixed ^ (mixed >> 15);
}

std::size_t lengthOf(const list_head &head) {
    std::size_t length = 0;
    for (const list_head *link = head.next; link != &head; link = link->next)
        ++length;
    return length;
}

// The category and application databases, loaded afresh for one pass.
class Names {
  public:
    Names() {
        if (!applications_.reserve(load()))
            return;
        for (list_head *link = applicationList_.next; link != &applicationList_;
             link = link->next) {
            // Only the first of repeated ids is ever found; a file of empty lines is all repeats.
            app_inf *record = LIST_RECORD(link, app_inf, list);
            if (applicationName(record->cat_id, record->app_id) == nullptr)
                applications_.add(idsHash(record->cat_id, record->app_id), record);
        }
    }
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;
    ~Names() {
        free_app_inf(&applicationList_);
        free_app_cat(&categoryList_);
    }

    // What the row is called; unknown ids have empty names.
    RowNames of(const devid_app_rate_entry &row) {
        if (row.cat_id == 0 && row.app_id == 0)
            return {.category = "Others", .application = "Others"};
        const app_cat *category = categories_[row.cat_id];
        const char *application = applicationName(row.cat_id, le16toh(row.app_id));
        return {.category = category == nullptr ? "" : category->cat_name,
                .application = application == nullptr ? "" : application};
    }

  private:
    std::size_t load() {
        list_init(&applicationList_);
        list_init(&categoryList_);
        init_app_inf(&applicationList_);
        init_app_cat(&categoryList_);
        for (list_head *link = categoryList_.next; link != &categoryList_; link = link->next) {
            const app_cat *record = LIST_RECORD(link, app_cat, list);
            if (record->cat_id < kCategories && categories_[record->cat_id] == nullptr)
                categories_[record->cat_id] = record;
        }
        return lengthOf(applicationList_);
    }

    const char *applicationName(std::uint32_t categoryId, std::uint32_t applicationId) {
        if (!applications_.isUsable())
            return search_app_inf(&applicationList_, categoryId, applicationId);
        const app_inf *found =
            applications_.find(idsHash(categoryId, applicationId), [&](const app_inf *record) {
                return record->cat_id == categoryId && record->app_id == applicationId;
            });
        return found == nullptr ? nullptr : found->app_name;
    }

    list_head applicationList_;
    list_head categoryList_;
    const app_cat *categories_[kCategories] = {}; // the first record of each id
    HashIndex<app_inf> applications_;
};

// The usage table. Rows keep their order from pass to pass, and so do entries: nearly always the
// one that is needed stands behind the last one. The first that does not has an index built.
class TableWalk {
  public:
    // The pass adds at most this many entries.
    explicit TableWalk(std::size_t mostNewEntries) : mostNewEntries_(mostNewEntries) {}

    // Folds the candidate, whose own names say nothing, into the entry of these names.
    void fold(TrafficUsageDEntry &candidate, const RowNames &names) {
        TrafficUsageDEntry *known =
            isNext(candidate, names) ? entryOf(next_) : search(candidate, names);
        TrafficUsageDEntry *entry = foldIntoEntry(known, &candidate);
        if (entry == nullptr)
            return;
        if (known == nullptr && index_.isUsable())
            index_.add(identityHash(entry), entry);
        next_ = entry->list.next;
    }

  private:
    static TrafficUsageDEntry *entryOf(list_head *link) {
        return LIST_RECORD(link, TrafficUsageDEntry, list);
    }

    [[nodiscard]] bool isNext(const TrafficUsageDEntry &candidate, const RowNames &names) const {
        if (next_ == &trafficUsageD_table)
            return false;
        const TrafficUsageDEntry *entry = entryOf(next_);
        return memcmp(entry->macAddress, candidate.macAddress, sizeof entry->macAddress) == 0 &&
               strncmp(entry->appName, names.application, kNameSize - 1) == 0 &&
               strncmp(entry->appType, names.category, kNameSize - 1) == 0;
    }

    // Names the candidate, for it may become an entry.
    TrafficUsageDEntry *search(TrafficUsageDEntry &candidate, const RowNames &names) {
        copy_text(candidate.appName, names.application);
        copy_text(candidate.appType, names.category);
        if (!hasIndex())
            return searchTrafficUsageDTable(&candidate);
        return index_.find(identityHash(&candidate), [&](const TrafficUsageDEntry *entry) {
            return isSameTrafficUsageDEntry(entry, &candidate) == 1;
        });
    }

    bool hasIndex() {
        if (!index_.isUsable() && index_.reserve(lengthOf(trafficUsageD_table) + mostNewEntries_)) {
            list_head *head = &trafficUsageD_table;
            for (list_head *link = head->next; link != head; link = link->next)
                index_.add(identityHash(entryOf(link)), entryOf(link));
        }
        return index_.isUsable();
    }

    std::size_t mostNewEntries_;
    list_head *next_ = trafficUsageD_table.next;
    HashIndex<TrafficUsageDEntry> index_;
};

// The rows of each uid, chained in their order.
class RowsByUid {
  public:
    static constexpr int kEnd = 0xFFFF;

    explicit RowsByUid(const devid_app_rate_entry *rows) {
        static_assert(kMostRows < kEnd);
        for (int uid = 0; uid < kUids; ++uid)
            first_[uid] = last_[uid] = kEnd;
        while (rows != nullptr && count_ < kMostRows && rows[count_].available != 0) {
            append(rows[count_].uid, count_);
            ++count_;
        }
    }

    [[nodiscard]] std::size_t count(std::uint8_t uid) const { return length_[uid]; }
    [[nodiscard]] int first(std::uint8_t uid) const { return first_[uid]; }
    [[nodiscard]] static int next(int row) { return next_[row]; }

  private:
    void append(std::uint8_t uid, int row) {
        if (first_[uid] == kEnd)
            first_[uid] = static_cast<std::uint16_t>(row);
        else
            next_[last_[uid]] = static_cast<std::uint16_t>(row);
        last_[uid] = static_cast<std::uint16_t>(row);
        next_[row] = kEnd;
        ++length_[uid];
    }

    int count_ = 0;
    std::uint16_t first_[kUids];
    std::uint16_t last_[kUids];
    std::uint16_t length_[kUids] = {};
    // Static: a pass must not fail, or retire entries wrongly, for want of these 64 KB.
    static inline std::uint16_t next_[kMostRows];
};

TrafficUsageDEntry candidateOf(const devid_user_entry &user, std::uint32_t now) {
    TrafficUsageDEntry candidate{};
    memcpy(candidate.macAddress, user.mac, sizeof candidate.macAddress);
    candidate.vendorId = le16toh(user.os.detail.vendor_id);
    candidate.typeId = le16toh(user.os.detail.type_id);
    candidate.lastSeenTime = now;
    return candidate;
}

void setCounters(TrafficUsageDEntry &candidate, const devid_app_rate_entry &row) {
    candidate.current_uploadBandwidth = static_cast<double>(le64toh(row.up_accl_byte));
    candidate.current_downloadBandwidth = static_cast<double>(le64toh(row.down_accl_byte));
    candidate.trafficStartTime = le32toh(row.last_elapsed_ts);
}

void foldAll(const devid_user_entry *users, const devid_app_rate_entry *rows, Names &names,
             std::uint32_t now) {
    const RowsByUid rowsByUid(rows);
    std::size_t joins = 0; // more than there are rows when users share a uid: each gets them all
    int userCount = 0;
    for (; userCount < kMostUsers && users[userCount].available != 0; ++userCount)
        joins += rowsByUid.count(users[userCount].uid);

    TableWalk table(joins);
    for (int i = 0; i < userCount; ++i) {
        TrafficUsageDEntry candidate = candidateOf(users[i], now);
        const int first = rowsByUid.first(users[i].uid);
        for (int row = first; row != RowsByUid::kEnd; row = RowsByUid::next(row)) {
            setCounters(candidate, rows[row]);
            table.fold(candidate, names.of(rows[row]));
        }
    }
}

} // namespace

int updateTrafficUsageDTable() {
    const auto now = static_cast<std::uint32_t>(time(nullptr));
    devid_user_entry *userArray = nullptr;
    const int userStatus = get_fw_user_list(&userArray);
    const Allocated<devid_user_entry> users(userArray);
    if (userStatus != 0)
        tud_dbg("Error: get user!(%d)\n", userStatus);

    devid_app_rate_entry *rowArray = nullptr;
    const int rowStatus = get_fw_user_app_rate(&rowArray);
    const Allocated<devid_app_rate_entry> rows(rowArray);
    if (rowStatus != 0)
        tud_dbg("Error: get app!(%d)\n", rowStatus);

    Names names;
    if (users != nullptr)
        foldAll(users.get(), rows.get(), names, now);
    removeUntrackedTrafficUsageDEntry(now);
    return rowStatus;
}
