// Both device lists against the settings: whatever the operations build comes back, and whatever
// the settings hold does no harm.
#include "device_lists.h"

#include "support/fixture.h"

#include <algorithm>
#include <random>
#include <sstream>
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

// The used run as text, numbers limited to what the settings have room for.
using Snapshot = std::vector<std::string>;

struct AccessControl {
    static constexpr const char *kFamilies[] = {"ac_mac_list", "ac_mac_order", "ac_dev_name"};
    static constexpr std::size_t kCapacity = 128;

    static void load() { load_ac_mac_list(); }
    static void save() { save_ac_mac_list(); }

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

    static Snapshot used() {
        Snapshot result;
        for (const ac_mac_entry &entry : ac_mac_list) {
            if (entry.status == -1)
                break;
            std::ostringstream text;
            for (const int byte : entry.mac)
                text << byte << ' ';
            text << entry.status << ' ' << entry.connType << ' ' << entry.order << ' '
                 << nameIn(entry.devName);
            result.push_back(text.str());
        }
        return result;
    }

    static void expectSane() {
        for (const ac_mac_entry &entry : ac_mac_list) {
            EXPECT_TRUE(entry.status >= -1 && entry.status <= 1);
            EXPECT_TRUE(entry.connType >= -1 && entry.connType <= 1);
            EXPECT_TRUE(entry.order >= 0 && entry.order <= 99999);
        }
    }
};

struct Iqos {
    static constexpr const char *kFamilies[] = {"iqos_mac_list", "iqos_dev_name"};
    static constexpr std::size_t kCapacity = 64;

    static void load() { load_iqos_list(); }
    static void save() { save_iqos_list(); }

    static void change(Random &random) {
        const Mac mac = macOf(random.below(100));
        if (random.below(8) == 0) {
            del_iqos_mac_entry(mac.data());
            return;
        }
        iqos_dev_entry record{};
        record.attr1 = random.below(100);
        record.status = random.below(400) == 0 ? -1 : random.below(10);
        record.attr2 = random.below(10);
        record.attr3 = random.below(10);
        const std::string name = random.text(32);
        std::copy(name.begin(), name.end(), record.devName);
        set_iqos_status(mac.data(), record);
    }

    static Snapshot used() {
        Snapshot result;
        for (const iqos_dev_entry &entry : iqos_dev_list) {
            if (entry.status == -1)
                break;
            std::ostringstream text;
            for (const int byte : entry.mac)
                text << byte << ' ';
            for (const int value : {entry.status, entry.attr2, entry.attr3})
                text << std::clamp(value, 0, 9) << ' ';
            text << std::clamp(entry.attr1, 0, 99) << ' ' << nameIn(entry.devName);
            result.push_back(text.str());
        }
        return result;
    }

    static void expectSane() {
        for (const iqos_dev_entry *free = iqos_dev_list + 64; free != iqos_dev_list + 256; ++free) {
            EXPECT_EQ(macOf(free->mac), Mac{});
            EXPECT_EQ(free->status, -1);
            EXPECT_EQ(nameIn(free->devName), "");
        }
    }
};

std::string damaged(std::string text, Random &random) {
    static constexpr const char *kNumbers[] = {
        "99999999999999999999", "2147483648:", "-1:", "33:", "511:", "0:",
        "-2147483649",          ":::",         "."};
    for (int hits = 1 + random.below(4); hits > 0; --hits) {
        const auto place =
            static_cast<std::size_t>(random.below(static_cast<int>(text.size()) + 1));
        const auto length = static_cast<std::size_t>(random.below(40));
        switch (random.below(6)) {
        case 0:
            text.replace(place, 1, random.text(1));
            break;
        case 1:
            text.insert(place, kNumbers[random.below(std::size(kNumbers))]);
            break;
        case 2:
            text.erase(place, length);
            break;
        case 3:
            text.insert(place, text.substr(place / 2, length));
            break;
        case 4:
            text.resize(place);
            break;
        default:
            text.insert(place, random.text(1200));
        }
    }
    return text;
}

template <typename List>
void build(Random &random) {
    // Only the list itself is empty: names of an earlier, longer one are left behind.
    rig::setSetting(std::string(List::kFamilies[0]) + "0", "");
    List::load();
    for (int changes = random.below(600); changes > 0; --changes)
        List::change(random);
}

template <typename List>
void damageSettings(Random &random) {
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
        Snapshot built;
        rig::standardOutput([&] {
            Random random(seed);
            build<TypeParam>(random);
            built = TypeParam::used();
            TypeParam::save();
            TypeParam::load();
        });
        ASSERT_EQ(TypeParam::used(), built) << "seed " << seed;
        longest = std::max(longest, built.size());
    }
    EXPECT_EQ(longest, TypeParam::kCapacity);
}

TYPED_TEST(NameList, DamagedSettingsLoadWithoutHarmAndSettleWhenSaved) {
    for (unsigned int seed = 1; seed <= kRuns; ++seed) {
        Snapshot loaded;
        rig::standardOutput([&] {
            Random random(seed);
            build<TypeParam>(random);
            TypeParam::save();
            damageSettings<TypeParam>(random);
            TypeParam::load();
        });
        TypeParam::expectSane();
        rig::standardOutput([&] {
            loaded = TypeParam::used();
            TypeParam::save();
            TypeParam::load();
        });
        ASSERT_EQ(TypeParam::used(), loaded) << "seed " << seed;
    }
}
