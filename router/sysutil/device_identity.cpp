#include "sysutil/device_identity.h"

#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/node_list.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <endian.h>
#include <span>
#include <string_view>
#include <unistd.h>

static_assert(sizeof(devDataStructure) == 784);
static_assert(offsetof(devDataStructure, devNameByUser) == 0);
static_assert(offsetof(devDataStructure, devTypeName_usr) == 32);
static_assert(offsetof(devDataStructure, devTypeIndex_usr) == 64);
static_assert(offsetof(devDataStructure, devModelByUser) == 68);
static_assert(offsetof(devDataStructure, devNameByVOSK) == 100);
static_assert(offsetof(devDataStructure, devTypeName_vosk) == 164);
static_assert(offsetof(devDataStructure, devTypeIndex_vosk) == 196);
static_assert(offsetof(devDataStructure, devTypeByFing) == 200);
static_assert(offsetof(devDataStructure, devBrandByFing) == 232);
static_assert(offsetof(devDataStructure, devModelByFing) == 264);
static_assert(offsetof(devDataStructure, devOSByFing) == 296);
static_assert(offsetof(devDataStructure, devOSVerByFing) == 328);
static_assert(offsetof(devDataStructure, devMacVendor) == 360);
static_assert(offsetof(devDataStructure, devDhcpVendor) == 428);
static_assert(offsetof(devDataStructure, devDhcpHostName) == 460);
static_assert(offsetof(devDataStructure, devDhcpOpts) == 492);
static_assert(offsetof(devDataStructure, devHostName) == 620);
static_assert(offsetof(devDataStructure, devMacAddr) == 652);
static_assert(offsetof(devDataStructure, devIpAddr) == 670);
static_assert(offsetof(devDataStructure, devConnInteface) == 686);
static_assert(offsetof(devDataStructure, devConnStat) == 704);
static_assert(offsetof(devDataStructure, lastUpdateTime) == 708);
static_assert(offsetof(devDataStructure, devTypeName_legacyQos) == 712);
static_assert(offsetof(devDataStructure, devTypeIndex_legacyQos) == 744);
static_assert(offsetof(devDataStructure, devTypeName_legacyUsr) == 748);
static_assert(offsetof(devDataStructure, devTypeIndex_legacyUsr) == 780);

namespace {

constexpr const char *kTable = "/tmp/devDataStructure";
constexpr const char *kFlashTable = "/tmp/media/nand/device-identification/devDataStructure";
constexpr int kDefaultCapacity = 253;
constexpr std::size_t kShortName = 32; // of a name or model to show, terminator included
constexpr std::size_t kLongName = 64;

// A field without its padding; it may fill its whole width.
template <std::size_t Width>
std::string_view text_of(const char (&field)[Width]) {
    return {field, strnlen(field, Width)};
}

// The MAC text of a record as the two arguments of "%.*s".
#define MAC_ARGUMENTS(record) static_cast<int>(sizeof((record).devMacAddr)), (record).devMacAddr

std::int32_t update_time(const devIdNode *node) {
    return static_cast<std::int32_t>(
        le32toh(static_cast<std::uint32_t>(node->data.lastUpdateTime)));
}

int capacity() {
    const char *const limit = kelpNvramConfig_get("dev_id_max_devCount");
    return *limit == '\0' ? kDefaultCapacity : decimal_value(limit);
}

// Links the node in after the one that *position points to, and moves *position on to it.
void link_after(devIdNode **position, devIdNode *node) {
    if (*position != nullptr) {
        node->next = (*position)->next;
        (*position)->next = node;
    }
    *position = node;
}

// Moves *head to the first record whose field is exactly the text. The messages tell the public
// function and what it looks for.
template <std::size_t Width>
int look_up(devIdNode **head, char (devDataStructure::*field)[Width], const char *text,
            const char *function, const char *label) {
    if (*head == nullptr) {
        DEBUG_INFO("[%s][%d]Empty List.\n", function, __LINE__);
        return -1;
    }
    devIdNode *node = *head;
    while (node != nullptr && text_of(node->data.*field) != text)
        node = node->next;
    if (node == nullptr) {
        DEBUG_INFO("[%s][%d]Not find the %s: %s\n", function, __LINE__, label, text);
        return -1;
    }
    DEBUG_INFO("[%s][%d]find Node %s: %s\n", function, __LINE__, label, text);
    *head = node;
    return 0;
}

struct Choice {
    std::string_view text;
    std::size_t size; // how much room of the output it may take, terminator included
};

bool copy_first(std::span<const Choice> choices, char *out) {
    for (const Choice &choice : choices) {
        if (choice.text.empty())
            continue;
        const std::size_t length = std::min(choice.text.size(), choice.size - 1);
        memcpy(out, choice.text.data(), length);
        out[length] = '\0';
        return true;
    }
    return false;
}

} // namespace

