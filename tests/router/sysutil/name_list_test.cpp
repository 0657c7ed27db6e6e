// Both device lists against the settings. Whatever else the settings may hold is a fuzz target's.
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

// The used entries of both lists.
std::list<std::string> used() {
    std::list<std::string> result;
    for (int i = 0; i < used_count(ac_mac_list); ++i)
        result.push_back(describe(ac_mac_list[i]));
    for (int i = 0; i < used_count(iqos_dev_list); ++i)
        result.push_back(describe(iqos_dev_list[i]));
    return result;
}

} // namespace

class NameList : public DeviceLists {};

TEST_F(NameList, WhatTheOperationsBuildComesBack) {
    for (unsigned int seed = 1; seed <= 150; ++seed) {
        Random random(seed);
        rig::standardOutput([&] { build(random); });
        const auto built = used();
        save_ac_mac_list();
        save_iqos_list();
        loadLists();
        ASSERT_EQ(used(), built) << seed;
    }
    EXPECT_EQ(rig::settingSaves(), 150 * 2);
}

TEST_F(NameList, NamesAreTakenUpToOneThatIsMalformed) {
    const std::string most(32, 'm');
    const std::pair<std::string, std::string> rows[] = {
        {"1:a:02:b::1:c.", "a/b:/c"},
        {"1:a: +1:b:1:c.", "a/b/c"},
        {"1:a:0::1:c.", "a//c"},
        {"1:a:-1:b:1:c.", "a//"},
        {"1:a:x:b:1:c.", "a//"},
        {"1:a:1;b:1:c.", "a//"},
        {"1:a:1: ", "a//"},
        {"1:a:99:b:c", "a/b:c/"},
        {"1:a:34:" + most + "xy:1:c.", "a/" + most + "/c"},
        {"", "//"}};
    rig::setSetting("ac_mac_list0", "A00B00000001:1:A00B00000002:1:A00B00000003:1.");
    for (const auto &[text, names] : rows) {
        rig::setSetting("ac_dev_name0", text);
        loadLists();
        std::string found;
        for (int i = 0; i < 3; ++i)
            found += (i == 0 ? "" : "/") +
                     std::string(ac_mac_list[i].devName, strnlen(ac_mac_list[i].devName, 32));
        EXPECT_EQ(found, names) << text;
    }
}
