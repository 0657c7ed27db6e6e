#include "device_lists.h"

class IqosStore : public DeviceLists {};

TEST_F(IqosStore, EachEntryFillsItsCellWhateverItsNumbers) {
    set_iqos_status(macOf(0), {{}, 7, 1, 2, 3, "a:b."});
    set_iqos_status(macOf(1), {{}, 100, 12, -1, 2147483647, ""});
    set_iqos_status(macOf(2), {{}, -5, -2, 9, 0, "Phone"});
    EXPECT_EQ(save_iqos_list(), 0);
    EXPECT_EQ(rig::setting("iqos_mac_list0"),
              "A00B00000000:1:07:2:3:A00B00000001:9:99:0:9:A00B00000002:0:00:9:0.");
    EXPECT_EQ(rig::setting("iqos_dev_name0"), "4:a:b.:0::5:Phone.");
    EXPECT_EQ(rig::settingSaves(), 1);
}

TEST_F(IqosStore, NothingIsSavedOrLoadedPastTheSettings) {
    for (int i = 0; i < 256; ++i) { // more than the settings hold, past the setters
        memcpy(iqos_dev_list[i].mac, macOf(i), 6);
        iqos_dev_list[i].status = 1;
    }
    save_iqos_list();
    EXPECT_TRUE(rig::setting("iqos_mac_list3").ends_with(":A00B0000003F:1:00:0:0."));
    rig::setSetting("iqos_mac_list3", rig::setting("iqos_mac_list3").substr(0, 351) + ":");
    rig::setSetting("iqos_dev_name4", "0::0::0::0::0::0::0::1:n:1:n.");
    load();
    EXPECT_EQ(describe(iqos_dev_list[63]), "A00B0000003F 1 0 0 0 n");
    EXPECT_EQ(describe(iqos_dev_list[64]), "000000000000 -1 0 0 0 ");
}

TEST_F(IqosStore, ACellWithoutAllItsValuesEndsTheList) {
    for (const char *second :
         {"A00B00000001:1:07:2:", "A00B00000001:1:07:2:3", "A00B00000001:1:x7:2:3:", "",
          "A00B000000xx:1:07:2:3:", "1 2 3 4 5 6:9999999999"}) {
        rig::setSetting("iqos_mac_list0", std::string("A00B00000000:1:07:2:3:") + second);
        load();
        EXPECT_EQ(describe(iqos_dev_list[0]), "A00B00000000 1 7 2 3 ");
        EXPECT_EQ(describe(iqos_dev_list[1]), "000000000000 -1 0 0 0 ") << second;
    }
}
