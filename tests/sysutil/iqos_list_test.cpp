#include "device_lists.h"

#include "support/fixture.h"

class IqosList : public rig::Fixture {
  protected:
    void SetUp() override {
        rig::Fixture::SetUp();
        if (!IsSkipped())
            load_iqos_list();
    }
    static iqos_dev_entry record(int number, const std::string &name) {
        iqos_dev_entry result{{}, number, 1, number + 1, number + 2, ""};
        std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 32), result.devName);
        return result;
    }
    static void fill(int count) {
        load_iqos_list();
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(set_iqos_status(macOf(i).data(), record(i % 7, std::to_string(i))), 0);
    }
};

TEST_F(IqosList, ADeviceIsAppendedOnceAndUpdatedAfterwards) {
    const std::string name(32, 'a');
    EXPECT_EQ(get_iqos_status(macOf(1).data()), nullptr);
    EXPECT_EQ(set_iqos_status(macOf(1).data(), record(5, name)), 0);
    const iqos_dev_entry *entry = get_iqos_status(macOf(1).data());
    ASSERT_EQ(entry, &iqos_dev_list[0]);
    EXPECT_EQ(macOf(entry->mac), macOf(1)); // the record's own address does not count
    EXPECT_EQ(nameIn(entry->devName), name);
    EXPECT_EQ(set_iqos_status(macOf(1).data(), record(8, std::string(32, 'b'))), 0);
    EXPECT_EQ(nameIn(entry->devName), std::string(31, 'b'));
    EXPECT_EQ(entry->attr1, 8);
    EXPECT_EQ(entry->attr2, 9);
    EXPECT_EQ(entry->attr3, 10);
    EXPECT_EQ(iqos_dev_list[1].status, -1);
}

TEST_F(IqosList, The65thDeviceIsRefused) {
    fill(64);
    EXPECT_EQ(set_iqos_status(macOf(64).data(), record(1, "more")), -1);
    EXPECT_EQ(macOf(iqos_dev_list[64].mac), Mac{});
    EXPECT_EQ(set_iqos_status(macOf(63).data(), record(1, "listed")), 0);
    del_iqos_mac_entry(macOf(5).data());
    EXPECT_EQ(set_iqos_status(macOf(64).data(), record(1, "more")), 0);
}

TEST_F(IqosList, DeletingMovesTheLastEntryButForTheEndOfItsName) {
    fill(2);
    set_iqos_status(macOf(2).data(), record(4, std::string(32, 'm')));
    set_iqos_status(macOf(0).data(), record(4, std::string(31, 'o')));
    EXPECT_EQ(del_iqos_mac_entry(macOf(9).data()), 0);
    EXPECT_EQ(del_iqos_mac_entry(macOf(0).data()), 0);
    EXPECT_EQ(macOf(iqos_dev_list[0].mac), macOf(2));
    EXPECT_EQ(iqos_dev_list[0].attr3, 6);
    EXPECT_EQ(nameIn(iqos_dev_list[0].devName), std::string(28, 'm') + "ooo");
    EXPECT_EQ(macOf(iqos_dev_list[2].mac), Mac{});
    EXPECT_EQ(iqos_dev_list[2].status, -1);
    EXPECT_EQ(iqos_dev_list[2].attr1 + iqos_dev_list[2].attr2 + iqos_dev_list[2].attr3, 0);
    EXPECT_EQ(nameIn(iqos_dev_list[2].devName), "");
}

TEST_F(IqosList, ANameIsLookedForInTheFirstFourSlotsOnly) {
    fill(5);
    set_iqos_status(macOf(3).data(), record(1, std::string(31, 'n')));
    char name[33];
    memset(name, '#', sizeof name);
    EXPECT_EQ(get_iqos_devname(macOf(4).data(), name), -1);
    EXPECT_EQ(name[0], '#');
    EXPECT_EQ(get_iqos_devname(macOf(3).data(), name), 0);
    EXPECT_EQ(std::string(name), std::string(31, 'n'));
    EXPECT_EQ(name[32], '\0');
}
