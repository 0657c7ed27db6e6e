#include "sysutil/device_identity.h"

#include "support/fixture.h"

#include <cstring>
#include <vector>

namespace {

using Times = std::vector<int>;

class DeviceIdentity : public rig::Fixture {
  protected:
    ~DeviceIdentity() override { removeAllDevIdNodes(&head); }

    void add(int time) {
        devDataStructure record{};
        record.lastUpdateTime = time;
        EXPECT_EQ(addDevIdNodeToList(&head, record), 0);
    }
    Times list() const {
        Times result;
        for (const devIdNode *node = head; node != nullptr; node = node->next)
            result.push_back(node->data.lastUpdateTime);
        return result;
    }

    devIdNode *head = nullptr;
};

TEST_F(DeviceIdentity, TheTableIsReadInOrderAndAPartialRecordIsIgnored) {
    std::string table(784 * 5 / 2, '\0');
    table[708] = 1;
    table[784 + 708] = 2;
    rig::writeFile("/tmp/media/nand/device-identification/devDataStructure", table);
    EXPECT_EQ(readDevIdTablefromFile(&head), 0);
    devIdNode *const first = head;
    rig::writeFile("/tmp/devDataStructure", std::string(784, '\0'));
    EXPECT_EQ(dil_readDevIdTable(&head), 0);
    EXPECT_EQ(head, first->next) << "linked in after the node that the head pointed to";
    head = first;
    EXPECT_EQ(list(), Times({1, 0, 2}));
}

TEST_F(DeviceIdentity, TheOneUpdatedLongestAgoIsEvictedAndZeroNeverHoldsTheMinimum) {
    const std::pair<Times, Times> rows[] = {
        {{5, 3, 7}, {5, 7}}, {{0, 7, 3}, {0, 7}}, {{5, 0, 7}, {5, 0}}, {{-1, 2}, {2}}, {{0}, {}}};
    for (const auto &[times, left] : rows) {
        for (const int time : times)
            add(time);
        removeOldestNodeFromList(&head);
        EXPECT_EQ(list(), left);
        removeAllDevIdNodes(&head);
        head = nullptr;
    }
}

TEST_F(DeviceIdentity, OnlyAListOfExactlyTheCapacityEvicts) {
    for (int time = 1; time <= 254; ++time)
        add(time);
    EXPECT_EQ(list().front(), 2);
    rig::setSetting("dev_id_max_devCount", "1");
    add(1);
    EXPECT_EQ(list().size(), 254u) << "a longer list is not trimmed";
}

TEST_F(DeviceIdentity, TextsMayFillTheirFieldsAndANameFollowsItsPriority) {
    devDataStructure full; // none of its texts has a terminator
    memset(&full, 'x', sizeof full);
    addDevIdNodeToList(&head, full);
    EXPECT_EQ(searchDevIdNodeByMac(&head, std::string(18, 'x').c_str()), 0);
    EXPECT_EQ(searchDevIdNodeByMac(&head, std::string(19, 'x').c_str()), -1);
    char out[64] = "";
    for (char *const first :
         {full.devNameByUser, full.devHostName, full.devDhcpHostName, full.devNameByVOSK}) {
        *first = 'f';
        EXPECT_EQ(getDeviceNameByPriority(full, out), 0);
        EXPECT_EQ(out, "f" + std::string(first == full.devNameByVOSK ? 62 : 30, 'x'));
        *first = '\0';
    }
    EXPECT_EQ(getDeviceNameByPriority(full, out), -1);
}

} // namespace
