#include "device_lists.h"

#include "support/fixture.h"

class AccessControlList : public rig::Fixture {
  protected:
    void SetUp() override {
        rig::Fixture::SetUp();
        if (!IsSkipped())
            load();
    }
    static void load() {
        rig::standardOutput([] { load_ac_mac_list(); });
    }
    // Devices 0, 1, ... allowed, each with its order.
    static void fill(const std::vector<int> &orders) {
        load();
        for (int i = 0; i < static_cast<int>(orders.size()); ++i) {
            set_mac_status(macOf(i).data(), 1);
            ac_mac_list[i].order = orders[static_cast<std::size_t>(i)];
        }
    }
};

TEST_F(AccessControlList, ASetterChangesItsOwnFieldAndAppendsWhatIsNotListed) {
    const Mac first = macOf(1), second = macOf(2);
    EXPECT_EQ(set_mac_status(first.data(), 0), 0);
    EXPECT_EQ(set_mac_status_2(second.data(), 1), 0);
    EXPECT_EQ(set_mac_devName(second.data(), "Laptop"), 0);
    EXPECT_EQ(set_mac_connType(first.data(), 1), 0);
    EXPECT_EQ(get_mac_status(first.data()), 0);
    EXPECT_EQ(get_mac_status(second.data()), 1);
    EXPECT_EQ(get_mac_connType(first.data()), 1);
    EXPECT_EQ(get_mac_connType(second.data()), -1);
    EXPECT_STREQ(get_mac_devName(first.data()), "");
    EXPECT_STREQ(get_mac_devName(second.data()), "Laptop");
    EXPECT_STREQ(get_mac_devName(macOf(3).data()), "--");
    EXPECT_EQ(get_mac_connType(macOf(3).data()), -1);
    EXPECT_EQ(ac_mac_list[2].status, -1);
}

TEST_F(AccessControlList, ADeviceWithoutStatusIsFreeToReadersAndTakenToWriters) {
    const Mac named = macOf(1), behind = macOf(2);
    set_mac_devName(named.data(), "Phone");
    set_mac_status(behind.data(), 0);
    EXPECT_EQ(macOf(ac_mac_list[1].mac), behind);
    EXPECT_STREQ(get_mac_devName(named.data()), "--");
    EXPECT_EQ(get_mac_status(behind.data()), 1); // the default decision
    del_ac_mac_entry(behind.data());
    EXPECT_EQ(check_duplicate_mac(behind.data()), 1);
    EXPECT_EQ(check_duplicate_mac(macOf(3).data()), 0);
    EXPECT_EQ(set_mac_status(named.data(), 0), 0);
    EXPECT_EQ(get_mac_status(behind.data()), 0);
}

TEST_F(AccessControlList, AFullListRefusesNewDevicesOnly) {
    fill(std::vector<int>(127, 1));
    EXPECT_EQ(is_acl_list_full(), 0);
    set_mac_devName(macOf(127).data(), "last");
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(is_acl_list_full(), 1); }),
              "is_acl_list_full:3384 >> mac list full!\n");
    const auto before = std::to_array(ac_mac_list);
    const Mac more = macOf(128);
    EXPECT_EQ(set_mac_status(more.data(), 1), -1);
    EXPECT_EQ(set_mac_devName(more.data(), "x"), -1);
    EXPECT_EQ(set_mac_connType(more.data(), 1), -1);
    EXPECT_EQ(memcmp(before.data(), ac_mac_list, sizeof ac_mac_list), 0);
    EXPECT_EQ(set_mac_status(macOf(127).data(), 0), 0);
}

TEST_F(AccessControlList, ANameOf32CharactersFillsItsFieldAndNoMore) {
    const std::string longName(40, 'n');
    set_mac_status(macOf(1).data(), 1);
    set_mac_devName(macOf(1).data(), longName.c_str());
    EXPECT_EQ(nameIn(ac_mac_list[0].devName), longName.substr(0, 32));
    EXPECT_EQ(ac_mac_list[0].connType, -1);
    EXPECT_EQ(set_mac_devName(macOf(9).data(), nullptr), 0); // slot 0, whoever is meant
    EXPECT_EQ(nameIn(ac_mac_list[0].devName), "--");
    EXPECT_EQ(ac_mac_list[0].devName[31], '\0');
}

