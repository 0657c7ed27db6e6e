#include "sysutil/device_identity.h"

#include "support/faults.h"
#include "support/fixture.h"
#include "support/pattern.h"

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
    EXPECT_EQ(readDevIdTablefromFile(&head), -1);
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
    const rig::Fault noMemory(rig::Call::kAllocate, 1, true);
    EXPECT_EQ(readDevIdTablefromFile(&head) + addDevIdNodeToList(&head, {}), -2);
}

TEST_F(DeviceIdentity, TheOneUpdatedLongestAgoIsEvictedAndZeroNeverHoldsTheMinimum) {
    const std::pair<Times, Times> rows[] = {
        {{5, 3, 7}, {5, 7}}, {{0, 7, 3}, {0, 7}}, {{5, 0, 7}, {5, 0}}, {{-1, 2}, {2}}, {{0}, {}}};
    for (const auto &[times, left] : rows) {
        for (const int time : times)
            add(time);
        removeOldestNodeFromList(&head);
        EXPECT_EQ(list(), left);
        int count = -1;
        EXPECT_EQ(getCurrentDeviceCount(head, &count), 0);
        EXPECT_EQ(removeAllDevIdNodes(&head), left.empty() ? -1 : 0);
        EXPECT_EQ(count, static_cast<int>(left.size()));
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
    EXPECT_EQ(searchDevIdNodeByIPaddr(&head, std::string(16, 'x').c_str()), 0);
    char out[64] = "";
    for (char *const first :
         {full.devNameByUser, full.devHostName, full.devDhcpHostName, full.devNameByVOSK}) {
        *first = 'f';
        EXPECT_EQ(getDeviceNameByPriority(full, out), 0);
        EXPECT_EQ(out, "f" + std::string(first == full.devNameByVOSK ? 62 : 30, 'x'));
        *first = '\0';
    }
    EXPECT_EQ(getDeviceNameByPriority(full, out), -1);
    for (char *const first : {full.devModelByUser, full.devModelByFing}) {
        *first = 'm';
        EXPECT_EQ(getDeviceModelByPriority(full, out), 0);
        EXPECT_EQ(out, "m" + std::string(30, 'x'));
        *first = '\0';
    }
    EXPECT_EQ(getDeviceModelByPriority(full, out), -1);
}

// What the body prints while diagnostics are on, less the numbers of lines.
std::string diagnostics(const std::function<void()> &body) {
    rig::setSetting("dev_id_debug", "1");
    const std::string printed = rig::standardOutput(body);
    rig::setSetting("dev_id_debug", "0");
    EXPECT_EQ(rig::standardOutput(body), "");
    return rig::replaceEach(printed, "\\]\\[[0-9]+\\]", "]");
}

TEST_F(DeviceIdentity, DiagnosticsShowEveryFieldInItsOrder) {
    devIdNode node{};
    memset(&node.data, 'x', sizeof node.data);
    std::string expected;
    for (const int width : {32, 32, 0,   32, 64, 32, 0,  32, 32, 32, 32, 32, 68,
                            32, 32, 128, 32, 18, 16, 18, 0,  0,  32, 0,  32, 0})
        expected += width == 0 ? "2021161080\n" : std::string(width, 'x') + "\n";
    const std::string printed = diagnostics([&] { print_dev_table(&node); });
    EXPECT_EQ(rig::replaceEach(printed, "\\[print_dev_table\\]src.*: "), expected);
}

TEST_F(DeviceIdentity, DiagnosticsTellWhatBecameOfTheList) {
    rig::setSetting("dev_id_max_devCount", "2");
    devDataStructure record{};
    strcpy(record.devModelByUser, "model");
    strcpy(record.devMacAddr, "mac");
    strcpy(record.devHostName, "host");
    const auto run = [&] {
        devIdNode *list = nullptr;
        char out[64];
        EXPECT_EQ(removeAllDevIdNodes(&list) + searchDevIdNodeByMac(&list, "mac"), -2);
        EXPECT_EQ(removeOldestNodeFromList(&list), 0);
        for (record.lastUpdateTime = 1; record.lastUpdateTime < 4; ++record.lastUpdateTime)
            EXPECT_EQ(addDevIdNodeToList(&list, record), 0);
        EXPECT_EQ(searchDevIdNodeByIPaddr(&list, "ip") + searchDevIdNodeByMac(&list, "mac"), -1);
        EXPECT_EQ(getDeviceNameByPriority(record, out) + getDeviceModelByPriority(record, out), 0);
        EXPECT_EQ(getDeviceNameByPriority({}, out) + getDeviceModelByPriority({}, out), -2);
        removeAllDevIdNodes(&list);
    };
    const std::string adds = "[addDevIdNodeToList]DevMAX: 2, mac:mac\n";
    const std::string removal = "[removeOldestNodeFromList]mac ";
    const auto rule = [](const std::string &text) {
        return "[addDevIdNodeToList]----------" + text + "----------------\n";
    };
    EXPECT_EQ(rig::replaceEach(diagnostics(run), "\\[print_dev_table.*\n"),
              "[removeAllDevIdNodes]node not exist.\n[searchDevIdNodeByMac]Empty List.\n"
              "[removeOldestNodeFromList]Cannot remove node from list\n" +
                  adds + adds + adds + rule("before start") + rule("before end") + removal + "1\n" +
                  removal + "2\n" + removal + "1\n" + rule("after start") + rule("after end") +
                  "[searchDevIdNodeByIPaddr]Not find the ipAddr: ip\n"
                  "[searchDevIdNodeByMac]find Node mac: mac\n"
                  "[getDeviceNameByPriority]Device Name: \"host\".\n"
                  "[getDeviceModelByPriority]Device Model: \"model\".\n"
                  "[getDeviceNameByPriority]Device Name not defined.\n"
                  "[getDeviceModelByPriority]Device Model not defined.\n");
}

} // namespace
