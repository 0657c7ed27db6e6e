#include "device_lists.h"

class IqosStore : public DeviceLists {};

TEST_F(IqosStore, EachEntryFillsItsCellWhateverItsNumbers) {
    set_iqos_status(macOf(0), {{}, 7, 1, 2, 3, "a:b."});
    set_iqos_status(macOf(1), {{}, 100, 12, -1, 2147483647, ""});
    set_iqos_status(macOf(2), {{}, -5, -2, 9, 0, "Phone"});
    save_iqos_list();
    EXPECT_EQ(rig::setting("iqos_mac_list0"),
              "A00B00000000:1:07:2:3:A00B00000001:9:99:0:9:A00B00000002:0:00:9:0.");
    EXPECT_EQ(rig::setting("iqos_dev_name0"), "4:a:b.:0::5:Phone.");
    rig::setSetting("iqos_mac_list0", "A00B00000000:1:07:2:3:A00B00000001:1:07:2:3");
    loadLists();
    EXPECT_EQ(get_iqos_status(macOf(1)), nullptr) << "no separator";
}

TEST_F(IqosStore, NothingIsSavedPastTheSettings) {
    for (iqos_dev_entry &entry : iqos_dev_list) // more than the settings hold, past the setters
        entry.status = 1;
    save_iqos_list();
    EXPECT_TRUE(rig::setting("iqos_mac_list3").ends_with(":000000000000:1:00:0:0."));
}