int readDevIdTablefromFile(devIdNode **head) {
    const char *const path = access(kTable, F_OK) == 0 ? kTable : kFlashTable;
    printf("[%s][%d]FILE: %s\n", __func__, __LINE__, path);
    const File file(fopen(path, "rb"));
    if (!file) {
        // Names the copy in flash whichever was tried: deliberate.
        DEBUG_INFO("[%s][%d]File: %s not found. \n\n", __func__, __LINE__, kFlashTable);
        return -1;
    }
    devIdNode *first = nullptr;
    devDataStructure record;
    while (fread(&record, sizeof record, 1, file.get()) == 1) {
        devIdNode *node = nullptr;
        if (createDevIdNode(&node) != 0)
            return -1; // *head stays at the last node: deliberate
        node->data = record;
        link_after(head, node);
        if (first == nullptr)
            first = node;
    }
    if (first != nullptr)
        *head = first;
    return 0;
}

int dil_readDevIdTable(devIdNode **head) {
    readDevIdTablefromFile(head);
    return 0;
}

int createDevIdNode(devIdNode **node) {
    *node = create_node<devIdNode>();
    return *node != nullptr ? 0 : -1;
}

int addDevIdNodeToList(devIdNode **head, devDataStructure record) {
    const int limit = capacity();
    DEBUG_INFO("[%s][%d]DevMAX: %d, mac:%.*s\n", __func__, __LINE__, limit, MAC_ARGUMENTS(record));
    devIdNode *node = nullptr;
    if (createDevIdNode(&node) != 0)
        return -1;
    node->data = record;
    int count = 0;
    getCurrentDeviceCount(*head, &count);
    // Equality alone: a list that is already longer is not trimmed, deliberately.
    if (*head != nullptr && count == limit) {
        DEBUG_INFO("[%s][%d]----------before start----------------\n", __func__, __LINE__);
        print_dev_table(*head);
        DEBUG_INFO("[%s][%d]----------before end----------------\n", __func__, __LINE__);
        removeOldestNodeFromList(head);
        DEBUG_INFO("[%s][%d]----------after start----------------\n", __func__, __LINE__);
        print_dev_table(*head);
        DEBUG_INFO("[%s][%d]----------after end----------------\n", __func__, __LINE__);
    }
    append_node(head, node);
    return 0;
}

int removeOldestNodeFromList(devIdNode **head) {
    if (*head == nullptr) {
        DEBUG_INFO("[%s][%d]Cannot remove node from list\n", __func__, __LINE__);
        return 0;
    }
    devIdNode **oldest = head;
    std::int32_t smallest = update_time(*head);
    for (devIdNode **link = head; *link != nullptr; link = &(*link)->next) {
        const std::int32_t time = update_time(*link);
        DEBUG_INFO("[%s][%d]%.*s %d\n", __func__, __LINE__, MAC_ARGUMENTS((*link)->data), time);
        // A time of 0 never holds the minimum, so 5, 0, 7 loses the 7: deliberate.
        if (smallest == 0 || time < smallest) {
            oldest = link;
            smallest = time;
        }
    }
    devIdNode *const node = *oldest;
    DEBUG_INFO("[%s][%d]%.*s %d\n", __func__, __LINE__, MAC_ARGUMENTS(node->data), smallest);
    *oldest = node->next;
    free(node);
    return 0;
}

int getCurrentDeviceCount(devIdNode *head, int *count) {
    *count = 0;
    for (const devIdNode *node = head; node != nullptr; node = node->next)
        ++*count;
    return 0;
}

int removeAllDevIdNodes(devIdNode **head) {
    if (*head == nullptr) {
        DEBUG_INFO("[%s][%d]node not exist.\n", __func__, __LINE__);
        return -1;
    }
    free_nodes(*head); // the caller's head is left as it was: deliberate
    return 0;
}

int searchDevIdNodeByMac(devIdNode **head, const char *mac_text) {
    return look_up(head, &devDataStructure::devMacAddr, mac_text, __func__, "mac");
}

int searchDevIdNodeByIPaddr(devIdNode **head, const char *ip_text) {
    return look_up(head, &devDataStructure::devIpAddr, ip_text, __func__, "ipAddr");
}

int getDeviceNameByPriority(devDataStructure record, char *out) {
    const std::array<Choice, 4> choices = {{{text_of(record.devNameByUser), kShortName},
                                            {text_of(record.devHostName), kShortName},
                                            {text_of(record.devDhcpHostName), kShortName},
                                            {text_of(record.devNameByVOSK), kLongName}}};
    if (!copy_first(choices, out)) {
        DEBUG_INFO("[%s][%d]Device Name not defined.\n", __func__, __LINE__);
        return -1;
    }
    DEBUG_INFO("[%s][%d]Device Name: \"%s\".\n", __func__, __LINE__, out);
    return 0;
}

int getDeviceModelByPriority(devDataStructure record, char *out) {
    const std::array<Choice, 2> choices = {{{text_of(record.devModelByUser), kShortName},
                                            {text_of(record.devModelByFing), kShortName}}};
    if (!copy_first(choices, out)) {
        DEBUG_INFO("[%s][%d]Device Model not defined.\n", __func__, __LINE__);
        return -1;
    }
    DEBUG_INFO("[%s][%d]Device Model: \"%s\".\n", __func__, __LINE__, out);
    return 0;
}
