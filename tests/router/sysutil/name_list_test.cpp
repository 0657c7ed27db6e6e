// Both device lists against the settings. Whatever else the settings may hold is a fuzz target's.
#include "device_lists.h"

#include "sysutil/device_table.h"

#include <list>

namespace {

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

TEST_F(NameList, WhatAListHoldsComesBackWhateverItsLength) {
    for (const int count : {0, 1, 13, 14, 15, 64, 128}) { // a text has room for 14 names
        rig::setSetting("ac_mac_list0", "");
        rig::setSetting("iqos_mac_list0", "");
        loadLists();
        for (int i = 0; i < count; ++i) {
            const std::string name(i % 33, static_cast<char>(' ' + i % 90));
            iqos_dev_entry record{{}, i % 100, i % 10, 9, 0, ""};
            name.copy(record.devName, 32);
            set_iqos_status(macOf(i), record); // refuses those from 64 on
            set_mac_status(macOf(i), i % 2);
            set_mac_devName(macOf(i), name.c_str());
            set_mac_connType(macOf(i), i % 3 - 1);
            ac_mac_list[i].order = 777 * i;
        }
        const auto built = used();
        EXPECT_EQ(save_ac_mac_list() + save_iqos_list(), 0);
        loadLists();
        ASSERT_EQ(used(), built) << count;
    }
    EXPECT_EQ(rig::settingSaves(), 7 * 2);
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
