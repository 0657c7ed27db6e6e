#include "sysutil/device_identity.h"

#include "support/faults.h"
#include "support/fixture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <ranges>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using DeviceIdentityService = rig::Fixture;

TEST_F(DeviceIdentityService, FactsAreTakenByTheirKeyAndStayInTheirFields) {
    const auto facts = [](const std::string &content) {
        rig::writeFile("/tmp/dhcp_info_for_fing/AA", content);
        dhcpInfo out{};
        EXPECT_EQ(getDhcpInfoByMac("AA", &out), 0);
        return out;
    };
    dhcpInfo out = facts("vendor head\nhostname old\n hostname  two words \nother x\n"
                         "Vendor no\nvendor\nvendor \nparams\t1,3");
    EXPECT_STREQ(out.vendor, "") << "the first line is a head";
    EXPECT_STREQ(out.hostName, " two words ");
    EXPECT_STREQ(out.options, "1,") << "the last character is taken for a line end";
    out = facts(std::string(250, 'h') + "\nvendor " + std::string(90, 'v') + "\nparams " +
                std::string(300, 'p') + "\n");
    EXPECT_EQ(out.vendor, std::string(30, 'v'));
    EXPECT_EQ(out.options, std::string(91, 'p')) << "of the line's first piece";
}

TEST_F(DeviceIdentityService, ATextThatNamesNoFactsFileOpensNothing) {
    rig::writeFile("/tmp/facts", "head\nvendor v\n");
    std::filesystem::create_directories("/tmp/dhcp_info_for_fing/");
    for (const char *text : {"", ".", "..", "../facts", "/facts"}) {
        dhcpInfo out{};
        EXPECT_EQ(getDhcpInfoByMac(text, &out), -1) << text;
        EXPECT_STREQ(out.vendor, "");
    }
    EXPECT_EQ(getDhcpInfoByMac(nullptr, nullptr), -1);
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    getMacByString("02:00:00:00:00", mac);
    EXPECT_THAT(mac, testing::Each(0));
}

TEST_F(DeviceIdentityService, OneMessageIsOneDatagramToTheDaemon) {
    devIdMessage message{{1, 2, 3}};
    message.bytes[459] = 4;
    const auto send = [&] { sendDataToDevIdApi(message); };
    const int daemon = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{AF_UNIX, "/tmp/dev_detect.sock"};
    ASSERT_EQ(bind(daemon, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_THAT(rig::standardOutput(send), testing::MatchesRegex(".sendDataToDevIdApi..[0-9]+.\n"));
    unsigned char received[1000];
    EXPECT_EQ(recv(daemon, received, sizeof received, MSG_DONTWAIT), 460);
    EXPECT_EQ(memcmp(received, message.bytes, sizeof message.bytes), 0);
    alarm(20); // a daemon that hangs lets its queue fill up, and nobody waits for it
    rig::standardOutput(
        [&] { std::ranges::for_each(std::views::iota(0, 2000), [&](int) { send(); }); });
    alarm(0);
    close(daemon);
    const rig::Fault noSocket(rig::Call::kOpen, 1);
    EXPECT_EXIT(sendDataToDevIdApi(message), testing::ExitedWithCode(1), "");
}

} // namespace
