#include "sysutil/device_identity.h"

#include "support/fixture.h"

#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

using testing::ElementsAre;
using testing::EndsWith;

namespace {

constexpr const char *kTable = "/tmp/devDataStructure";
const std::string kFlashTable = "/tmp/media/nand/device-identification/devDataStructure";

class DeviceIdentity : public rig::Fixture {
  protected:
    DeviceIdentity() { memset(&full, 'x', sizeof full); }
    ~DeviceIdentity() override { removeAllDevIdNodes(&head); }

    // The status tells records apart.
    void add(int status, int time) {
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
    std::string read(int result) {
        return rig::standardOutput([&] { EXPECT_EQ(readDevIdTablefromFile(&head), result); });
    }

    devIdNode *head = nullptr;
    devDataStructure full; // none of its texts has a terminator
};

TEST_F(DeviceIdentity, TheTableIsReadInOrderAndAPartialRecordIsIgnored) {
    std::string table(784 * 5 / 2, '\0');
    table[704] = 1;
    table[784 + 704] = 2;
    rig::writeFile(kFlashTable, table);
    EXPECT_THAT(read(0), EndsWith("]FILE: " + kFlashTable + "\n"));
    devIdNode *const first = head;
    rig::writeFile(kTable, std::string(784, '\0'));
    EXPECT_EQ(dil_readDevIdTable(&head), 0);
    EXPECT_EQ(head, first->next) << "linked in after the node that the head pointed to";
    head = first;
    EXPECT_THAT(list(), ElementsAre(1, 0, 2));
    std::filesystem::remove(kTable);
    mknod(kTable, S_IFSOCK | 0600, 0); // it is there but cannot be opened
    rig::setSetting("dev_id_debug", "1");
    EXPECT_THAT(read(-1), EndsWith("]File: " + kFlashTable + " not found. \n\n"));
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
        removeAllDevIdNodes(&head);
        head = nullptr;
    }
}

TEST_F(DeviceIdentity, OnlyAListOfExactlyTheCapacityEvictsBetweenDumps) {
    addDevIdNodeToList(&head, full);
    rig::setSetting("dev_id_debug", "1");
    rig::setSetting("dev_id_max_devCount", "1");
    EXPECT_THAT(rig::standardOutput([&] { add(1, 1); }),
                testing::ContainsRegex(
                    "]DevMAX: 1, mac:\n.*]-{10}before start-{16}\n.*devNameByUser: x{32}\n(.*\n)*"
                    ".*.usr.: 2021161080\n.*]-{10}before end-{16}\n(.*]x{18} 2021161080\n){2}"
                    ".*]-{10}after start-{16}\n.*]-{10}after end-{16}\n$"));
    EXPECT_THAT(list(), ElementsAre(1));
    rig::setSetting("dev_id_debug", "");
    rig::setSetting("dev_id_max_devCount", "");
    for (int i = 2; i <= 254; ++i)
        add(i, i);
    EXPECT_EQ(list().front(), 2);
    rig::setSetting("dev_id_max_devCount", "1");
    add(255, 1);
    EXPECT_EQ(list().size(), 254u) << "a longer list is not trimmed";
}

TEST_F(DeviceIdentity, LookUpsMoveTheHeadToTheFirstExactMatch) {
    add(1, 1);
    addDevIdNodeToList(&head, full);
    addDevIdNodeToList(&head, full);
    const auto find = [&](auto function, const std::string &text, bool found) {
        devIdNode *at = head;
        EXPECT_EQ(function(&at, text.c_str()), found ? 0 : -1) << text;
        EXPECT_EQ(at, found ? head->next : head) << text;
        at = nullptr;
        EXPECT_EQ(function(&at, text.c_str()), -1);
    };
    for (const std::size_t length : {15, 16, 17, 18, 19}) {
        find(searchDevIdNodeByMac, std::string(length, 'x'), length == 18);
        find(searchDevIdNodeByIPaddr, std::string(length, 'x'), length == 16);
    }
    rig::setSetting("dev_id_debug", "1");
    EXPECT_THAT(rig::standardOutput([&] { find(searchDevIdNodeByMac, "XX", false); }),
                testing::ContainsRegex("]Not find the mac: XX\n.*]Empty List.\n$"));
}

TEST_F(DeviceIdentity, NameAndModelFollowTheirPriorityAndAreCut) {
    const auto expect = [&](auto function, std::initializer_list<char *> fields) {
        char out[64] = "";
        for (char *const first : fields) {
            *first = 'f';
            EXPECT_EQ(function(full, out), 0);
            EXPECT_EQ(out, "f" + std::string(first == full.devNameByVOSK ? 62 : 30, 'x'));
            *first = '\0';
        }
        strcpy(out, "unchanged");
        EXPECT_EQ(function(full, out), -1);
        EXPECT_STREQ(out, "unchanged");
    };
    expect(getDeviceNameByPriority,
           {full.devNameByUser, full.devHostName, full.devDhcpHostName, full.devNameByVOSK});
    expect(getDeviceModelByPriority, {full.devModelByUser, full.devModelByFing});
}

} // namespace
