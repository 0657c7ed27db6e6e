#include "device_lists.h"

class AccessControlStore : public DeviceLists {
  protected:
    static void saveDevices(int count) {
        load();
        for (int i = 0; i < count; ++i) {
            set_mac_status(macOf(i).data(), 1);
            set_mac_devName(macOf(i).data(), "n");
        }
        EXPECT_EQ(save_ac_mac_list(), 0);
    }
};

TEST_F(AccessControlStore, EachKeyHasItsEncoding) {
    struct {
        int status, connType, order;
        const char *name;
    } const rows[] = {{0, 0, 0, "a:b."}, {1, 0, 99999, ""},   {0, 1, 100000, "Laptop"},
                      {1, 1, -1, "x"},   {0, -1, 7, "6:a"},   {1, -1, 70000, "y"},
                      {-2, 1, 1, "z"},   {6, 5, 1, " blank "}};
    int n = 0;
    for (const auto &row : rows) {
        set_mac_devName(macOf(n).data(), row.name);
        set_mac_status(macOf(n).data(), row.status);
        set_mac_connType(macOf(n).data(), row.connType);
        ac_mac_list[n++].order = row.order;
    }
    save_ac_mac_list();
    EXPECT_EQ(rig::setting("ac_mac_list0"),
              "A00B00000000:0:A00B00000001:1:A00B00000002:2:A00B00000003:3:"
              "A00B00000004:8:A00B00000005:9:A00B00000006:4:A00B00000007:2.");
    EXPECT_EQ(rig::setting("ac_mac_order0"), "00000:99999:99999:00000:00007:70000:00001:00001:");
    EXPECT_EQ(rig::setting("ac_dev_name0"), "4:a:b.:0::6:Laptop:1:x:3:6:a:1:y:1:z:7: blank .");
    EXPECT_EQ(rig::settingSaves(), 1);
}

TEST_F(AccessControlStore, TheNamesKeyBehindTheLastFullOneIsAlwaysWritten) {
    rig::setSetting("ac_dev_name0", "stale");
    rig::setSetting("ac_dev_name1", "stale");
    rig::setSetting("ac_dev_name2", "stale");
    rig::setSetting("ac_mac_list3", "stale");
    saveDevices(0);
    EXPECT_EQ(rig::setting("ac_dev_name0") + rig::setting("ac_mac_list3"), "");
    EXPECT_EQ(rig::setting("ac_dev_name1"), "stale");
    saveDevices(14);
    EXPECT_TRUE(rig::setting("ac_dev_name0").ends_with(":1:n:1:n."));
    EXPECT_EQ(rig::setting("ac_dev_name1"), "");
    EXPECT_EQ(rig::setting("ac_dev_name2"), "stale");
    saveDevices(128);
    EXPECT_EQ(rig::setting("ac_mac_list3").size(), 480u);
    EXPECT_TRUE(rig::setting("ac_mac_list3").ends_with(":A00B0000007F:9."));
    EXPECT_EQ(rig::setting("ac_mac_order3").size(), 192u);
}

TEST_F(AccessControlStore, NothingIsLoadedPastTheTable) {
    saveDevices(128);
    rig::setSetting("ac_mac_list3",
                    rig::setting("ac_mac_list3").substr(0, 479) + ":A00B00000080:1.");
    rig::setSetting("ac_mac_order3", rig::setting("ac_mac_order3") + "00001:");
    rig::setSetting("ac_dev_name9", "1:n:1:n:1:n:1:n.");
    load();
    EXPECT_EQ(load_ac_devName_list(1000), 0);
    EXPECT_EQ(load_ac_devName_list(-1), 0);
    EXPECT_EQ(describe(ac_mac_list[127]), "A00B0000007F 1 -1 0 n");
}

TEST_F(AccessControlStore, AnUnknownConnectionIsLookedUpAgain) {
    rig::setSetting("ac_mac_list0", "a00b00000001:8:A00B00000002:9:A00B00000003:8:A00B00000004:4.");
    rig::writeFile("/proc/net/attadev", "A0:0B:00:00:00:01 vlan1\nA0:0B:00:00:00:02 eth2\n");
    EXPECT_EQ(load(), "No ACL rule order defined! Init all rules order to 0!");
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000001 0 1 0 ");
    EXPECT_EQ(describe(ac_mac_list[1]), "A00B00000002 1 0 0 ");
    EXPECT_EQ(describe(ac_mac_list[2]), "A00B00000003 0 -1 0 ");
    EXPECT_EQ(describe(ac_mac_list[3]), "A00B00000004 -1 -1 0 ");
}

TEST_F(AccessControlStore, DamageEndsOnlyWhatItDamages) {
    const std::string three = "A00B00000000:1:A00B00000001:1:A00B00000002:1.";
    struct {
        const char *what;
        std::string entries, names, orders;
        int count, named, ordered;
    } const rows[] = {
        {"no flags", "A00B00000000:1:A00B00000001:", "1:a:1:b:1:c.", "1    :2    :3", 1, 2, 2},
        {"no address", "A00B00000000:1:A00Bxx000001:1.", "1:a.", "00001:", 1, 1, 1},
        {"no length", three, "1:a:x:b:1:c.", "00001:00x02:00003:", 3, 1, 2},
        {"a negative length", three, "1:a:-1:b:1:c.", "00001:   -1:00003:", 3, 1, 1},
        {"a length beyond the text", three, "1:a:9:b:1:c", "00001:xxxxx:00003:", 3, 2, 1},
        {"beyond the field", three, "40:" + std::string(40, 'a') + ":1:b.", "00001:", 3, 2, 1},
        {"beyond its key", three, "999:" + std::string(600, 'a'), "00001:", 3, 1, 1},
        {"no name", three, "1:a:2:  ", "00001:", 3, 1, 1},
        {"beyond any number", three, "99999999999999999999:b:1:c", "00001:", 3, 1, 1},
    };
    rig::setSetting("ac_dev_name1", "1:x:1:x.");
    for (const auto &row : rows) {
        rig::setSetting("ac_mac_list0", row.entries);
        rig::setSetting("ac_dev_name0", row.names);
        rig::setSetting("ac_mac_order0", row.orders);
        load();
        std::array<int, 3> seen{};
        for (const ac_mac_entry &entry : ac_mac_list) {
            seen[0] += entry.status != -1 ? 1 : 0;
            seen[1] += entry.devName[0] != '\0' ? 1 : 0;
            seen[2] += entry.order != 0 ? 1 : 0;
        }
        EXPECT_EQ(seen, (std::array{row.count, row.named, row.ordered})) << row.what;
    }
}
