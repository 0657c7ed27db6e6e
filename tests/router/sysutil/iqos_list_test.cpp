#include "device_lists.h"

namespace {

int set(int device, std::size_t length, char letter) {
    iqos_dev_entry record{{}, 5, 1, 6, 7, ""};
    memset(record.devName, letter, length);
    return set_iqos_status(macOf(device), record);
}

} // namespace

class IqosList : public DeviceLists {};

TEST_F(IqosList, AnUpdateADeletionAndASearchReachLessFarThanTheListDoes) {
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(set(i, 31, 'a'), 0);
    EXPECT_EQ(set(64, 1, 'b'), -1);
    EXPECT_EQ(set(1, 32, 'b'), 0);
    EXPECT_EQ(describe(iqos_dev_list[1]), "A00B00000001 1 5 6 7 " + std::string(31, 'b'));
    memset(iqos_dev_list[63].devName, 'c', 32);
    EXPECT_EQ(del_iqos_mac_entry(macOf(3)) + del_iqos_mac_entry(macOf(99)), 0);
    std::string name(33, '#');
    EXPECT_EQ(get_iqos_devname(macOf(4), name.data()), -1);
    EXPECT_EQ(get_iqos_devname(macOf(63), name.data()), 0);
    EXPECT_EQ(name, std::string(28, 'c') + "aaa" + std::string(2, '\0'));
}
