#include "device_lists.h"

namespace {

int set(int device, int number, const std::string &name) {
    iqos_dev_entry record{{}, number, 1, number + 1, number + 2, ""};
    std::copy(name.begin(), name.end(), record.devName);
    return set_iqos_status(macOf(device), record);
}

} // namespace

class IqosList : public DeviceLists {};

TEST_F(IqosList, ADeviceIsAppendedOnceAndUpdatedAfterwards) {
    EXPECT_EQ(get_iqos_status(macOf(1)), nullptr);
    EXPECT_EQ(set(1, 5, std::string(32, 'a')), 0);
    ASSERT_EQ(get_iqos_status(macOf(1)), &iqos_dev_list[0]);
    EXPECT_EQ(describe(iqos_dev_list[0]), "A00B00000001 1 5 6 7 " + std::string(32, 'a'));
    EXPECT_EQ(set(1, 8, std::string(32, 'b')), 0);
    EXPECT_EQ(describe(iqos_dev_list[0]), "A00B00000001 1 8 9 10 " + std::string(31, 'b'));
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(set(i, 1, ""), 0);
    EXPECT_EQ(set(64, 1, "more"), -1);
    EXPECT_EQ(describe(iqos_dev_list[64]), "000000000000 -1 0 0 0 ");
    EXPECT_EQ(set(63, 1, "listed"), 0);
    std::string name(33, '#');
    EXPECT_EQ(get_iqos_devname(iqos_dev_list[4].mac, name.data()), -1);
    EXPECT_EQ(name, std::string(33, '#'));
    memset(iqos_dev_list[3].devName, 'n', 32);
    EXPECT_EQ(get_iqos_devname(iqos_dev_list[3].mac, name.data()), 0);
    EXPECT_EQ(name, std::string(32, 'n') + '\0');
}

TEST_F(IqosList, DeletingMovesTheLastEntryButForTheEndOfItsName) {
    set(0, 4, std::string(31, 'o'));
    set(1, 4, std::string(32, 'm'));
    EXPECT_EQ(del_iqos_mac_entry(macOf(9)), 0);
    EXPECT_EQ(del_iqos_mac_entry(macOf(0)), 0);
    EXPECT_EQ(describe(iqos_dev_list[0]), "A00B00000001 1 4 5 6 " + std::string(28, 'm') + "ooo");
    EXPECT_EQ(describe(iqos_dev_list[1]), "000000000000 -1 0 0 0 ");
}
