// Starts the programs that ship, in a private root: the daemon with its real settings store, and
// the engine playing a scenario. The only things that are not real are the uploader's killall and
// the length of the wait between passes.
#include "support/commands.h"
#include "support/files.h"
#include "support/private_root.h"

#include <algorithm>
#include <chrono>
#include <cjson/cJSON.h>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <regex>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char *kDaemon = "/lib/router/trafficUsageDetailsD";
constexpr const char *kPidFile = "/var/run/trafficUsageDetailsD.pid";
constexpr const char *kWaits = "/tmp/waits"; // of the preloaded quick_wait
constexpr const char *kReport = "/tmp/aws_json_dir/aws_traffic_usage_details.json";

std::string refusal;

std::string slurp(const char *path) {
    return rig::fileExists(path) ? rig::readFile(path) : "";
}

pid_t launch(const std::vector<std::string> &command, const std::string &preload,
             const std::string &output, const std::string &errors) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    setenv("LD_LIBRARY_PATH", "/lib/router", 1);
    if (!preload.empty())
        setenv("LD_PRELOAD", preload.c_str(), 1);
    dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
    dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    std::vector<char *> arguments;
    for (const auto &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(126);
}

int exitStatus(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

int count(const std::string &text, const std::string &what) {
    int found = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++found;
    return found;
}

// Polls, for at most half a minute.
void waitFor(const char *what, const std::function<bool()> &condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition())
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    FAIL() << "waited in vain for " << what;
}

// The values of these members of every object in a document's array, as text in lower case.
std::vector<std::string> rows(const char *path, const char *array,
                              const std::vector<const char *> &members) {
    std::vector<std::string> result;
    cJSON *document = cJSON_Parse(rig::readFile(path).c_str());
    const cJSON *objects = *array == '\0' ? document : cJSON_GetObjectItem(document, array);
    for (const cJSON *object = objects->child; object != nullptr; object = object->next) {
        std::string row;
        for (const char *name : members) {
            const cJSON *value = cJSON_GetObjectItem(object, name);
            row += cJSON_IsString(value) ? value->valuestring : std::to_string(value->valuedouble);
            row += '|';
        }
        std::transform(row.begin(), row.end(), row.begin(), tolower);
        result.push_back(row);
    }
    cJSON_Delete(document);
    return result;
}

class EndToEnd : public testing::Test {
  protected:
    void SetUp() override {
        if (!refusal.empty())
            GTEST_SKIP() << refusal;
        rig::resetPrivateRoot();
        // Where a sanitized program looks for its options; it cannot look for leaks in here.
        rig::writeFile("/proc/self/environ",
                       std::string("ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0") + '\0');
        rig::fakeCommand("killall");
        set("sku_name", "NA");
        set("enable_trafficUsageDetails", "1");
        set("tud_max_idle_time", "1"); // a quiet period ends with the third pass
    }

    void TearDown() override {
        if (daemon > 0 && kill(daemon, SIGKILL) == 0)
            exitStatus(daemon);
        if (engine > 0 && kill(engine, SIGTERM) == 0)
            exitStatus(engine);
    }

    static void set(const std::string &name, const std::string &value) {
        const pid_t child =
            launch({"/lib/router/nvram", "set", name + "=" + value}, "", "/out", "/err");
        ASSERT_EQ(exitStatus(child), 0) << slurp("/err");
    }

    void playScenario(const std::string &scenario) {
        rig::writeFile("/scenario.json", scenario);
        startEngine({"--scenario", "/scenario.json"});
    }

    void startEngine(std::vector<std::string> options) {
        options.insert(options.begin(), {"/lib/router/idpfwd", "--device", "socket"});
        engine = launch(options, "", "/engine.out", "/engine.err");
        waitFor("the engine", [] { return !slurp("/engine.out").empty(); });
    }

    // Runs the program until it exits; a daemon that detached itself goes on.
    int startDaemon(std::vector<std::string> command = {}) {
        command.insert(command.begin(), kDaemon);
        return exitStatus(launch(command,
                                 "/lib/router/libidpfw-shim.so /lib/router/libquick-wait.so",
                                 "/daemon.out", "/daemon.err"));
    }

    // Starts the daemon for good, and waits until it has made its first pass.
    void startForGood() {
        ASSERT_EQ(startDaemon(), 0) << slurp("/daemon.err");
        waitFor("the first pass", [] { return waits() > 0; });
        daemon = std::stoi(slurp(kWaits));
    }

    // Waits for it; what is gone is never signalled again.
    int daemonsEnd() { return exitStatus(std::exchange(daemon, -1)); }

