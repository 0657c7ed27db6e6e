#include "device_lists.h"

#include "support/fixture.h"

class IqosStore : public rig::Fixture {
  protected:
    static void fill(int count) {
        load_iqos_list();
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(set_iqos_status(macOf(i).data(), {{}, i, i % 2, 3, 4, "n"}), 0);
        EXPECT_EQ(save_iqos_list(), 0);
    }
};

TEST_F(IqosStore, EachEntryFillsItsCellWhateverItsNumbers) {
    load_iqos_list();
    set_iqos_status(macOf(0).data(), {{}, 7, 1, 2, 3, "a:b."});
    set_iqos_status(macOf(1).data(), {{}, 100, 12, -1, 2147483647, ""});
    set_iqos_status(macOf(2).data(), {{}, -5, -2, 9, 0, "Phone"});
    save_iqos_list();
    EXPECT_EQ(rig::setting("iqos_mac_list0"),
              "A00B00000000:1:07:2:3:A00B00000001:9:99:0:9:A00B00000002:0:00:9:0.");
    EXPECT_EQ(rig::setting("iqos_dev_name0"), "4:a:b.:0::5:Phone.");
    EXPECT_EQ(rig::settingSaves(), 1);
}

TEST_F(IqosStore, KeysEndWhereTheirCellsDo) {
    rig::setSetting("iqos_mac_list1", "stale");
    fill(16);
    EXPECT_EQ(rig::setting("iqos_mac_list0").size(), 352u);
    EXPECT_EQ(rig::setting("iqos_mac_list1"), "");
    EXPECT_EQ(rig::setting("iqos_dev_name1"), "1:n:1:n.");
    fill(64);
    EXPECT_TRUE(rig::setting("iqos_mac_list3").ends_with(":A00B0000003F:1:63:3:4."));
    for (int i = 64; i < 256; ++i) // a table that was filled past what the settings hold
        iqos_dev_list[i].status = 1;
    save_iqos_list();
    EXPECT_TRUE(rig::setting("iqos_mac_list3").ends_with(":A00B0000003F:1:63:3:4."));
    EXPECT_TRUE(rig::setting("iqos_dev_name4").ends_with(":1:n."));
}

TEST_F(IqosStore, ACellWithoutAllItsValuesEndsTheList) {
    for (const char *second :
         {"A00B00000001:1:07:2:", "A00B00000001:1:x7:2:3:", "A00B00000001:1:007:2",
          "A00B000000xx:1:07:2:3:", "1 2 3 4 5 6:9999999999", ""}) {
        rig::setSetting("iqos_mac_list0", std::string("A00B00000000:1:07:2:3:") + second);
        load_iqos_list();
        EXPECT_NE(get_iqos_status(macOf(0).data()), nullptr);
        EXPECT_EQ(macOf(iqos_dev_list[1].mac), Mac{}) << second;
        EXPECT_EQ(iqos_dev_list[1].status, -1) << second;
    }
}
