#include "careless_vfs.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <sqlite3.h>
#include <string>
#include <utility>
#include <vector>

namespace usage::testing {
namespace {

struct Write {
    std::size_t at;
    std::string bytes; // empty: the file is cut to this length
};

struct Content {
    std::string synced;
    std::string now;
    std::vector<Write> unsynced;

    void apply(const Write &write) {
        if (write.bytes.empty()) {
            now.resize(std::min(now.size(), write.at));
            return;
        }
        now.resize(std::max(now.size(), write.at + write.bytes.size()));
        now.replace(write.at, write.bytes.size(), write.bytes);
    }
};

std::map<std::string, Content> files;
std::size_t taken = 0; // writes and syncs
std::size_t cutAt = CarelessVfs::kNever;
bool isFull = false;

bool powerIsOff() {
    return taken > cutAt;
}

struct OpenFile {
    sqlite3_file base;
    Content *content;
};

Content &contentOf(sqlite3_file *file) {
    return *reinterpret_cast<OpenFile *>(file)->content;
}

int change(sqlite3_file *file, const Write &write) {
    ++taken;
    if (powerIsOff())
        return SQLITE_IOERR_WRITE;
    if (isFull && !write.bytes.empty())
        return SQLITE_FULL;
    contentOf(file).apply(write);
    contentOf(file).unsynced.push_back(write);
    return SQLITE_OK;
}

int xClose(sqlite3_file *) {
    return SQLITE_OK;
}
int xRead(sqlite3_file *file, void *buffer, int size, sqlite3_int64 offset) {
    if (powerIsOff())
        return SQLITE_IOERR_READ;
    const std::string &now = contentOf(file).now;
    const auto at = static_cast<std::size_t>(offset);
    const auto wanted = static_cast<std::size_t>(size);
    memset(buffer, 0, wanted);
    const std::size_t there = at < now.size() ? std::min(wanted, now.size() - at) : 0;
    memcpy(buffer, now.data() + std::min(at, now.size()), there);
    return there == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}
int xWrite(sqlite3_file *file, const void *bytes, int size, sqlite3_int64 offset) {
    return change(file, {static_cast<std::size_t>(offset),
                         {static_cast<const char *>(bytes), static_cast<std::size_t>(size)}});
}
int xTruncate(sqlite3_file *file, sqlite3_int64 size) {
    return change(file, {static_cast<std::size_t>(size), {}});
}
int xSync(sqlite3_file *file, int) {
    ++taken;
    if (powerIsOff())
        return SQLITE_IOERR_FSYNC;
    Content &content = contentOf(file);
    content.synced = content.now;
    content.unsynced.clear();
    return SQLITE_OK;
}
int xFileSize(sqlite3_file *file, sqlite3_int64 *size) {
    *size = static_cast<sqlite3_int64>(contentOf(file).now.size());
    return SQLITE_OK;
}
int xLock(sqlite3_file *, int) {
    return SQLITE_OK;
}
int xCheckReservedLock(sqlite3_file *, int *reserved) {
    *reserved = 0;
    return SQLITE_OK;
}
int xFileControl(sqlite3_file *, int, void *) {
    return SQLITE_NOTFOUND;
}
int xSectorSize(sqlite3_file *) {
    return 4096;
}
int xDeviceCharacteristics(sqlite3_file *) {
    return 0;
}
// No more than a log in one process needs: version 1 has no shared memory.
const sqlite3_io_methods kMethodsOfFiles = [] {
    sqlite3_io_methods methods{};
    methods.iVersion = 2; // a log needs the methods of shared memory to be there, not to work
    methods.xClose = xClose;
    methods.xRead = xRead;
    methods.xWrite = xWrite;
    methods.xTruncate = xTruncate;
    methods.xSync = xSync;
    methods.xFileSize = xFileSize;
    methods.xLock = xLock;
    methods.xUnlock = xLock;
    methods.xCheckReservedLock = xCheckReservedLock;
    methods.xFileControl = xFileControl;
    methods.xSectorSize = xSectorSize;
    methods.xDeviceCharacteristics = xDeviceCharacteristics;
    methods.xShmMap = [](sqlite3_file *, int, int, int, void volatile **) { return SQLITE_IOERR; };
    methods.xShmLock = [](sqlite3_file *, int, int, int) { return SQLITE_IOERR; };
    methods.xShmBarrier = [](sqlite3_file *) {};
    methods.xShmUnmap = [](sqlite3_file *, int) { return SQLITE_OK; };
    return methods;
}();

int xOpen(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *flagsOut) {
    const std::string key = name != nullptr ? name : "";
    if (powerIsOff() || ((flags & SQLITE_OPEN_CREATE) == 0 && !files.contains(key)))
        return SQLITE_CANTOPEN;
    auto *opened = reinterpret_cast<OpenFile *>(file);
    opened->base.pMethods = &kMethodsOfFiles;
    opened->content = &files[key];
    if (flagsOut != nullptr)
        *flagsOut = flags;
    return SQLITE_OK;
}
int xDelete(sqlite3_vfs *, const char *name, int) {
    if (powerIsOff())
        return SQLITE_IOERR_DELETE;
    files.erase(name);
    return SQLITE_OK;
}
int xAccess(sqlite3_vfs *, const char *name, int, int *there) {
    *there = files.contains(name) ? 1 : 0;
    return SQLITE_OK;
}
int xFullPathname(sqlite3_vfs *, const char *name, int size, char *full) {
    snprintf(full, static_cast<std::size_t>(size), "%s", name);
    return SQLITE_OK;
}

sqlite3_vfs vfs;

} // namespace

CarelessVfs::CarelessVfs() {
    files.clear();
    taken = 0;
    cutAt = kNever;
    isFull = false;
    vfs = *sqlite3_vfs_find(nullptr); // time and random numbers are the ordinary ones
    vfs.pNext = nullptr;
    vfs.zName = kName;
    vfs.szOsFile = sizeof(OpenFile);
    vfs.xOpen = xOpen;
    vfs.xDelete = xDelete;
    vfs.xAccess = xAccess;
    vfs.xFullPathname = xFullPathname;
    sqlite3_vfs_register(&vfs, 0);
}

CarelessVfs::~CarelessVfs() {
    sqlite3_vfs_unregister(&vfs);
}

void CarelessVfs::cutAfter(std::size_t more) {
    cutAt = taken + more;
}

void CarelessVfs::restore(std::size_t survivingWrites) {
    cutAt = kNever;
    for (auto &[name, content] : files) {
        const std::vector<Write> lost = std::exchange(content.unsynced, {});
        content.now = content.synced;
        for (std::size_t i = lost.size() - std::min(lost.size(), survivingWrites); i < lost.size();
             ++i)
            content.apply(lost[i]);
        content.synced = content.now;
    }
}

void CarelessVfs::fill(bool full) {
    isFull = full;
}

std::size_t CarelessVfs::steps() const {
    return taken;
}

} // namespace usage::testing