    static void waitForUploaderSignal() {
        waitFor("the signal to the uploader", [] { return !rig::recordedCommands().empty(); });
    }

    static std::ptrdiff_t waits() {
        const std::string marks = slurp(kWaits);
        return std::count(marks.begin(), marks.end(), '\n');
    }

    // Waits for whole passes from now on.
    static void passes(int count) {
        const auto until = waits() + count + 1;
        waitFor("a pass", [&] { return waits() >= until; });
    }

    pid_t daemon = -1;
    pid_t engine = -1;
};

// Names for the applications 1 to count of category 1, none with a digit that the loader cuts at.
void writeNames(int count) {
    std::string applications;
    for (int i = 1; i <= count; ++i)
        applications += "1," + std::to_string(i) + ",0,App " + static_cast<char>('A' + i / 26) +
                        static_cast<char>('a' + i % 26) + "\n";
    rig::writeFile("/tmp/trend/bwdpi.app.db", applications);
    rig::writeFile("/tmp/trend/bwdpi.cat.db", "1,Category\n");
}

// A device with so many applications, which are all quiet from the start on.
std::string quietDevice(int rows) {
    writeNames(rows);
    return R"({"steps": [{"generate": {"users": 1, "apps": )" + std::to_string(rows) +
           R"(, "category": 1, "first_app": 1, "down": 1000, "up": 100}}]})";
}

} // namespace

TEST_F(EndToEnd, RefusesArgumentsAWrongRegionAndASecondStart) {
    EXPECT_EQ(startDaemon({"--help"}), 255);
    EXPECT_EQ(slurp("/daemon.out"), std::string("Usage: ") + kDaemon + "\n");

    set("sku_name", "WW");
    EXPECT_EQ(startDaemon(), 255);
    EXPECT_EQ(slurp("/daemon.out"), "");
    EXPECT_THAT(slurp("/daemon.err"), HasSubstr("trafficUsageDetailsD can only run in NA sku\n: "));
    EXPECT_FALSE(rig::fileExists(kPidFile));

    set("sku_name", "NA");
    rig::writeFile(kPidFile, "stale");
    EXPECT_EQ(startDaemon(), 0);
    EXPECT_EQ(slurp("/daemon.out"), "MAX_ENTRY: 294\ntrafficUsageDetailsD already running.\n");
    EXPECT_EQ(slurp(kPidFile), "stale");
}

TEST_F(EndToEnd, ReportsOnRequestDumpsOnRequestAndLeavesOnTermination) {
    playScenario(quietDevice(2));
    startForGood();
    EXPECT_EQ(slurp(kPidFile), std::to_string(daemon)); // no newline
    passes(4);
    EXPECT_FALSE(rig::fileExists(kReport));
    kill(daemon, SIGUSR1);
    waitForUploaderSignal();
    EXPECT_THAT(rig::recordedCommands(), ElementsAre("killall -SIGUSR2 aws_json"));
    const std::string report = slurp(kReport);
    EXPECT_THAT(report, AllOf(HasSubstr("\"numOfTrafficRecrod\":\t2"),
                              HasSubstr("\"uploadBandwidth\":\t100,"),
                              HasSubstr("\"downloadBandwidth\":\t1000\n"),
                              HasSubstr("\"devType\":\t\"unknown\"")));
    EXPECT_THAT(slurp("/daemon.out"), HasSubstr(report)); // echoed by cat

    // With the debug log off a dump prints nothing, but it looks for the device database once.
    const auto loads = [] { return count(slurp("/daemon.err"), "[init_dev_os(336)]"); };
    const auto loadsSoFar = loads();
    passes(2);
    EXPECT_EQ(loads(), loadsSoFar);
    kill(daemon, SIGUSR2);
    passes(3);
    EXPECT_EQ(loads(), loadsSoFar + 1);
    EXPECT_EQ(count(slurp("/daemon.out"), "Dump"), 0);

    set("tud_dbg", "1");
    waitFor("the dump", [] { return count(slurp("/daemon.out"), "Dump memory buffer end") > 0; });
    kill(daemon, SIGTERM);
    EXPECT_EQ(daemonsEnd(), 0);
    EXPECT_FALSE(rig::fileExists(kPidFile));
    EXPECT_EQ(rig::recordedCommands().size(), 1u); // termination reports nothing
    EXPECT_EQ(slurp("/daemon.err").find("Sanitizer"), std::string::npos) << slurp("/daemon.err");
}

