#include "device_lists.h"

namespace {

// Devices 0, 1, ... allowed, each with the same order.
void fill(int count, int order) {
    for (int n = 0; n < count; ++n) {
        set_mac_status(macOf(n), 1);
        ac_mac_list[n].order = order;
    }
}

} // namespace

class AccessControlList : public DeviceLists {};

TEST_F(AccessControlList, ASetterWritesItsOwnFieldAndAppendsWhatIsNotListed) {
    EXPECT_EQ(set_mac_status(macOf(1), 0) + set_mac_connType(macOf(1), 1), 0);
    EXPECT_EQ(set_mac_devName(macOf(2), std::string(40, 'n').c_str()), 0);
    EXPECT_EQ(describe(ac_mac_list[1]), "A00B00000002 -1 -1 0 " + std::string(32, 'n'));
    EXPECT_STREQ(get_mac_devName(macOf(2)), "--") << "without a status it is free to readers";
    set_mac_status(macOf(3), 0);
    EXPECT_EQ(ac_mac_list[2].status, 0) << "and taken to writers";
    EXPECT_EQ(get_mac_status(macOf(3)), 1) << "and hides what is behind it";
    set_mac_status(macOf(2), 1);
    EXPECT_EQ(get_mac_status(macOf(3)), 0);
    EXPECT_EQ(set_mac_devName(macOf(2), nullptr), 0); // slot 0, whoever is meant
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000001 0 1 0 --");
    EXPECT_EQ(get_mac_connType(macOf(1)) - get_mac_connType(macOf(9)), 2);
    EXPECT_EQ(check_duplicate_mac(macOf(3)) - check_duplicate_mac(macOf(9)), 1);
}

TEST_F(AccessControlList, TheLastEntryTakesTheDeletedOnesPlace) {
    fill(3, 30);
    EXPECT_EQ(del_ac_mac_entry(macOf(0)) + del_ac_mac_entry(macOf(99)), 0);
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000002 1 -1 30 ");
    EXPECT_EQ(describe(ac_mac_list[2]), "000000000000 -1 -1 30 "); // its order stays
    ac_mac_list[1] = ac_mac_list[0];
    ac_mac_list[1].order = 5;
    del_ac_mac_entry(macOf(2)); // twice listed: the last one goes
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000002 1 -1 30 ");
}

TEST_F(AccessControlList, TouchingGivesTheNextOrderAndAFullListEvictsTheSmallest) {
    fill(2, 65536); // the free slots are no candidates
    EXPECT_EQ(rig::standardOutput([] { del_acl_smallest_order_mac(); }),
              "del_acl_smallest_order_mac:3404 >> remove mac[a0:0b:00:00:00:00] order 65536\n");
    const auto touch = [] { return acl_update_mac_order(macOf(0)); };
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(touch(), -1); }),
              "acl_update_mac_order:3334 >> mac [a0:0b:00:00:00:00] not found!\n");
    EXPECT_EQ(is_acl_list_full(), 0);
    fill(128, 65535);
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(is_acl_list_full(), 1); }),
              "is_acl_list_full:3384 >> mac list full!\n");
    for (const int result : {set_mac_status_2(macOf(128), 1), set_mac_devName(macOf(128), "n"),
                             set_mac_connType(macOf(128), 1), acl_update_mac_order(macOf(128))})
        EXPECT_EQ(result, -1);
    acl_rule_curr_order = 1;
    for (const int device : {5, 6, 127})
        EXPECT_EQ(acl_update_mac_order(macOf(device)), 0);
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(touch(), 0); }),
              "update mac a0:0b:00:00:00:00 order->2\n");
    ac_mac_list[1].order = 9; // where it stands since the eviction
    EXPECT_EQ(del_acl_smallest_order_mac(), 0);
    EXPECT_EQ(describe(ac_mac_list[5]), "A00B0000007F 1 -1 2 ");
}

TEST_F(AccessControlList, TheCounterIsRescaledAtItsLimit) {
    fill(2, 511);
    ac_mac_list[1].order = 70000;
    acl_rule_curr_order = 65534;
    EXPECT_EQ(inc_acl_mac_curr_order(), 0);
    EXPECT_EQ(acl_rule_curr_order, 65535);
    EXPECT_EQ(inc_acl_mac_curr_order(), 0);
    EXPECT_EQ(acl_rule_curr_order, 136);
    EXPECT_EQ(ac_mac_list[0].order, 0);
}
