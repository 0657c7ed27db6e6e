// The program as it ships, with a caller that knows nothing of it but the preloaded shim.
#include "dpi/usr_ioctl.h"
#include "engine/wire.h"
#include "own_dev.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

#ifdef EMULATOR
const std::vector<std::string> kEmulator = {EMULATOR};
// The emulator itself must not see what its program preloads.
constexpr const char *kPreload = "QEMU_SET_ENV=LD_PRELOAD=";
#else
const std::vector<std::string> kEmulator;
constexpr const char *kPreload = "LD_PRELOAD=";
#endif

// A program whose standard output and error come back together.
class Program {
  public:
    Program(std::vector<std::string> words, const std::vector<std::string> &environment) {
        words.insert(words.begin(), kEmulator.begin(), kEmulator.end());
        int pipes[2];
        if (pipe2(pipes, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2 failed");
        child_ = fork();
        if (child_ == 0) {
            dup2(pipes[1], STDOUT_FILENO);
            dup2(pipes[1], STDERR_FILENO);
            std::vector<char *> arguments;
            arguments.reserve(words.size() + 1);
            for (std::string &word : words)
                arguments.push_back(word.data());
            arguments.push_back(nullptr);
            for (const std::string &variable : environment)
                putenv(strdup(variable.c_str()));
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        close(pipes[1]);
        output_ = pipes[0];
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        close(output_);
    }

    void send(int signal) const { kill(child_, signal); }

    // Reads on until the text has come, or the end.
    std::string await(const std::string &text) {
        pollfd waited{.fd = output_, .events = POLLIN, .revents = 0};
        while (read_.find(text) == std::string::npos && poll(&waited, 1, 20'000) == 1) {
            std::array<char, 4096> bytes{};
            const ssize_t count = read(output_, bytes.data(), bytes.size());
            if (count <= 0)
                break;
            read_.append(bytes.data(), static_cast<std::size_t>(count));
        }
        return read_;
    }

    // Its whole output; its exit status goes to status.
    std::string finish(int &status) {
        await("\1never printed");
        waitpid(child_, &status, 0);
        child_ = -1;
        status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        return read_;
    }

  private:
    pid_t child_ = -1;
    int output_ = -1;
    std::string read_;
};

class IdpfwdTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!ownDevRefusal.empty())
            GTEST_SKIP() << ownDevRefusal;
    }

    Program engine(const std::string &scenario) {
        return Program({IDPFWD, "--scenario", scratch_.write("s.json", scenario), "--device",
                        "socket", "--databases", scratch_.path() / "trend", "--dump",
                        scratch_.path() / "dump.json"},
                       {socket()});
    }

    std::string ask(const std::string &nr, const std::string &op) {
        Program client({CLIENT, nr, op, "5760"}, {socket(), std::string(kPreload) + SHIM});
        int status = 0;
        return client.finish(status);
    }

    [[nodiscard]] std::string socket() const {
        return IDPFWD_SOCKET_VARIABLE "=" + (scratch_.path() / "socket").string();
    }

    Scratch scratch_;
    int status_ = 0;
};

TEST_F(IdpfwdTest, ServesAPreloadedProgramAndLeavesNothingBehind) {
    Program running = engine(R"({"steps": [{"generate": {"users": 2, "down": 7}},
                                           {"request": 2, "clear": true}]})");
    EXPECT_THAT(running.await("rows\n"), HasSubstr("at most 63 users and 32256 rows\n"));
    EXPECT_EQ(ask("10", "1"), "0 0 180\n");
    EXPECT_EQ(ask("12", "1"), "0 0 72\n");
    EXPECT_EQ(ask("14", "8"), "-1 25 0\n");
    running.send(SIGUSR1);
    while (!std::filesystem::exists(scratch_.path() / "dump.json"))
        ASSERT_EQ(usleep(1000), 0);
    EXPECT_THAT(scratch_.read("dump.json"), HasSubstr("\"down_bytes\": 7,"));
    EXPECT_EQ(ask("10", "1"), "0 0 0\n");
    EXPECT_THAT(running.await("finished"), HasSubstr("idpfwd: scenario finished"));
    running.send(SIGTERM);
    running.finish(status_);
    EXPECT_EQ(status_, 0);
    EXPECT_THAT(scratch_.read("dump.json"), HasSubstr("{\"users\": [],"));
    EXPECT_EQ(scratch_.names(), (std::vector<std::string>{"dump.json", "s.json"}));
    EXPECT_FALSE(std::filesystem::exists(IDPFW_DEVICE));
}

TEST_F(IdpfwdTest, FailuresAreOneLineAndStatusOneOrTwo) {
    Program wrong = engine(R"({"steps": [{"at": -1}]})");
    EXPECT_THAT(wrong.finish(status_),
                testing::EndsWith("s.json: steps 1: 'at' must be from 0 to 1e9 seconds\n"));
    EXPECT_EQ(status_, 1);
    Program usage({IDPFWD, "--scenario"}, {});
    EXPECT_EQ(usage.finish(status_), "idpfwd: option '--scenario' needs a value (see --help)\n");
    EXPECT_EQ(status_, 2);
}

} // namespace
