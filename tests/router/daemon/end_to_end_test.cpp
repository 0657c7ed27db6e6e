// Starts the programs that ship, in a private root: the daemon with its real settings store, and
// the engine playing a scenario. The only things that are not real are the uploader's killall and
// the length of the wait between passes.
#include "support/child.h"
#include "support/commands.h"
#include "support/files.h"
#include "support/pattern.h"
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
#include <optional>
#include <random>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

using rig::Child;
using testing::HasSubstr;

namespace {

// The programs under test and what they need; what they print goes to "/<program>" and
// "/<program>.err".
const std::string kFolder = "/lib/router/";
constexpr const char *kOutput = "/trafficUsageDetailsD";
constexpr const char *kErrors = "/trafficUsageDetailsD.err";
constexpr const char *kPidFile = "/var/run/trafficUsageDetailsD.pid";
constexpr const char *kWaits = "/tmp/waits"; // of the preloaded quick_wait
constexpr const char *kReport = "/tmp/aws_json_dir/aws_traffic_usage_details.json";

std::string refusal;

std::string slurp(const std::string &path) {
    return rig::fileExists(path) ? rig::readFile(path) : "";
}

bool says(const char *path, const char *text) {
    return slurp(path).find(text) != std::string::npos;
}

Child launch(const std::string &program, std::vector<std::string> words, const char *preload = "") {
    words.insert(words.begin(), kFolder + program);
    return Child(words, "/" + program,
                 {{"LD_LIBRARY_PATH", kFolder},
                  {"LD_PRELOAD", preload},
                  {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"}}); // no leaks in here
}

void waitFor(const char *what, const std::function<bool()> &condition) {
    EXPECT_TRUE(rig::eventually(condition)) << "waited in vain for " << what;
}

// These members of every object of a report, or of an array, as text in lower case.
std::vector<std::string> rows(const std::string &path, const std::vector<const char *> &members) {
    std::vector<std::string> result;
    cJSON *document = cJSON_Parse(rig::readFile(path).c_str());
    const cJSON *objects =
        cJSON_IsArray(document) ? document : cJSON_GetObjectItem(document, "trafficInfo");
    const cJSON *object;
    cJSON_ArrayForEach(object, objects) {
        std::string &row = result.emplace_back();
        for (const char *name : members) {
            const cJSON *value = cJSON_GetObjectItem(object, name);
            row += cJSON_IsString(value) ? value->valuestring : std::to_string(value->valuedouble);
            row += '|';
        }
        std::ranges::transform(row, row.begin(), tolower);
    }
    cJSON_Delete(document);
    return result;
}

// Every pass that is answered finds each of the rows grown by so many bytes.
constexpr double kGrowth = 1000;
constexpr int kGrowingRows = 5;

// By how many growths the published records tell of the rows, together.
double reportedGrowths() {
    double bytes = 0;
    for (const auto &file : std::filesystem::directory_iterator("/published"))
        for (const std::string &row : rows(file.path(), {"downloadBandwidth"})) {
            EXPECT_GT(std::stod(row), 0) << "a counter ran backwards";
            bytes += std::stod(row);
        }
    return bytes / kGrowth / kGrowingRows;
}

// How often a row has grown, by the engine's own account.
double countedGrowths() {
    const std::string dump = slurp("/dump.json");
    const std::string label = "\"down_bytes\": ";
    const std::size_t place = dump.find(label);
    return place != std::string::npos ? std::stod(dump.substr(place + label.size())) / kGrowth : 0;
}

unsigned long fromEnvironment(const char *name, unsigned long otherwise) {
    const char *value = getenv(name);
    return value != nullptr ? std::stoul(value) : otherwise;
}

class EndToEnd : public testing::Test {
  protected:
    void SetUp() override {
        if (!refusal.empty())
            GTEST_SKIP() << refusal;
        rig::resetPrivateRoot();
        ASSERT_EQ(rig::showProcesses(), "");
        rig::fakeCommand("killall");
        set("sku_name=NA");
        set("enable_trafficUsageDetails=1");
        set("tud_max_idle_time=1"); // a quiet period ends with the third pass
    }

    void TearDown() override {
        if (daemon > 0 && kill(daemon, SIGKILL) == 0)
            daemonsEnd();
        if (engine)
            engine->signal(SIGTERM);
        engine.reset();
        rig::hideProcesses();
    }

    static void set(const char *setting) {
        ASSERT_EQ(launch("nvram", {"set", setting}).wait(), 0) << slurp("/nvram.err");
    }

    void startEngine(std::vector<std::string> options) {
        options.insert(options.begin(), {"--device", "socket"});
        engine.emplace(launch("idpfwd", options));
        waitFor("the engine", [] { return !slurp("/idpfwd").empty(); });
    }

    // A device with so many applications, which are all quiet from the start on.
    void playQuietDevice(int count) {
        std::string names;
        for (int i = 1; i <= count; ++i) {
            const std::string name(1 + i % 50, 'a' + i / 50); // the loader cuts at digits
            names += "1," + std::to_string(i) + ",0," + name + "\n";
        }
        rig::writeFile("/tmp/trend/bwdpi.app.db", names);
        rig::writeFile("/tmp/trend/bwdpi.cat.db", "1,Category\n");
        rig::writeFile(
            "/scenario.json",
            R"({"steps": [{"generate": {"users": 1, "category": 1, "first_app": 1, "apps": )" +
                std::to_string(count) + R"(, "down": 1000, "up": 100}}]})");
        startEngine({"--scenario", "/scenario.json"});
    }

    // Starts the engine on rows that grow with every pass, for so long; ends it, by a crash or in
    // order, and gives how often they have grown.
    double liveOnce(std::chrono::milliseconds length, bool crash) {
        std::filesystem::remove("/dump.json");
        std::filesystem::remove("/idpfwd");
        startEngine({"--scenario", "/scenario.json", "--dump", "/dump.json"});
        std::this_thread::sleep_for(length);
        if (crash) {
            engine->signal(SIGUSR1);
            waitFor("the dump", [] { return rig::fileExists("/dump.json"); });
        }
        engine->signal(crash ? SIGKILL : SIGTERM);
        engine->wait();
        engine.reset();
        return countedGrowths();
    }

    // Runs the program until it exits; a daemon that detached itself goes on.
    static int startDaemon(const std::vector<std::string> &arguments = {}) {
        return launch("trafficUsageDetailsD", arguments,
                      "/lib/router/libidpfw-shim.so /lib/router/libquick-wait.so "
                      "/lib/router/libfail-call.so")
            .wait();
    }

    // Starts the daemon with this call failing; gives whether there was such a call. A daemon that
    // runs is ended in good order.
    bool startWithFault(const std::string &call) {
        SCOPED_TRACE(call);
        for (const char *file : {"/tmp/failed", kWaits, kPidFile})
            std::filesystem::remove(file);
        setenv("FAIL_MARK", "/tmp/failed", 1);
        setenv("FAIL_CALL", call.c_str(), 1);
        const int status = startDaemon();
        unsetenv("FAIL_CALL");
        EXPECT_THAT(status, testing::AnyOf(0, 1, 255)) << slurp(kErrors);
        if (status == 0) {
            waitFor("the first pass", [] { return waits() > 0; });
            daemon = std::stoi(slurp(kWaits));
            tell(SIGTERM);
            EXPECT_EQ(daemonsEnd(), 0);
        }
        EXPECT_TRUE(status == 0 || !slurp(kErrors).empty()) << "it says why";
        EXPECT_FALSE(rig::fileExists(kPidFile));
        return rig::fileExists("/tmp/failed");
    }

    // Starts the daemon for good, and waits until it has made its first pass.
    void startForGood() {
        ASSERT_EQ(startDaemon(), 0) << slurp(kErrors);
        waitFor("the first pass", [] { return waits() > 0; });
        daemon = std::stoi(slurp(kWaits));
    }

    // Signals the daemon, when there is one: -1 would be everybody.
    void tell(int signal) const {
        ASSERT_GT(daemon, 0);
        kill(daemon, signal);
    }

    // Waits for it; what is gone is never signalled again.
    int daemonsEnd() { return rig::exitStatus(std::exchange(daemon, -1)); }

    static void waitForUploaderSignal() {
        waitFor("the signal to the uploader", [] { return !rig::recordedCommands().empty(); });
    }

    static std::ptrdiff_t waits() { return std::ranges::count(slurp(kWaits), '\n'); }

    // Waits for whole passes from now on.
    static void passes(int count) {
        const auto until = waits() + count + 1;
        waitFor("a pass", [&] { return waits() >= until; });
    }

    pid_t daemon = -1;
    std::optional<Child> engine;
};

} // namespace

TEST_F(EndToEnd, RefusesArgumentsAWrongRegionAndASecondStart) {
    EXPECT_EQ(startDaemon({"--help"}), 255);
    EXPECT_EQ(slurp(kOutput), "Usage: /lib/router/trafficUsageDetailsD\n");

    set("sku_name=WW");
    EXPECT_EQ(startDaemon(), 255);
    EXPECT_EQ(slurp(kOutput), "");
    EXPECT_THAT(slurp(kErrors), HasSubstr("trafficUsageDetailsD can only run in NA sku\n: "));
    EXPECT_FALSE(rig::fileExists(kPidFile));

    set("sku_name=NA");
    rig::writeFile(kPidFile, "stale");
    EXPECT_EQ(startDaemon(), 0);
    EXPECT_EQ(slurp(kOutput), "MAX_ENTRY: 294\ntrafficUsageDetailsD already running.\n");
}

TEST_F(EndToEnd, ReportsOnRequestDumpsOnRequestAndLeavesOnTermination) {
    playQuietDevice(2);
    startForGood();
    EXPECT_EQ(slurp(kPidFile), std::to_string(daemon)); // no newline
    passes(4);
    EXPECT_FALSE(rig::fileExists(kReport));
    tell(SIGUSR1);
    waitForUploaderSignal();
    EXPECT_THAT(rig::recordedCommands(), testing::ElementsAre("killall -SIGUSR2 aws_json"));
    const std::string report = slurp(kReport);
    EXPECT_THAT(report, HasSubstr("\"numOfTrafficRecrod\":\t2"));
    EXPECT_THAT(slurp(kOutput), HasSubstr(report)); // echoed by cat

    // With the debug log off a dump prints nothing, but it looks for the device database once.
    const std::string errors = slurp(kErrors);
    tell(SIGUSR2);
    passes(3);
    EXPECT_EQ(slurp(kErrors),
              errors + "[init_dev_os(336)]: get /tmp/trend/bwdpi.devdb.db error \n");
    EXPECT_FALSE(says(kOutput, "Dump"));

    set("tud_dbg=1");
    waitFor("the dump", [] { return says(kOutput, "Dump memory buffer end"); });
    EXPECT_TRUE(says(kOutput, "\nDeviceType: unknown\ntrafficStartTime: "));
    tell(SIGTERM);
    EXPECT_EQ(daemonsEnd(), 0);
    EXPECT_FALSE(rig::fileExists(kPidFile));
    EXPECT_EQ(rig::recordedCommands().size(), 1u); // termination reports nothing
    EXPECT_FALSE(says(kErrors, "Sanitizer")) << slurp(kErrors);
}

TEST_F(EndToEnd, ATerminationDuringAPassEndsItWithNothingFurtherReported) {
    // The 295th period asks for the report, which asks for the end: the 590th finds the buffer full
    // again in the same pass.
    rig::fakeCommand("killall", std::string("kill $(cat ") + kPidFile + ")");
    playQuietDevice(600);
    startForGood();
    EXPECT_EQ(daemonsEnd(), 0);
    EXPECT_EQ(rig::recordedCommands().size(), 1u);
    EXPECT_THAT(slurp(kReport), HasSubstr("\"numOfTrafficRecrod\":\t294"));
    EXPECT_FALSE(rig::fileExists(kPidFile));
}

TEST_F(EndToEnd, ATerminationEndsItAlthoughItsStarterBlocksSignalsAndItsLogIsStuck) {
    playQuietDevice(2);
    set("tud_dbg=1");
    ASSERT_EQ(mkfifo(kOutput, 0600), 0);
    const int log = open(kOutput, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const int size = fcntl(log, F_SETPIPE_SZ, 4096);
    sigset_t termination;
    sigset_t before;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    sigprocmask(SIG_BLOCK, &termination, &before);
    startForGood();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    waitFor("the full pipe", [&] {
        int held = 0;
        return ioctl(log, FIONREAD, &held) == 0 && held > size - 100;
    });
    tell(SIGTERM);
    EXPECT_EQ(daemonsEnd(), 0);
    EXPECT_FALSE(rig::fileExists(kPidFile));
    close(log);
}

TEST_F(EndToEnd, AStartUpWithAnyCallFailingRunsOrSaysWhyNot) {
    playQuietDevice(2);
    for (const std::string kind : {"open", "read", "map", "allocate", "fork"}) {
        for (int n = 1; n < 12; ++n) {
            if (!startWithFault(kind + ":" + std::to_string(n)) || HasFailure())
                break;
        }
        startWithFault(kind + ":1+");
    }
}

TEST_F(EndToEnd, WaitsForItsSwitchAndNeedsNoEngineNoPidFileAndNoReportDirectory) {
    std::filesystem::remove_all("/tmp/aws_json_dir");
    std::filesystem::create_symlink("/no/such/folder/pid", kPidFile);
    set("enable_trafficUsageDetails=0");
    startForGood();
    EXPECT_THAT(slurp(kErrors), HasSubstr("Can not open PID file.: "));
    tell(SIGUSR1);
    passes(3);
    EXPECT_THAT(rig::recordedCommands(), testing::IsEmpty());
    set("enable_trafficUsageDetails=1"); // the request is still remembered
    waitForUploaderSignal();
    passes(1);
    tell(SIGINT);
    EXPECT_EQ(daemonsEnd(), 0);
}

TEST_F(EndToEnd, ReportsACaptureToTheByteAsCountedFromItsFrames) {
    startEngine({"--capture", "/lib/router/capture/home.pcap", "--fast", "--gateway-mac",
                 "02:00:5e:00:00:01"});
    waitFor("the capture's end", [] { return says("/idpfwd", "capture finished"); });
    startForGood();
    passes(4);
    tell(SIGUSR1);
    waitForUploaderSignal();

    auto counted =
        rows("/lib/router/capture/expected.json", {"mac", "category", "application", "up", "down"});
    for (std::string &row : counted) // the daemon's word for what has no name
        row = rig::replaceEach(row, "\\|[^|]*\\|unknown\\|", "|others|others|");
    EXPECT_THAT(
        rows(kReport, {"macAddress", "appType", "appName", "uploadBandwidth", "downloadBandwidth"}),
        testing::UnorderedElementsAreArray(counted));
    EXPECT_GT(counted.size(), 5u);
}

// RESTARTS=500 SEED=7 for more of them, at other moments.
TEST_F(EndToEnd, NoByteOfAnyLifeOfTheEngineIsReportedTwiceOrTakenBack) {
    const auto restarts = fromEnvironment("RESTARTS", 12);
    std::mt19937 random(static_cast<unsigned>(fromEnvironment("SEED", 1)));
    const auto upTo = [&](unsigned most) {
        return std::chrono::milliseconds(std::uniform_int_distribution<unsigned>(0, most)(random));
    };
    rig::writeFile("/scenario.json", R"({"applications": {"Chess": {"category": 1, "id": 1},
        "Go": {"category": 1, "id": 2}, "Mills": {"category": 1, "id": 3},
        "Ludo": {"category": 1, "id": 4}, "Halma": {"category": 1, "id": 5}}, "steps": [{"request":
        1, "generate": {"users": 1, "apps": 5, "down": 1000}, "repeat": {"times": 1000000,
        "every_requests": 1}}]})");
    std::filesystem::create_directory("/published");
    rig::fakeCommand("killall", std::string("cat ") + kReport + " >/published/$$");

    startForGood();
    double counted = 0, crashes = 0;
    for (unsigned long life = 0; life < restarts; ++life) {
        const bool crash = random() % 2 == 0;
        crashes += crash ? 1 : 0;
        counted += liveOnce(upTo(900), crash);
        std::this_thread::sleep_for(random() % 2 == 0 ? upTo(5) : upTo(300));
        tell(SIGUSR1);
    }
    passes(3);
    tell(SIGUSR1);
    passes(2);
    // Rarely a pass is cut off between the users, with which the rows grow, and the rows; and
    // another one can come between a dump and the crash.
    EXPECT_THAT(reportedGrowths(),
                testing::AllOf(testing::Ge(counted - static_cast<double>(restarts) / 2),
                               testing::Le(counted + crashes)));
    EXPECT_GT(counted, restarts) << "most lives were long enough to be answered from";
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
#ifdef EMULATOR
    refusal = "the daemon's own commands need a machine of its kind: emulator/ has one";
    return RUN_ALL_TESTS();
#endif
    const char *build = getenv("BINARIES");
    const std::string binaries = build != nullptr ? build : BUILD_DIR;
    std::vector<rig::Program> programs;
    for (const char *name : {"trafficUsageDetailsD", "idpfwd", "nvram", "libnvram.so", "libnat.so",
                             "libidpfw-shim.so"})
        programs.push_back({binaries + "/" + name, kFolder + name});
    for (const char *name :
         {"libquick-wait.so", "libfail-call.so", "capture/home.pcap", "capture/expected.json"})
        programs.push_back({std::string(BUILD_DIR "/tests/") + name, kFolder + name});
    prctl(PR_SET_CHILD_SUBREAPER, 1); // a daemon that detached itself is still waited for here
    refusal = rig::enterPrivateRoot(programs);
    if (!refusal.empty())
        refusal.insert(0, "no private root on this machine: ");
    const int result = RUN_ALL_TESTS();
    rig::leavePrivateRoot();
    return result;
}
