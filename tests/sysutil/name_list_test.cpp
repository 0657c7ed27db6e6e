// Both device lists against the settings: whatever the operations build comes back, and whatever
// the settings hold does no harm.
#include "device_lists.h"

#include <algorithm>
#include <random>
#include <vector>

namespace {

constexpr unsigned int kRuns = 150;

using Random = std::mt19937;

int below(Random &random, std::size_t limit) {
    return static_cast<int>(random() % limit);
}

std::string randomText(Random &random, std::size_t longest) {
    std::string result(random() % (longest + 1), ' ');
    for (char &c : result)
        c = "0123456789ABCDEFabcdefxX::::...+-% \t\n\xff'"[random() % 39];
    return result;
}

struct AccessControl {
    static constexpr const char *kFamilies[] = {"ac_mac_list", "ac_mac_order", "ac_dev_name"};
    static constexpr std::size_t kCapacity = 128;
    static constexpr auto &kTable = ac_mac_list;
    static constexpr auto load = load_ac_mac_list;
    static constexpr auto save = save_ac_mac_list;
    static constexpr auto remove = del_ac_mac_entry;

    static void set(Random &random) {
        const auto *const mac = macOf(below(random, 200));
        if (is_acl_list_full() != 0)
            del_acl_smallest_order_mac();
        if (below(random, 400) == 0) // without a status: the end for readers
            set_mac_devName(macOf(200 + below(random, 100)), "nobody");
        set_mac_status(mac, below(random, 2));
        set_mac_devName(mac, randomText(random, 40).c_str());
        set_mac_connType(mac, below(random, 3) - 1);
        acl_rule_curr_order += below(random, 2000);
        inc_acl_mac_curr_order();
        acl_update_mac_order(mac);
    }
};

struct Iqos {
    static constexpr const char *kFamilies[] = {"iqos_mac_list", "iqos_dev_name"};
    static constexpr std::size_t kCapacity = 64;
    static constexpr auto &kTable = iqos_dev_list;
    static constexpr auto load = load_iqos_list;
    static constexpr auto save = save_iqos_list;
    static constexpr auto remove = del_iqos_mac_entry;

    static void set(Random &random) {
        const int status = below(random, 400) == 0 ? -1 : below(random, 10);
        iqos_dev_entry record{{}, below(random, 100), status, below(random, 10), below(random, 10),
                              ""};
        const std::string name = randomText(random, 32);
        std::copy(name.begin(), name.end(), record.devName);
        set_iqos_status(macOf(below(random, 100)), record);
    }
};

template <typename List>
std::vector<std::string> usedRun() {
    std::vector<std::string> result;
    for (const auto &entry : List::kTable) {
        if (entry.status == -1)
            break;
        result.push_back(describe(entry));
    }
    return result;
}

template <typename List>
std::vector<std::string> reload() {
    rig::standardOutput(List::load);
    return usedRun<List>();
}

template <typename List>
void buildAndSave(Random &random) {
    // Only the list itself is empty: names of an earlier, longer one are left behind.
    rig::setSetting(std::string(List::kFamilies[0]) + "0", "");
    List::load();
    for (int changes = below(random, 600); changes > 0; --changes) {
        if (below(random, 8) == 0)
            List::remove(macOf(below(random, 200)));
        else
            List::set(random);
    }
    List::save();
}

template <typename List>
void damageSettings(Random &random) {
    for (const char *family : List::kFamilies) {
        for (int key = 0; key < 10; ++key) {
            const std::string name = family + std::to_string(key);
            std::string text = rig::setting(name);
            for (int hits = below(random, 3); hits > 0; --hits) {
                const auto place = random() % (text.size() + 1);
                const auto length = random() % 40;
                const std::string pieces[] = {
                    "99999999999999999999:", "-1:", "33:", ".", randomText(random, 1),
                    randomText(random, 1200)};
                text.replace(place, length, pieces[random() % std::size(pieces)]);
            }
            rig::setSetting(name, text);
        }
    }
}

} // namespace

template <typename List>
class NameList : public rig::Fixture {};
using Lists = testing::Types<AccessControl, Iqos>;
TYPED_TEST_SUITE(NameList, Lists);

TYPED_TEST(NameList, WhatTheOperationsBuildComesBackAndDamageToItSettlesWhenSaved) {
    std::size_t longest = 0;
    for (unsigned int seed = 1; seed <= kRuns; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        rig::standardOutput([&] { buildAndSave<TypeParam>(random); });
        const auto built = usedRun<TypeParam>();
        ASSERT_EQ(reload<TypeParam>(), built);
        longest = std::max(longest, built.size());

        damageSettings<TypeParam>(random);
        const std::size_t count = reload<TypeParam>().size();
        TypeParam::save(); // limits numbers that are too wide for their cell
        const auto settled = reload<TypeParam>();
        ASSERT_EQ(settled.size(), count);
        TypeParam::save();
        ASSERT_EQ(reload<TypeParam>(), settled);
    }
    EXPECT_EQ(longest, TypeParam::kCapacity);
}
