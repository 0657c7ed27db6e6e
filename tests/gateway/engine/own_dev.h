// A "/dev" of a test's own: the real paths are used, and nothing on the machine is touched.
#pragma once

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace idpfwd {

inline bool writeText(const char *path, const std::string &text) {
    return (std::ofstream(path) << text).flush().good();
}

// Into a mount namespace of our own.
inline bool enterNamespace() {
    const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    const bool root = geteuid() == 0;
    return unshare(CLONE_NEWNS | (root ? 0 : CLONE_NEWUSER)) == 0 &&
           (root || (writeText("/proc/self/setgroups", "deny") &&
                     writeText("/proc/self/uid_map", "0 " + uid + " 1") &&
                     writeText("/proc/self/gid_map", "0 " + gid + " 1"))) &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Puts an empty "/dev" in place, again for each test. Why there can be none; empty when there is.
inline std::string ownDev() {
    static const bool entered = enterNamespace();
    if (entered && mount("own", "/dev", "tmpfs", 0, nullptr) == 0)
        return "";
    return std::string("no /dev of the test's own: ") + strerror(errno);
}

} // namespace idpfwd
