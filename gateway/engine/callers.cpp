#include "engine/callers.h"

#include <charconv>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace idpfwd {
namespace {

std::uint64_t ticksNow() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const auto perSecond = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    return static_cast<std::uint64_t>(now.tv_sec) * perSecond +
           static_cast<std::uint64_t>(now.tv_nsec) * perSecond / 1'000'000'000;
}

std::string processFile(pid_t process, const char *name) {
    std::ifstream in("/proc/" + std::to_string(process) + "/" + name);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A /proc of another process namespace has other processes under the same numbers.
bool seesOwnProcesses() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self", error) == std::to_string(getpid());
}

// The process of a thread, itself for a process that has no others; 0 when it cannot be seen.
pid_t processOf(pid_t thread) {
    constexpr std::string_view kField = "\nTgid:\t";
    const std::string status = processFile(thread, "status");
    const std::size_t at = status.find(kField);
    pid_t process = 0;
    if (at != std::string::npos)
        std::from_chars(status.data() + at + kField.size(), status.data() + status.size(), process);
    return process;
}

// When the process began, in clock ticks since the machine started.
std::optional<std::uint64_t> startOf(pid_t process) {
    constexpr int kFieldsBefore = 19; // after the name, which may hold blanks and brackets
    const std::string stat = processFile(process, "stat");
    const std::size_t name = stat.rfind(')');
    if (name == std::string::npos)
        return std::nullopt;
    std::istringstream fields(stat.substr(name + 1));
    std::string skipped;
    for (int i = 0; i < kFieldsBefore; ++i)
        fields >> skipped;
    std::uint64_t start = 0;
    return fields >> start ? std::optional(start) : std::nullopt;
}

} // namespace

Callers::Callers()
    : born_(ticksNow()), end_(std::chrono::steady_clock::now() + kLongestHold),
      seesProcesses_(seesOwnProcesses()) {
    // A process of the same tick counts as older; those that wait for the engine shall not be.
    while (ticksNow() <= born_)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

Callers::Seen Callers::look(pid_t caller) {
    const pid_t process = seesProcesses_ && caller > 0 ? processOf(caller) : 0;
    const auto start = process > 0 ? startOf(process) : std::nullopt;
    if (!start)
        return {.age = Age::kUnknown, .reader = nullptr};
    if (*start > born_)
        return {.age = Age::kYounger, .reader = nullptr};
    return {.age = Age::kOlder, .reader = &older_[process]};
}

bool Callers::heldBack(pid_t caller, Table table) {
    const Seen seen = look(caller);
    if (seen.age == Age::kUnknown)
        return std::chrono::steady_clock::now() < end_;
    if (seen.age == Age::kYounger || seen.reader->released)
        return false;
    Reader &reader = *seen.reader;
    // What it never asks for is not waited for.
    const auto enough = [](unsigned times) { return times == 0 || times >= 2; };
    reader.released = enough(reader.users) && enough(reader.rows) && reader.users + reader.rows > 0;
    if (reader.released)
        return false;
    ++(table == Table::kUsers ? reader.users : reader.rows);
    return true;
}

void Callers::knowsLives(pid_t caller) {
    if (const Seen seen = look(caller); seen.reader != nullptr)
        seen.reader->released = true;
}

} // namespace idpfwd
