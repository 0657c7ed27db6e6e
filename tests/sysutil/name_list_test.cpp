// Both device lists against the settings: whatever the operations build comes back, and whatever
// the settings hold does no harm.
#include "device_lists.h"

#include <algorithm>
#include <random>
#include <vector>

namespace {

constexpr unsigned int kRuns = 100;

class Random {
  public:
    explicit Random(unsigned int seed) : engine_(seed) {}
    int below(std::size_t limit) { return static_cast<int>(engine_() % limit); }
    std::string text(std::size_t longest) {
        static const std::string kCharacters = "0123456789ABCDEFabcdefxX::::...+-% \t\n\xff'";
        std::string result(static_cast<std::size_t>(below(longest + 1)), ' ');
        for (char &c : result)
            c = kCharacters[static_cast<std::size_t>(below(kCharacters.size()))];
        return result;
    }

  private:
    std::mt19937 engine_;
};

struct AccessControl {
    static constexpr const char *kFamilies[] = {"ac_mac_list", "ac_mac_order", "ac_dev_name"};
    static constexpr std::size_t kCapacity = 128;
    static constexpr auto &kTable = ac_mac_list;
    static constexpr auto load = load_ac_mac_list;
    static constexpr auto save = save_ac_mac_list;
    static constexpr auto remove = del_ac_mac_entry;

    static void set(Random &random) {
        const auto *const mac = macOf(random.below(200));
        if (is_acl_list_full() != 0)
            del_acl_smallest_order_mac();
        if (random.below(400) == 0) // without a status: the end for readers
            set_mac_devName(macOf(200 + random.below(100)), "nobody");
        set_mac_status(mac, random.below(2));
        set_mac_devName(mac, random.text(40).c_str());
        set_mac_connType(mac, random.below(3) - 1);
        acl_rule_curr_order += random.below(2000);
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
        const int status = random.below(400) == 0 ? -1 : random.below(10);
        iqos_dev_entry record{{}, random.below(100), status, random.below(10), random.below(10),
                              ""};
        const std::string name = random.text(32);
        std::copy(name.begin(), name.end(), record.devName);
        set_iqos_status(macOf(random.below(100)), record);
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
    for (int changes = random.below(600); changes > 0; --changes) {
        if (random.below(8) == 0)
            List::remove(macOf(random.below(200)));
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
            for (int hits = random.below(3); hits > 0; --hits) {
                const auto place = static_cast<std::size_t>(random.below(text.size() + 1));
                const auto length = static_cast<std::size_t>(random.below(40));
                const std::string pieces[] = {
                    "99999999999999999999", "2147483648:",    "-1:", "33:", "511:", "0:", ".",
                    random.text(1),         random.text(1200)};
                text.replace(place, length, pieces[random.below(std::size(pieces))]);
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

TYPED_TEST(NameList, WhatTheOperationsBuildComesBack) {
    std::size_t longest = 0;
    for (unsigned int seed = 1; seed <= kRuns; ++seed) {
        Random random(seed);
        rig::standardOutput([&] { buildAndSave<TypeParam>(random); });
        const auto built = usedRun<TypeParam>();
        ASSERT_EQ(reload<TypeParam>(), built) << "seed " << seed;
        longest = std::max(longest, built.size());
    }
    EXPECT_EQ(longest, TypeParam::kCapacity);
}

TYPED_TEST(NameList, DamagedSettingsLoadWithoutHarmAndSettleWhenSaved) {
    for (unsigned int seed = 1; seed <= kRuns; ++seed) {
        Random random(seed);
        rig::standardOutput([&] { buildAndSave<TypeParam>(random); });
        damageSettings<TypeParam>(random);
        const std::size_t count = reload<TypeParam>().size();
        TypeParam::save(); // limits numbers that are too wide for their cell
        const auto settled = reload<TypeParam>();
        ASSERT_EQ(settled.size(), count) << "seed " << seed;
        TypeParam::save();
        ASSERT_EQ(reload<TypeParam>(), settled) << "seed " << seed;
    }
}
