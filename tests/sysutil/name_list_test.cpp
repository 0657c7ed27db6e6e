// Both device lists against the settings: whatever the operations build comes back, and whatever
// the settings hold does no harm.
#include "device_lists.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <vector>

namespace {

constexpr unsigned int kRuns = 100;

class Random {
  public:
    explicit Random(unsigned int seed) : engine_(seed) {}
    int below(int limit) { return static_cast<int>(engine_() % static_cast<unsigned int>(limit)); }
    std::string text(int longest) {
        static constexpr char kCharacters[] = "0123456789ABCDEFabcdefxX::::...+-% \t\n\xff'";
        std::string result(static_cast<std::size_t>(below(longest + 1)), ' ');
        for (char &c : result)
            c = kCharacters[below(sizeof kCharacters - 1)];
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

    static void change(Random &random) {
        const Mac mac = macOf(random.below(200));
        if (random.below(8) == 0) {
            del_ac_mac_entry(mac.data());
            return;
        }
        if (is_acl_list_full() != 0)
            del_acl_smallest_order_mac();
        set_mac_status(mac.data(), random.below(2));
        if (random.below(2) != 0)
            set_mac_devName(mac.data(), random.text(40).c_str());
        if (random.below(400) == 0) // without a status: the end for readers
            set_mac_devName(macOf(200 + random.below(100)).data(), "nobody");
        set_mac_connType(mac.data(), random.below(3) - 1);
        acl_rule_curr_order += random.below(2000);
        inc_acl_mac_curr_order();
        acl_update_mac_order(mac.data());
    }

    static bool isSane(const ac_mac_entry &entry) {
        return entry.status >= -1 && entry.status <= 1 && entry.connType >= -1 &&
               entry.connType <= 1 && entry.order >= 0 && entry.order <= 99999;
    }
};

struct Iqos {
    static constexpr const char *kFamilies[] = {"iqos_mac_list", "iqos_dev_name"};
    static constexpr std::size_t kCapacity = 64;
    static constexpr auto &kTable = iqos_dev_list;
    static constexpr auto load = load_iqos_list;
    static constexpr auto save = save_iqos_list;

    static void change(Random &random) {
        const Mac mac = macOf(random.below(100));
        if (random.below(8) == 0) {
            del_iqos_mac_entry(mac.data());
            return;
        }
        const int status = random.below(400) == 0 ? -1 : random.below(10);
        iqos_dev_entry record{{}, random.below(100), status, random.below(10), random.below(10),
                              ""};
        const std::string name = random.text(32);
        std::copy(name.begin(), name.end(), record.devName);
        set_iqos_status(mac.data(), record);
    }

    static bool isSane(const iqos_dev_entry &entry) {
        return &entry < iqos_dev_list + kCapacity || describe(entry) == "000000000000 -1 0 0 0 ";
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
void buildAndSave(unsigned int seed) {
    // Only the list itself is empty: names of an earlier, longer one are left behind.
    rig::setSetting(std::string(List::kFamilies[0]) + "0", "");
    List::load();
    Random random(seed);
    for (int changes = random.below(600); changes > 0; --changes)
        List::change(random);
    List::save();
}

std::string damaged(std::string text, Random &random) {
    static constexpr const char *kTokens[] = {
        "99999999999999999999", "2147483648:", "-1:", "33:", "511:", "0:", ":::", "."};
    for (int hits = 1 + random.below(4); hits > 0; --hits) {
        const auto place =
            static_cast<std::size_t>(random.below(static_cast<int>(text.size()) + 1));
        const auto length = static_cast<std::size_t>(random.below(40));
        switch (random.below(4)) {
        case 0:
            text.replace(place, length % 2, random.text(1));
            break;
        case 1:
            text.replace(place, length, kTokens[random.below(std::size(kTokens))]);
            break;
        case 2:
            text.resize(place);
            break;
        default:
            text.insert(place, random.text(1200));
        }
    }
    return text;
}

template <typename List>
void damageSettings(unsigned int seed) {
    Random random(seed);
    for (const char *family : List::kFamilies) {
        for (int key = 0; key < 10; ++key) {
            const std::string name = family + std::to_string(key);
            if (random.below(3) == 0)
                rig::setSetting(name, damaged(rig::setting(name), random));
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
        rig::standardOutput([=] { buildAndSave<TypeParam>(seed); });
        const auto built = usedRun<TypeParam>();
        rig::standardOutput(TypeParam::load);
        ASSERT_EQ(usedRun<TypeParam>(), built) << "seed " << seed;
        longest = std::max(longest, built.size());
    }
    EXPECT_EQ(longest, TypeParam::kCapacity);
}

TYPED_TEST(NameList, DamagedSettingsLoadWithoutHarmAndSettleWhenSaved) {
    for (unsigned int seed = 1; seed <= kRuns; ++seed) {
        rig::standardOutput([=] {
            buildAndSave<TypeParam>(seed);
            damageSettings<TypeParam>(seed);
            TypeParam::load();
        });
        for (const auto &entry : TypeParam::kTable)
            ASSERT_TRUE(TypeParam::isSane(entry)) << describe(entry) << ", seed " << seed;
        const std::size_t count = usedRun<TypeParam>().size();
        TypeParam::save(); // limits numbers that are too wide for their cell
        rig::standardOutput(TypeParam::load);
        const auto settled = usedRun<TypeParam>();
        ASSERT_EQ(settled.size(), count) << "seed " << seed;
        TypeParam::save();
        rig::standardOutput(TypeParam::load);
        ASSERT_EQ(usedRun<TypeParam>(), settled) << "seed " << seed;
    }
}
