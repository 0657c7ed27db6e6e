// One pass over the engine's tables. Joining rows to users, naming applications and finding
// entries go through indexes that are built for the pass, so that its cost grows with the number of
// rows and not with its square; the result is that of the plain nested walk, in the same order.
#include "common/file.h"
#include "common/text.h"
#include "dpi/conf_app.h"
#include "dpi/usr_ioctl.h"
#include "trafficUsageDetailsD/debug_log.h"
#include "trafficUsageDetailsD/hash_index.h"
#include "trafficUsageDetailsD/usage_table.h"

#include <cstring>
#include <ctime>
#include <endian.h>

namespace {

constexpr int kMostUsers = IDPFW_USER_SLOTS - 1;
constexpr int kMostRows = IDPFW_APP_SLOTS - 1;
constexpr int kUids = 256;
constexpr int kCategories = 256; // that a row's 8-bit category id can name

// FNV-1a with a final mix, so that the low bits can be used as they are.
class Hash {
  public:
    void add(const unsigned char *bytes, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i)
            value_ = (value_ ^ bytes[i]) * 16777619u;
    }
    void addText(const char *text) {
        // The NUL tells where one text ends and the next begins.
        add(reinterpret_cast<const unsigned char *>(text), strnlen(text, kNameSize - 1) + 1);
    }
    [[nodiscard]] std::uint32_t value() const { return value_ ^ (value_ >> 15); }

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
    Names() : applications_(load()) {
        if (!applications_.isUsable())
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

    // Names the candidate's application and category; unknown ids get empty names.
    void name(TrafficUsageDEntry &candidate, const devid_app_rate_entry &row) {
        if (row.cat_id == 0 && row.app_id == 0) {
            copy_text(candidate.appType, "Others");
            copy_text(candidate.appName, "Others");
            return;
        }
        const app_cat *category = categories_[row.cat_id];
        copyName(candidate.appType, category == nullptr ? nullptr : category->cat_name);
        copyName(candidate.appName, applicationName(row.cat_id, le16toh(row.app_id)));
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

    static void copyName(char (&name)[kNameSize], const char *text) {
        copy_text(name, text == nullptr ? "" : text);
    }

    list_head applicationList_;
    list_head categoryList_;
    const app_cat *categories_[kCategories] = {}; // the first record of each id
    HashIndex<app_inf> applications_;
};

// The usage table with an index beside it.
class IndexedTable {
  public:
    explicit IndexedTable(std::size_t mostNewEntries)
        : index_(lengthOf(trafficUsageD_table) + mostNewEntries) {
        if (!index_.isUsable())
            return;
        list_head *head = &trafficUsageD_table;
        for (list_head *link = head->next; link != head; link = link->next) {
            auto *entry = LIST_RECORD(link, TrafficUsageDEntry, list);
            index_.add(identityHash(entry), entry);
        }
    }

    void fold(TrafficUsageDEntry &candidate) {
        if (!index_.isUsable()) {
            updateTrafficInfo2TrafficUsageDTable(&candidate);
            return;
        }
        const std::uint32_t hash = identityHash(&candidate);
        TrafficUsageDEntry *known = index_.find(hash, [&](const TrafficUsageDEntry *entry) {
            return isSameTrafficUsageDEntry(entry, &candidate) == 1;
        });
        TrafficUsageDEntry *entry = foldIntoEntry(known, &candidate);
        if (known == nullptr && entry != nullptr)
            index_.add(hash, entry);
    }

  private:
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

TrafficUsageDEntry candidateOf(const devid_user_entry &user, const devid_app_rate_entry &row,
                               std::uint32_t now) {
    TrafficUsageDEntry candidate{};
    memcpy(candidate.macAddress, user.mac, sizeof candidate.macAddress);
    candidate.vendorId = le16toh(user.os.detail.vendor_id);
    candidate.typeId = le16toh(user.os.detail.type_id);
    candidate.current_uploadBandwidth = static_cast<double>(le64toh(row.up_accl_byte));
    candidate.current_downloadBandwidth = static_cast<double>(le64toh(row.down_accl_byte));
    candidate.trafficStartTime = le32toh(row.last_elapsed_ts);
    candidate.lastSeenTime = now;
    return candidate;
}

void foldAll(const devid_user_entry *users, const devid_app_rate_entry *rows, Names &names,
             std::uint32_t now) {
    const RowsByUid rowsByUid(rows);
    std::size_t joins = 0; // more than there are rows when users share a uid: each gets them all
    int userCount = 0;
    for (; userCount < kMostUsers && users[userCount].available != 0; ++userCount)
        joins += rowsByUid.count(users[userCount].uid);

    IndexedTable table(joins);
    for (int i = 0; i < userCount; ++i) {
        const int first = rowsByUid.first(users[i].uid);
        for (int row = first; row != RowsByUid::kEnd; row = RowsByUid::next(row)) {
            TrafficUsageDEntry candidate = candidateOf(users[i], rows[row], now);
            names.name(candidate, rows[row]);
            table.fold(candidate);
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
