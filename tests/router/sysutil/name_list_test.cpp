// Both device lists against the settings: whatever the operations build comes back, and whatever
// the settings hold does no harm.
#include "device_lists.h"

#include "sysutil/device_table.h"

#include <list>
#include <random>

namespace {

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

// Only the lists themselves start empty: names of earlier, longer ones are left behind.
void build(Random &random) {
    rig::setSetting("ac_mac_list0", "");
    rig::setSetting("iqos_mac_list0", "");
    load_ac_mac_list();
    load_iqos_list();
    for (int changes = below(random, 600); changes > 0; --changes) {
        const auto *const mac = macOf(below(random, 200));
        if (below(random, 8) == 0) {
            del_ac_mac_entry(mac);
            del_iqos_mac_entry(mac);
            continue;
        }
        if (is_acl_list_full() != 0)
            del_acl_smallest_order_mac();
        set_mac_status(mac, below(random, 2));
        set_mac_devName(mac, randomText(random, 40).c_str());
        set_mac_connType(mac, below(random, 3) - 1);
        acl_rule_curr_order += below(random, 2000);
        inc_acl_mac_curr_order();
        acl_update_mac_order(mac);
        iqos_dev_entry record{{}, below(random, 100), below(random, 10), 9, 0, ""};
        randomText(random, 32).copy(record.devName, 32);
        set_iqos_status(mac, record);
    }
}

void damageSettings(Random &random) {
    const std::string families[] = {"ac_mac_list", "ac_mac_order", "ac_dev_name", "iqos_mac_list",
                                    "iqos_dev_name"};
    for (int hits = below(random, 40); hits > 0; --hits) {
        const std::string name = families[random() % 5] + std::to_string(below(random, 10));
        const std::string pieces[] = {"99999999999999999999:", "-1:", "33:", ".",
                                      randomText(random, 1200)};
        std::string text = rig::setting(name);
        text.replace(random() % (text.size() + 1), random() % 40, pieces[random() % 5]);
        rig::setSetting(name, text);
    }
}

// The used entries of both lists.
std::list<std::string> used() {
    std::list<std::string> result;
    for (int i = 0; i < used_count(ac_mac_list); ++i)
        result.push_back(describe(ac_mac_list[i]));
    for (int i = 0; i < used_count(iqos_dev_list); ++i)
        result.push_back(describe(iqos_dev_list[i]));
    return result;
}

std::list<std::string> savedAndLoaded() {
    save_ac_mac_list();
    save_iqos_list();
    loadLists();
    return used();
}

} // namespace

class NameList : public DeviceLists {};

TEST_F(NameList, WhatTheOperationsBuildComesBackAndDamageToItSettlesWhenSaved) {
    for (unsigned int seed = 1; seed <= 150; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        rig::standardOutput([&] { build(random); });
        const auto built = used();
        ASSERT_EQ(savedAndLoaded(), built);

        damageSettings(random);
        loadLists();
        const std::size_t count = used().size();
        const auto settled = savedAndLoaded(); // numbers too wide for their cell are limited
        ASSERT_EQ(settled.size(), count);
        ASSERT_EQ(savedAndLoaded(), settled);
    }
    EXPECT_EQ(rig::settingSaves(), 150 * 3 * 2);
}
