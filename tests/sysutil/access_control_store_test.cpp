#include "device_lists.h"

#include "support/fixture.h"

class AccessControlStore : public rig::Fixture {
  protected:
    static std::string load() {
        return rig::standardOutput([] { EXPECT_EQ(load_ac_mac_list(), 0); });
    }
    static void fill(int count) {
        load();
        for (int i = 0; i < count; ++i) {
            set_mac_status(macOf(i).data(), 1);
            set_mac_devName(macOf(i).data(), std::string(i % 33, 'n').c_str());
            set_mac_connType(macOf(i).data(), i % 2);
            ac_mac_list[i].order = i;
        }
    }
};

TEST_F(AccessControlStore, EachKeyHasItsEncoding) {
    load();
    struct {
        int status, connType, order;
        const char *name;
    } const rows[] = {{0, 0, 0, "a:b."}, {1, 0, 99999, ""},   {0, 1, 100000, "Laptop"},
                      {1, 1, -1, "x"},   {0, -1, 7, "6:a"},   {1, -1, 70000, "y"},
                      {-2, 1, 1, "z"},   {6, 5, 1, " blank "}};
    int n = 0;
    for (const auto &row : rows) {
        const Mac mac = macOf(n);
        set_mac_devName(mac.data(), row.name);
        set_mac_status(mac.data(), row.status);
        set_mac_connType(mac.data(), row.connType);
        ac_mac_list[n++].order = row.order;
    }
    EXPECT_EQ(save_ac_mac_list(), 0);
    EXPECT_EQ(rig::setting("ac_mac_list0"),
              "A00B00000000:0:A00B00000001:1:A00B00000002:2:A00B00000003:3:"
              "A00B00000004:8:A00B00000005:9:A00B00000006:4:A00B00000007:2.");
    EXPECT_EQ(rig::setting("ac_mac_order0"), "00000:99999:99999:00000:00007:70000:00001:00001:");
    EXPECT_EQ(rig::setting("ac_dev_name0"), "4:a:b.:0::6:Laptop:1:x:3:6:a:1:y:1:z:7: blank .");
    EXPECT_EQ(rig::settingSaves(), 1);
}

TEST_F(AccessControlStore, TheNamesKeyBehindTheLastFullOneIsAlwaysWritten) {
    const auto saveNames = [](int count) {
        fill(count);
        for (int key = 0; key < 10; ++key)
            rig::setSetting("ac_dev_name" + std::to_string(key), "stale");
        rig::setSetting("ac_mac_list3", "stale");
        save_ac_mac_list();
        EXPECT_EQ(rig::setting("ac_mac_list3").size(), count == 128 ? 480u : 0u);
    };
    saveNames(0);
    EXPECT_EQ(rig::setting("ac_dev_name0"), "");
    EXPECT_EQ(rig::setting("ac_dev_name1"), "stale");
    saveNames(14);
    EXPECT_TRUE(rig::setting("ac_dev_name0").ends_with("13:nnnnnnnnnnnnn."));
    EXPECT_EQ(rig::setting("ac_dev_name1"), "");
    EXPECT_EQ(rig::setting("ac_dev_name2"), "stale");
    saveNames(128);
    EXPECT_TRUE(rig::setting("ac_mac_list3").ends_with(":A00B0000007F:3."));
    EXPECT_TRUE(rig::setting("ac_mac_list0").ends_with(":A00B0000001F:3:"));
    EXPECT_EQ(rig::setting("ac_mac_order3").size(), 192u);
}

TEST_F(AccessControlStore, AnUnknownConnectionIsLookedUpAgain) {
    rig::setSetting("ac_mac_list0", "a00b00000001:8:A00B00000002:9:A00B00000003:8:A00B00000004:4.");
    rig::writeFile("/proc/net/attadev", "A0:0B:00:00:00:01 vlan1\nA0:0B:00:00:00:02 eth2\n");
    EXPECT_EQ(load(), "No ACL rule order defined! Init all rules order to 0!");
    const std::array<std::array<int, 2>, 4> expected = {{{0, 1}, {1, 0}, {0, -1}, {-1, -1}}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(ac_mac_list[i].status, expected[i][0]) << i;
        EXPECT_EQ(ac_mac_list[i].connType, expected[i][1]) << i;
    }
}

TEST_F(AccessControlStore, LoadingForgetsWhatWasThereBefore) {
    fill(128);
    save_ac_mac_list();
    load();
    EXPECT_EQ(acl_rule_curr_order, 127);
    for (const char *key : {"ac_mac_list0", "ac_dev_name0", "ac_mac_order0"})
        rig::setSetting(key, "");
    load();
    EXPECT_EQ(acl_rule_curr_order, 0);
    for (const ac_mac_entry &entry : ac_mac_list) {
        EXPECT_EQ(macOf(entry.mac), Mac{});
        EXPECT_EQ(entry.status + entry.connType, -2);
        EXPECT_EQ(entry.order, 0);
        EXPECT_EQ(nameIn(entry.devName), "");
    }
}

TEST_F(AccessControlStore, DamageEndsOnlyWhatItDamages) {
    const std::string four = "A00B00000000:1:A00B00000001:1:A00B00000002:1:A00B00000003:1.";
    struct {
        const char *what;
        std::string entries, names, orders;
        int count, named, ordered;
    } const rows[] = {
        {"nothing", four, "1:a:1:b:1:c:1:d.", "00001:00002:00003:00004:", 4, 4, 4},
        {"a cell without flags", "A00B00000000:1:A00B00000001:", "1:a:1:b:1:c.", "00001:", 1, 2, 1},
        {"an address", "A00B00000000:1:A00Bxx000001:1.", "1:a.", "00001:", 1, 1, 1},
        {"no last separator", four.substr(0, 30), "1:a:1:b:1:c:1:d.", "1    :2    :3    :", 2, 3,
         3},
        {"a length", four, "1:a:x:b:1:c:1:d.", "00001:000x2:00003:00004:", 4, 1, 3},
        {"a negative length", four, "1:a:-1:b:1:c.", "00001:   -1:00003:", 4, 1, 1},
        {"a length beyond the text", four, "1:a:9:b:1:c", "00001:xxxxx:00003:", 4, 2, 1},
        {"a length beyond the field", four, "40:aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa:1:b.",
         "00001:", 4, 2, 1},
        {"a length beyond any", four, "99999999999999999999:b:1:c", "", 4, 1, 0},
        {"a name that is missing", four, "1:a:1:", "00001:", 4, 1, 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        rig::setSetting("ac_mac_list0", row.entries);
        rig::setSetting("ac_dev_name0", row.names);
        rig::setSetting("ac_mac_order0", row.orders);
        load();
        int count = 0, named = 0, ordered = 0;
        for (const ac_mac_entry &entry : ac_mac_list) {
            count += entry.status != -1 ? 1 : 0;
            named += entry.devName[0] != '\0' ? 1 : 0;
            ordered += entry.order != 0 ? 1 : 0;
        }
        EXPECT_EQ(count, row.count);
        EXPECT_EQ(named, row.named);
        EXPECT_EQ(ordered, row.ordered);
    }
}
