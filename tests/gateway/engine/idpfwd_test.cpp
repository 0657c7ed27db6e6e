// The program as it ships.
#include "device_rig.h"
#include "engine/device/wire.h"
#include "engine/engine_state.h"
#include "scratch.h"

#include <csignal>
#include <sys/wait.h>

namespace idpfwd {
namespace {

using testing::HasSubstr;
using IdpfwdTest = DeviceTest;

TEST_F(IdpfwdTest, ServesAndDumpsAScenarioAndLeavesNothingBehind) {
    const Scratch scratch;
    scratch.write("s.json", R"({"steps": [{"generate": {"users": 2, "down": 7}},
                                          {"request": 2, "clear": true}]})");
    setenv(IDPFWD_SOCKET_VARIABLE, (scratch.path() / "socket").c_str(), 1);
    const std::string command =
        "echo $$ && exec " IDPFWD
        " --scenario s.json --device socket --databases trend --dump dump.json";
    FILE *output = popen(("cd '" + scratch.path().string() + "' && " + command).c_str(), "r");
    const auto line = [output] {
        char text[200] = "";
        return std::string(fgets(text, sizeof text, output) != nullptr ? text : "");
    };
    const pid_t engine = std::stoi(line());
    EXPECT_THAT(line(), HasSubstr("at most 63 users and 32256 rows\n"));

    forward_ioctl state = request(out_); // now this process, which is older, is not held back
    state.nr = IDPFWD_NR_STATE;
    state.op = IDPFWD_OP_STATE;
    state.in_type = 0;
    EXPECT_EQ(call(&state, IDPFWD_NR_STATE), 0);
    forward_ioctl users = request(out_);
    users.nr = IDPFW_NR_USER;
    users.op = 1;
    users.in_type = 0;
    EXPECT_EQ(call(&users, IDPFW_NR_USER), 0);
    EXPECT_EQ(used_, 180U);
    kill(engine, SIGUSR1);
    for (int i = 0; i < 30'000 && scratch.read("dump.json").empty(); ++i)
        usleep(1000);
    EXPECT_THAT(scratch.read("dump.json"), HasSubstr("\"down_bytes\": 7,"));
    EXPECT_EQ(call(&users, IDPFW_NR_USER), 0);
    EXPECT_EQ(used_, 0U);

    kill(engine, SIGTERM);
    EXPECT_EQ(line(), "idpfwd: scenario finished\n");
    EXPECT_EQ(pclose(output), 0);
    EXPECT_THAT(scratch.read("dump.json"), HasSubstr("{\"users\": [],"));
    EXPECT_EQ(scratch.names(), (std::vector<std::string>{"dump.json", "s.json"}));
    EXPECT_NE(access(IDPFW_DEVICE, F_OK), 0);
}

TEST_F(IdpfwdTest, FailuresHaveStatusOneOrTwo) {
    setenv("ASAN_OPTIONS", "exitcode=99", 1); // a crash would have status 1 as well
    EXPECT_EQ(WEXITSTATUS(std::system(IDPFWD " --scenario /none")), 1);
    EXPECT_EQ(WEXITSTATUS(std::system(IDPFWD)), 2);
    const Scratch scratch;
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    scratch.write("s.json", R"({"applications": {"A": {"category": 1, "id": 1}}, "steps": [{}]})");
    const std::string noFolder = "s.json/y/x";
    for (const auto &[more, said] :
         {std::pair("socket --dump " + noFolder, "cannot write " + noFolder),
          {"socket --socket /none/x", "cannot listen at /none/x"},
          {"socket --databases " + noFolder, "cannot write " + noFolder}}) {
        const std::string command =
            IDPFWD " --scenario s.json --databases . --socket ./socket 2>said --device " + more;
        EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
        EXPECT_THAT(scratch.read("said"), HasSubstr(said));
    }
    std::filesystem::current_path(here);
}

} // namespace
} // namespace idpfwd
