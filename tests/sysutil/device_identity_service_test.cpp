#include "sysutil/device_identity.h"

#include "support/fixture.h"

#include <cstring>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class DeviceIdentityService : public rig::Fixture {
  protected:
    static dhcpInfo facts(const std::string &content) {
        rig::writeFile("/tmp/dhcp_info_for_fing/AA", content);
        dhcpInfo out;
        memset(&out, '#', sizeof out);
        EXPECT_EQ(getDhcpInfoByMac("AA", &out), 0);
        return out;
    }
};

TEST_F(DeviceIdentityService, FactsAreTakenByTheirKeyAndStayInTheirFields) {
    const dhcpInfo all = facts("vendor head\nvendor old\n hostname  two words \nother x\n"
                               "vendor new\nVendor no\nvendor\nvendor \nparams\t1,3");
    EXPECT_STREQ(all.vendor, "new");
    EXPECT_STREQ(all.hostName, " two words ");
    EXPECT_STREQ(all.options, "1,") << "the last character is taken for a line end";
    const std::string value(90, 'v');
    const dhcpInfo cut = facts(std::string(250, 'h') + "\nvendor " + value + "\nhostname " + value +
                               "\nparams " + std::string(300, 'p') + "\n");
    EXPECT_EQ(cut.vendor, std::string(30, 'v'));
    EXPECT_EQ(cut.hostName, std::string(30, 'v'));
    EXPECT_EQ(cut.options, std::string(91, 'p')) << "of the line's first piece";
    EXPECT_EQ(facts("vendor header\n").vendor[0], '#');
    EXPECT_EQ(facts(std::string("h\n\0\n\n \n\xff\xfe\nvendor\0x\n", 19)).vendor[0], '#');
    dhcpInfo out{};
    EXPECT_EQ(rig::standardOutput([&] { EXPECT_EQ(getDhcpInfoByMac("none", &out), -1); }),
              "File open fail!");
}

TEST_F(DeviceIdentityService, OneMessageIsOneDatagramToTheDaemon) {
    devIdMessage message{{1, 2, 3}};
    message.bytes[459] = 4;
    const auto send = [&] { sendDataToDevIdApi(message); };
    EXPECT_THAT(rig::standardOutput(send), testing::MatchesRegex(".sendDataToDevIdApi..[0-9]+.\n"))
        << "nobody listens: no more than the usual line";
    const int daemon = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{AF_UNIX, "/tmp/dev_detect.sock"};
    ASSERT_EQ(bind(daemon, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    rig::standardOutput(send);
    unsigned char received[1000];
    EXPECT_EQ(recv(daemon, received, sizeof received, MSG_DONTWAIT), 460);
    EXPECT_EQ(memcmp(received, message.bytes, sizeof message.bytes), 0);
    close(daemon);
}

TEST_F(DeviceIdentityService, WithoutASocketTheProcessEnds) {
    const auto sendWithoutDescriptors = [] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        sendDataToDevIdApi({});
    };
    EXPECT_EXIT(sendWithoutDescriptors(), testing::ExitedWithCode(1), "");
}

TEST_F(DeviceIdentityService, AMacTextWithoutSixGroupsIsAllZero) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    getMacByString("0A:b1:C2:dd:EE", mac);
    EXPECT_THAT(mac, testing::Each(0));
}

} // namespace
