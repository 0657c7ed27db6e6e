#include "engine/packets/dhcp.h"
#include "engine/packets/dhcp_devices.h"

#include "gateway/engine/frames.h"

#include <gtest/gtest.h>

#include <map>

namespace idpfwd {
namespace {

using namespace frames;

constexpr Mac kClient = {2, 0, 0, 0, 0, 0xb};
constexpr std::string_view kApplePhone("\1\x79\3\6\x0f\x77\xfc");

TEST(DhcpTest, ReadsWhatADeviceSaysOfItselfUpToWhereItIsCut) {
    const Bytes whole = dhcpRequest(kClient, option(12, "my\x01phone") + Bytes{0} +
                                                 option(55, "\1\3") + option(60, "MSFT 5.0"));
    for (std::size_t size = 240; size <= whole.size(); size++) {
        SCOPED_TRACE(size);
        const auto facts =
            readDhcpRequest(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
        ASSERT_TRUE(facts);
        EXPECT_EQ(facts->client, kClient);
        EXPECT_EQ(facts->hostName, size < 253 ? "" : "my_phone");
        EXPECT_EQ(facts->parameters.size(), size < 258 ? 0u : 2u);
        EXPECT_EQ(facts->vendorClass, size < 268 ? "" : "MSFT 5.0");
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
        {"unheard of", "iPad-2", kApplePhone, "iPad", 2},
        {"", "phone", kApplePhone, "iPhone", 1},
        {"", "", "\1\x79\3\6\x0f\x77\xfc\x5f\x2c\x2e", "Mac", 1},
        {"", "phone", kApplePhone.substr(0, 6), "", 0},
    };
    for (const auto &row : rows) {
        const DhcpFacts facts{
            kClient, row.hostName, row.vendorClass, {row.parameters.begin(), row.parameters.end()}};
        const Identification found = identify(facts);
        EXPECT_EQ(found.kind == nullptr ? "" : found.kind->type, row.type);
        EXPECT_EQ(found.priority, row.priority) << row.type;
    }
}

TEST(DhcpTest, AnIdentifierHasTheSameNameInEveryKindOfDevice) {
    std::map<std::pair<int, int>, std::string_view> names; // by column and identifier
    for (const auto &[ids, vendor, os, deviceClass, type, device, family] : deviceKinds()) {
        const std::pair<int, std::string_view> columns[] = {
            {ids.vendor_id, vendor}, {ids.os_id, os},      {ids.class_id, deviceClass},
            {ids.type_id, type},     {ids.dev_id, device}, {ids.family_id, family}};
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(names.try_emplace({i, columns[i].first}, columns[i].second).first->second,
                      columns[i].second);
    }
}

} // namespace
} // namespace idpfwd
