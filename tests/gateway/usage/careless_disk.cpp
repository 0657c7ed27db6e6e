#include "careless_disk.h"

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace usage::testing {

CarelessDisk disk;

namespace {

struct Write {
    std::size_t at;
    std::string bytes; // empty: the file is cut to this length
};

struct File {
    std::string synced;
    std::vector<Write> unsynced;
};

std::map<std::string, File> files; // of stores only, by their path

std::string contents(const std::string &path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

bool isOfStore(const std::string &path) {
    return path.find("/history.db") != std::string::npos;
}

std::string pathOf(int descriptor) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
}

// A step, which fails when there is no power, or no room for the bytes that it brings.
bool fails(bool bringsBytes) {
    const bool off = disk.steps++ >= disk.cutAt;
    errno = off ? EIO : ENOSPC;
    return off || (disk.full && bringsBytes);
}

template <typename Call>
Call systems(const char *name, Call) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

} // namespace

void CarelessDisk::renew() {
    *this = {};
    files.clear();
}

void CarelessDisk::restore(std::size_t survivingWrites) {
    cutAt = SIZE_MAX;
    for (auto &[path, file] : files) {
        std::string &now = file.synced;
        const std::size_t lost = file.unsynced.size();
        for (std::size_t i = lost - std::min(lost, survivingWrites); i < lost; ++i) {
            const auto &[at, bytes] = file.unsynced[i];
            now.resize(bytes.empty() ? std::min(now.size(), at)
                                     : std::max(now.size(), at + bytes.size()));
            now.replace(at, bytes.size(), bytes);
        }
        file.unsynced.clear();
        std::ofstream(path, std::ios::binary) << now;
    }
}

} // namespace usage::testing

using namespace usage::testing;

extern "C" ssize_t pwrite64(int descriptor, const void *bytes, size_t size, off64_t at) {
    if (const std::string path = pathOf(descriptor); isOfStore(path)) {
        if (fails(true))
            return -1;
        files[path].unsynced.push_back(
            {static_cast<std::size_t>(at), {static_cast<const char *>(bytes), size}});
    }
    return systems("pwrite64", &pwrite64)(descriptor, bytes, size, at);
}

extern "C" int ftruncate64(int descriptor, off64_t size) {
    if (const std::string path = pathOf(descriptor); isOfStore(path)) {
        if (fails(false))
            return -1;
        files[path].unsynced.push_back({static_cast<std::size_t>(size), ""});
    }
    return systems("ftruncate64", &ftruncate64)(descriptor, size);
}

extern "C" int fdatasync(int descriptor) {
    if (const std::string path = pathOf(descriptor); isOfStore(path)) {
        if (fails(false))
            return -1;
        files[path] = {contents(path), {}};
    }
    return 0;
}

extern "C" int unlink(const char *path) {
    if (isOfStore(path)) {
        if (disk.steps > disk.cutAt) {
            errno = EIO;
            return -1;
        }
        files.erase(path);
    }
    return systems("unlink", &unlink)(path);
}