TEST_F(EndToEnd, WaitsWhileTheSwitchIsOffAndHonoursTheRequestWhenItComesOn) {
    set("enable_trafficUsageDetails", "0");
    playScenario(quietDevice(1));
    startForGood();
    kill(daemon, SIGUSR1);
    passes(3);
    EXPECT_THAT(rig::recordedCommands(), IsEmpty());
    set("enable_trafficUsageDetails", "1");
    waitForUploaderSignal();
    EXPECT_THAT(slurp(kReport), HasSubstr("\"trafficInfo\":\t[]"));
}

TEST_F(EndToEnd, ReportsByItselfAtThe295thPeriodAndLosesThatOne) {
    playScenario(quietDevice(296));
    startForGood();
    waitForUploaderSignal();
    EXPECT_THAT(slurp(kReport), HasSubstr("\"numOfTrafficRecrod\":\t294"));
    rig::forgetCommands();
    kill(daemon, SIGUSR1);
    waitForUploaderSignal();
    EXPECT_THAT(slurp(kReport), HasSubstr("\"numOfTrafficRecrod\":\t1,"));
}

TEST_F(EndToEnd, ATerminationDuringAPassEndsItWithNothingFurtherReported) {
    // The 295th period asks for the report, which asks for the end: the 590th finds the buffer full
    // again in the same pass.
    rig::fakeCommand("killall", std::string("kill $(cat ") + kPidFile + ")");
    playScenario(quietDevice(600));
    startForGood();
    EXPECT_EQ(daemonsEnd(), 0);
    EXPECT_EQ(rig::recordedCommands().size(), 1u);
    EXPECT_FALSE(rig::fileExists(kPidFile));
}

TEST_F(EndToEnd, CarriesOnWithoutAnEngineAPidFileAndAReportDirectory) {
    std::filesystem::remove_all("/tmp/aws_json_dir");
    std::filesystem::create_symlink("/no/such/folder/pid", kPidFile);
    set("AWS_JSON_DBGP", "1");
    startForGood();
    EXPECT_THAT(slurp("/daemon.err"), HasSubstr("Can not open PID file.: "));
    kill(daemon, SIGUSR1);
    waitForUploaderSignal();
    EXPECT_THAT(slurp("/daemon.out"), HasSubstr("## Can not create JSON file."));
    passes(1);
    kill(daemon, SIGINT);
    EXPECT_EQ(daemonsEnd(), 0);
}

TEST_F(EndToEnd, ReportsACaptureToTheByteAsCountedFromItsFrames) {
    startEngine(
        {"--capture", "/lib/router/home.pcap", "--fast", "--gateway-mac", "02:00:5e:00:00:01"});
    waitFor("the capture's end",
            [] { return slurp("/engine.out").find("capture finished") != std::string::npos; });
    startForGood();
    passes(4);
    kill(daemon, SIGUSR1);
    waitForUploaderSignal();

    auto counted =
        rows("/lib/router/expected.json", "", {"mac", "category", "application", "up", "down"});
    for (std::string &row : counted) // the daemon's word for what has no name
        row = std::regex_replace(row, std::regex("\\|[^|]*\\|unknown\\|"), "|others|others|");
    EXPECT_THAT(rows(kReport, "trafficInfo",
                     {"macAddress", "appType", "appName", "uploadBandwidth", "downloadBandwidth"}),
                testing::UnorderedElementsAreArray(counted));
    EXPECT_GT(counted.size(), 5u);
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
#ifdef EMULATOR
    refusal = "the daemon's own commands need a machine of its kind: router/ has one";
    return RUN_ALL_TESTS();
#endif
    const char *build = getenv("BINARIES");
    const std::string binaries = build != nullptr ? build : DEFAULT_BINARIES;
    std::vector<rig::Program> programs;
    for (const char *name : {"trafficUsageDetailsD", "idpfwd", "nvram", "libnvram.so", "libnat.so",
                             "libidpfw-shim.so"})
        programs.push_back({binaries + "/" + name, std::string("/lib/router/") + name});
    for (const char *file : {"home.pcap", "expected.json"})
        programs.push_back(
            {std::string(CAPTURE_DIR "/") + file, std::string("/lib/router/") + file});
    programs.push_back({QUICK_WAIT, "/lib/router/libquick-wait.so"});
    prctl(PR_SET_CHILD_SUBREAPER, 1); // a daemon that detached itself is still waited for here
    refusal = rig::enterPrivateRoot(programs);
    if (!refusal.empty())
        refusal.insert(0, "no private root on this machine: ");
    const int result = RUN_ALL_TESTS();
    rig::leavePrivateRoot();
    return result;
}
