#include "sysutil/device_identity.h"

#include "support/fixture.h"

#include <cstring>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char *kTable = "/tmp/devDataStructure";
constexpr const char *kFlashTable = "/tmp/media/nand/device-identification/devDataStructure";

class DeviceIdentity : public rig::Fixture {
  protected:
    ~DeviceIdentity() override { clear(); }
    void clear() {
        removeAllDevIdNodes(&head);
        head = nullptr;
    }
    // The status tells records apart.
    void add(int status, int time = 1) {
        devDataStructure record{};
        record.devConnStat = status;
        record.lastUpdateTime = time;
        EXPECT_EQ(addDevIdNodeToList(&head, record), 0);
    }
    std::vector<int> list() const {
        std::vector<int> result;
        for (const devIdNode *node = head; node != nullptr; node = node->next)
            result.push_back(node->data.devConnStat);
        return result;
    }

    devIdNode *head = nullptr;
    devDataStructure full = [] { // none of its texts has a terminator
        devDataStructure record;
        memset(&record, 'x', sizeof record);
        return record;
    }();
};

TEST_F(DeviceIdentity, TheTableIsReadInOrderAndAPartialRecordIsIgnored) {
    rig::setSetting("dev_id_debug", "1");
    const auto read = [&](int result) {
        return rig::standardOutput([&] { EXPECT_EQ(readDevIdTablefromFile(&head), result); });
    };
    EXPECT_THAT(read(-1), HasSubstr(std::string("]File: ") + kFlashTable + " not found. \n\n"));
    std::string table(784 * 5 / 2, '\0');
    table[704] = 1;
    table[784 + 704] = 2;
    rig::writeFile(kFlashTable, table);
    EXPECT_THAT(read(0), testing::EndsWith(std::string("]FILE: ") + kFlashTable + "\n"));
    EXPECT_THAT(list(), ElementsAre(1, 2));
    rig::writeFile(kTable, std::string(784, '\0'));
    devIdNode *const old = head;
    EXPECT_EQ(dil_readDevIdTable(&head), 0);
    EXPECT_EQ(head, old->next) << "linked in after the node that the head pointed to";
    head = old;
    EXPECT_THAT(list(), ElementsAre(1, 0, 2));
}

TEST_F(DeviceIdentity, TheOneUpdatedLongestAgoIsEvictedAndZeroNeverHoldsTheMinimum) {
    const std::pair<std::vector<int>, std::vector<int>> rows[] = {
        {{5, 3, 7}, {0, 2}}, {{0, 7, 3}, {0, 1}}, {{5, 0, 7}, {0, 1}}, {{4, 5, 0}, {0, 1}},
        {{-1, 2}, {1}},      {{5, 5}, {1}},       {{0}, {}},           {{}, {}}};
    for (const auto &[times, left] : rows) {
        for (int i = 0; const int time : times)
            add(i++, time);
        EXPECT_EQ(removeOldestNodeFromList(&head), 0);
        EXPECT_EQ(list(), left);
        clear();
    }
}

TEST_F(DeviceIdentity, OnlyAListOfExactlyTheCapacityEvictsBetweenDumps) {
    for (int i = 1; i <= 254; ++i)
        add(i, i);
    EXPECT_EQ(list().front(), 2);
    EXPECT_EQ(list().size(), 253u);
    rig::setSetting("dev_id_max_devCount", "1");
    add(255);
    EXPECT_EQ(list().size(), 254u) << "a longer list is not trimmed";
    clear();
    addDevIdNodeToList(&head, full);
    rig::setSetting("dev_id_debug", "1");
    const std::string output = rig::standardOutput([&] { add(1); });
    EXPECT_THAT(list(), ElementsAre(1));
    std::size_t at = 0;
    for (const char *part :
         {"]DevMAX: 1, mac:\n", "]----------before start----------------\n", "devNameByUser: xxxxx",
          "devTypeIndex(usr): 2021161080\n", "]----------before end----------------\n",
          "]xxxxxxxxxxxxxxxxxx 2021161080\n", "]----------after start----------------\n"})
        EXPECT_NE(at = output.find(part, at), std::string::npos) << part;
    EXPECT_THAT(output, testing::Not(HasSubstr(std::string(129, 'x'))));
}

TEST_F(DeviceIdentity, LookUpsMoveTheHeadToTheFirstExactMatch) {
    devIdNode *at = nullptr;
    EXPECT_EQ(searchDevIdNodeByMac(&at, "") + searchDevIdNodeByIPaddr(&at, ""), -2);
    add(1);
    addDevIdNodeToList(&head, full);
    addDevIdNodeToList(&head, full);
    const auto found = [&](auto function, const std::string &text) {
        at = head;
        const int result = function(&at, text.c_str());
        EXPECT_EQ(at, result == 0 ? head->next : head);
        return result == 0;
    };
    rig::setSetting("dev_id_debug", "1");
    EXPECT_THAT(rig::standardOutput([&] { found(searchDevIdNodeByIPaddr, "10.0.0.1"); }),
                testing::EndsWith("]Not find the ipAddr: 10.0.0.1\n"));
    rig::setSetting("dev_id_debug", "");
    EXPECT_TRUE(found(searchDevIdNodeByMac, std::string(18, 'x')));
    EXPECT_TRUE(found(searchDevIdNodeByIPaddr, std::string(16, 'x')));
    for (const int length : {15, 17, 19})
        EXPECT_FALSE(found(searchDevIdNodeByMac, std::string(length, 'x'))) << length;
    EXPECT_FALSE(found(searchDevIdNodeByMac, std::string(18, 'X')));
    EXPECT_FALSE(found(searchDevIdNodeByIPaddr, std::string(15, 'x')));
}

TEST_F(DeviceIdentity, NameAndModelFollowTheirPriorityAndAreCut) {
    const auto best = [&](auto function) {
        char out[64] = "unchanged";
        return std::to_string(function(full, out)) + " " + out;
    };
    for (char *const first : {full.devNameByUser, full.devHostName, full.devDhcpHostName}) {
        *first = 'f';
        EXPECT_EQ(best(getDeviceNameByPriority), "0 f" + std::string(30, 'x'));
        *first = '\0';
    }
    EXPECT_EQ(best(getDeviceNameByPriority), "0 " + std::string(63, 'x'));
    full.devNameByVOSK[0] = '\0';
    EXPECT_EQ(best(getDeviceNameByPriority), "-1 unchanged");
    for (char *const first : {full.devModelByUser, full.devModelByFing}) {
        *first = 'f';
        EXPECT_EQ(best(getDeviceModelByPriority), "0 f" + std::string(30, 'x'));
        *first = '\0';
    }
    EXPECT_EQ(best(getDeviceModelByPriority), "-1 unchanged");
}

} // namespace
