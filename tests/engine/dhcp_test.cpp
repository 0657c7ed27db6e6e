#include "engine/dhcp.h"
#include "engine/dhcp_devices.h"

#include "engine/frames.h"

#include <gtest/gtest.h>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kClient = {2, 0, 0, 0, 0, 0xb};
constexpr std::string_view kApplePhone("\1\x79\3\6\x0f\x77\xfc");
constexpr std::string_view kAppleComputer("\1\x79\3\6\x0f\x77\xfc\x5f\x2c\x2e");

TEST(DhcpTest, ReadsWhatADeviceSaysOfItself) {
    const Bytes padding = {0, 0};
    const auto facts =
        readDhcpRequest(dhcpRequest(kClient, option(12, "my\x01phone") + padding +
                                                 option(55, "\1\3") + option(60, "MSFT 5.0")));
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->client, kClient);
    EXPECT_EQ(facts->hostName, "my_phone");
    EXPECT_EQ(facts->vendorClass, "MSFT 5.0");
    EXPECT_EQ(facts->parameters, (std::vector<std::uint8_t>{1, 3}));
}

TEST(DhcpTest, RefusesWhatIsNoClientsMessageAndEndsWhereItIsCut) {
    const Bytes whole = dhcpRequest(kClient, option(12, "phone") + option(60, "MSFT 5.0"));
    Bytes reply = whole, token = whole, cookie = whole;
    reply[0] = 2;
    token[1] = 6;
    cookie[236] = 0;
    for (const Bytes &message : {reply, token, cookie, Bytes(whole.begin(), whole.begin() + 239)})
        EXPECT_FALSE(readDhcpRequest(message));
    for (std::size_t size = 240; size < whole.size(); size++) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const auto facts = readDhcpRequest(cut);
        ASSERT_TRUE(facts);
        EXPECT_EQ(facts->hostName, size < 250 ? "" : "phone");
        EXPECT_EQ(facts->vendorClass, size < 260 ? "" : "MSFT 5.0");
    }
}

TEST(DhcpTest, TheSurestSignNamesTheKindOfDevice) {
    const struct {
        const char *vendorClass, *hostName;
        std::string_view parameters, type;
        int priority;
    } rows[] = {
        {"MSFT 5.0", "Johns-iPhone", "", "Windows PC", 3},
        {"MSFT 5.0 XBOX", "", "", "Xbox", 3},
        {"android-dhcp-13", "", kApplePhone, "Android phone", 3},
        {"dhcpcd-9.4.1:Linux-6.1", "", "", "Linux computer", 3},
        {"udhcp 1.36.1", "", "", "Embedded device", 3},
        {"unheard of", "iPad-2", kApplePhone, "iPad", 2},
        {"", "DESKTOP-4F7G", "", "Windows PC", 2},
        {"", "phone", kApplePhone, "iPhone", 1},
        {"", "", kAppleComputer, "Mac", 1},
        {"", "phone", kApplePhone.substr(0, 6), "", 0},
    };
    for (const auto &row : rows) {
        const DhcpFacts facts{
            kClient, row.hostName, row.vendorClass, {row.parameters.begin(), row.parameters.end()}};
        const Identification found = identify(facts);
        EXPECT_EQ(found.kind == nullptr ? "" : found.kind->type, row.type) << row.vendorClass;
        EXPECT_EQ(found.priority, row.priority) << row.vendorClass;
    }
}

} // namespace
} // namespace idpfwd
