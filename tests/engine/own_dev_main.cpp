// Runs the tests with a "/dev" of their own: a mount namespace with an empty file system there, so
// that the real paths are used and nothing on the machine is touched. Where the machine refuses,
// the tests are skipped with the reason.
#include "own_dev.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

std::string ownDevRefusal;

namespace {

std::string failure(const char *what) {
    return std::string(what) + ": " + strerror(errno);
}

bool writeText(const char *path, const std::string &text) {
    std::ofstream out(path);
    out << text;
    return out.flush().good();
}

std::string enterOwnDev() {
    const auto uid = std::to_string(geteuid());
    const auto gid = std::to_string(getegid());
    const bool root = geteuid() == 0;
    if (unshare(CLONE_NEWNS | (root ? 0 : CLONE_NEWUSER)) != 0)
        return failure("unshare");
    if (!root && (!writeText("/proc/self/setgroups", "deny") ||
                  !writeText("/proc/self/uid_map", "0 " + uid + " 1") ||
                  !writeText("/proc/self/gid_map", "0 " + gid + " 1")))
        return failure("mapping the user into a namespace");
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("own", "/dev", "tmpfs", 0, nullptr) != 0)
        return failure("mount");
    return "";
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        ownDevRefusal = enterOwnDev();
    return RUN_ALL_TESTS();
}
