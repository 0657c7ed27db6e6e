#include "support/private_root.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace rig {
namespace {

namespace fs = std::filesystem;

int oldRoot = -1;
int oldDirectory = -1;
std::string rootPath;
bool processesShown = false;

// Where a build that counts what it runs leaves the counts of whatever ends in the root.
constexpr const char *kCounts = "/lib-counts";

constexpr std::array kFileTools = {"cat",  "cp",    "mv",   "rm",    "ls",   "sed",
                                   "echo", "mkdir", "grep", "touch", "sleep"};
constexpr std::array kFolders = {"/dev",       "/proc/net",         "/var/run", "/var/log",
                                 "/tmp/trend", "/tmp/aws_json_dir", "/opt",     "/etc"};

std::string failure(const char *what) {
    return std::string(what) + ": " + strerror(errno);
}

// Copies a program of the machine and the libraries that it is linked to.
void copyProgram(const std::string &program, const std::string &destination) {
    fs::create_directories(fs::path(destination).parent_path());
    fs::copy_file(program, destination, fs::copy_options::overwrite_existing);
    FILE *listing = popen(("ldd '" + program + "' 2>/dev/null").c_str(), "r");
    if (listing == nullptr)
        return;
    char text[512];
    while (fgets(text, sizeof text, listing) != nullptr) {
        const std::string line = text; // "\tNAME => PATH (ADDRESS)", "\tPATH (ADDRESS)"
        const std::size_t from = line.find('/');
        if (from == std::string::npos)
            continue;
        const std::string library = line.substr(from, line.rfind(" (") - from);
        const std::string target = rootPath + library;
        fs::create_directories(fs::path(target).parent_path());
        fs::copy_file(library, target, fs::copy_options::overwrite_existing);
    }
    pclose(listing);
}

// Also puts back the tools that a test has replaced by fakes.
void linkFileTools(const std::string &folder) {
    for (const char *tool : kFileTools) {
        if (!fs::is_symlink(folder + "/" + tool))
            fs::create_symlink("busybox", folder + "/" + tool);
    }
}

void populate(const std::vector<Program> &programs) {
    for (const auto &program : programs)
        copyProgram(program.source, rootPath + program.destination);
    copyProgram("/bin/dash", rootPath + "/bin/sh");
    copyProgram("/bin/busybox", rootPath + "/bin/busybox");
    linkFileTools(rootPath + "/bin");
}

bool writeText(const char *path, const std::string &text) {
    std::ofstream out(path);
    out << text;
    return out.flush().good();
}

// An ordinary user may change the root only as the root of a user namespace.
std::string becomeNamespaceRoot() {
    const auto uid = std::to_string(getuid());
    const auto gid = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER) != 0)
        return failure("unshare(CLONE_NEWUSER)");
    if (!writeText("/proc/self/setgroups", "deny") ||
        !writeText("/proc/self/uid_map", "0 " + uid + " 1") ||
        !writeText("/proc/self/gid_map", "0 " + gid + " 1"))
        return failure("mapping the user into a namespace");
    return "";
}

} // namespace

std::string enterPrivateRoot(const std::vector<Program> &programs) {
    const char *base = getenv("TMPDIR");
    rootPath = std::string(base != nullptr ? base : "/tmp") + "/private-root-XXXXXX";
    if (mkdtemp(rootPath.data()) == nullptr)
        return failure("mkdtemp");
    populate(programs); // what is missing is a fault, not a refusal: it throws
    oldRoot = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    oldDirectory = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (geteuid() != 0) {
        std::string reason = becomeNamespaceRoot();
        if (!reason.empty())
            return reason;
    }
    if (chroot(rootPath.c_str()) != 0)
        return failure("chroot");
    if (chdir("/") != 0)
        return failure("chdir");
    setenv("PATH", "/bin", 1);
    setenv("GCOV_PREFIX", kCounts, 1);
    return "";
}

std::string showProcesses() {
    static int ownRoot = -1; // the old one, in our mount namespace: a descriptor stays in its own
    if (ownRoot < 0) {
        if (fchdir(oldRoot) != 0 || unshare(CLONE_NEWNS) != 0 ||
            mount("none", ".", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return failure("a mount namespace");
        ownRoot = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    if (fchdir(ownRoot) != 0)
        return failure("fchdir");
    const std::string target = rootPath.substr(1) + "/proc"; // from the old root
    processesShown = mount("proc", target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
    const std::string reason = processesShown ? "" : failure("showing /proc");
    return chdir("/") == 0 ? reason : failure("chdir");
}

void hideProcesses() {
    if (std::exchange(processesShown, false)) // elsewhere it would be the machine's own
        umount2("/proc", MNT_DETACH);
}

void leavePrivateRoot() {
    if (oldRoot >= 0) {
        if (fchdir(oldRoot) != 0 || chroot(".") != 0 || fchdir(oldDirectory) != 0)
            abort(); // removing anything from here on could remove the wrong thing
        close(oldRoot);
        close(oldDirectory);
        oldRoot = -1;
    }
    unsetenv("GCOV_PREFIX");
    if (!rootPath.empty()) {
        std::error_code ignored;
        if (const char *kept = getenv("COVERAGE_COUNTS"); kept != nullptr)
            fs::rename(rootPath + kCounts, kept / fs::path(rootPath).filename(), ignored);
        fs::remove_all(rootPath, ignored);
        rootPath.clear();
    }
}

void resetPrivateRoot() {
    for (const auto &entry : fs::directory_iterator("/")) {
        const auto name = entry.path().filename().string();
        if (name.starts_with("lib"))
            continue;
        if (name != "bin") {
            fs::remove_all(entry.path());
            continue;
        }
        // What is neither the shell, busybox nor a link to it is a fake command.
        for (const auto &tool : fs::directory_iterator("/bin")) {
            if (!tool.is_symlink() && tool.path() != "/bin/sh" && tool.path() != "/bin/busybox")
                fs::remove(tool.path());
        }
    }
    linkFileTools("/bin");
    for (const char *folder : kFolders)
        fs::create_directories(folder);
    std::ofstream("/dev/null");
}

} // namespace rig