TEST_F(AccessControlList, TheLastEntryTakesTheDeletedOnesPlace) {
    fill({10, 20, 30});
    set_mac_devName(macOf(2).data(), "third");
    del_ac_mac_entry(macOf(7).data());
    EXPECT_EQ(ac_mac_list[2].status, 1);
    del_ac_mac_entry(macOf(0).data());
    EXPECT_EQ(macOf(ac_mac_list[0].mac), macOf(2));
    EXPECT_EQ(nameIn(ac_mac_list[0].devName), "third");
    EXPECT_EQ(ac_mac_list[0].order, 30);
    EXPECT_EQ(macOf(ac_mac_list[2].mac), Mac{});
    EXPECT_EQ(ac_mac_list[2].status, -1);
    EXPECT_EQ(ac_mac_list[2].connType, -1);
    EXPECT_EQ(nameIn(ac_mac_list[2].devName), "");
    EXPECT_EQ(ac_mac_list[2].order, 30);            // left as it was
    memcpy(ac_mac_list[0].mac, macOf(1).data(), 6); // twice listed: the last one goes
    ac_mac_list[0].order = 5;
    del_ac_mac_entry(macOf(1).data());
    EXPECT_EQ(ac_mac_list[0].order, 5);
    EXPECT_EQ(ac_mac_list[1].status, -1);
}

TEST_F(AccessControlList, TheLeastRecentlyTouchedDeviceIsEvicted) {
    struct {
        std::vector<int> orders;
        int evicted;
    } const rows[] = {
        {{5, 2, 2}, 1},      {{3, 2, 1}, 2}, {{65536, 70000}, 0}, {{65536, 65535, 90000}, 1},
        {{7, -3, 0, -3}, 1},
    };
    for (const auto &row : rows) {
        fill(row.orders);
        const Mac mac = macOf(row.evicted);
        const auto order = std::to_string(row.orders[static_cast<std::size_t>(row.evicted)]);
        EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(del_acl_smallest_order_mac(), 0); }),
                  "del_acl_smallest_order_mac:3404 >> remove mac[a0:0b:00:00:00:0" +
                      std::to_string(row.evicted) + "] order " + order + "\n");
        EXPECT_EQ(check_duplicate_mac(mac.data()), 0);
        EXPECT_EQ(ac_mac_list[row.orders.size() - 1].status, -1);
    }
}

TEST_F(AccessControlList, TouchingGivesTheNextOrderAndTheCounterIsRescaledAtItsLimit) {
    fill({5, 70000, 511});
    acl_rule_curr_order = 65533;
    EXPECT_EQ(inc_acl_mac_curr_order(), 0);
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(acl_update_mac_order(macOf(0).data()), 0); }),
              "update mac a0:0b:00:00:00:00 order->65535\n");
    EXPECT_EQ(acl_rule_curr_order, 65534);
    inc_acl_mac_curr_order();
    EXPECT_EQ(ac_mac_list[0].order, 65535);
    inc_acl_mac_curr_order();
    EXPECT_EQ(ac_mac_list[0].order, 127);
    EXPECT_EQ(ac_mac_list[1].order, 136);
    EXPECT_EQ(ac_mac_list[2].order, 0);
    EXPECT_EQ(acl_rule_curr_order, 136);
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(acl_update_mac_order(macOf(3).data()), -1); }),
              "acl_update_mac_order:3334 >> mac [a0:0b:00:00:00:03] not found!\n");
}

TEST_F(AccessControlList, ANameIsFoundByTheExactTextOfItsAddress) {
    rig::setSetting("ac_mac_list0", "A00B00000001:1:A00B00000002:1:A00B00000001:1:A00B00000001:1.");
    rig::setSetting("ac_dev_name0", "5:first:5:other:32:" + std::string(32, 'x') + ":0:.");
    char name[33];
    memset(name, '#', sizeof name);
    const auto lookUp = [&](const char *text) {
        rig::standardOutput([&] { EXPECT_EQ(cgi_getDevNameFromACL(name, text), 0); });
    };
    lookUp("a0:0b:00:00:00:01");
    lookUp("A0:0B:00:00:00:03");
    EXPECT_EQ(std::string(name, 33), std::string(33, '#'));
    lookUp("A0:0B:00:00:00:01");
    EXPECT_EQ(std::string(name), std::string(32, 'x'));
}
