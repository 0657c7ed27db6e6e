#include "support/platform_fake.h"

#include "platform/nat.h"
#include "platform/nvram.h"

#include <array>
#include <map>

namespace rig {
namespace {
std::map<std::string, std::string> store;
int saves;
bool refusing;
} // namespace

std::uint32_t natWord;
bool natReadFails;

void setSetting(const std::string &name, const std::string &value) {
    store[name] = value;
}

std::string setting(const std::string &name) {
    const auto found = store.find(name);
    return found == store.end() ? "" : found->second;
}

int settingSaves() {
    return saves;
}
void refuseSettings() {
    refusing = true;
}

void resetPlatform() {
    store.clear();
    saves = 0;
    refusing = natReadFails = false;
    natWord = 0;
}

} // namespace rig

// The text stays valid for 16 reads and no longer, as the platform promises.
const char *kelpNvramConfig_get(const char *name) {
    static std::array<std::string, 16> recent;
    static std::size_t next;
    std::string &slot = recent[next++ % recent.size()];
    slot = std::string(); // a stale pointer into the old text is caught by the sanitizer
    slot = rig::setting(name);
    return slot.c_str();
}

int kelpNvramConfig_match(const char *name, const char *value) {
    return rig::setting(name) == value ? 1 : 0;
}

int kelpNvramConfig_set(const char *name, const char *value) {
    if (rig::refusing)
        return -1;
    rig::setSetting(name, value);
    return 0;
}

int kelpNvramConfig_save(void) {
    ++rig::saves;
    return 0;
}

int agApi_feature_get(std::uint32_t *word) {
    if (rig::natReadFails)
        return -1;
    *word = rig::natWord;
    return 0;
}

int agApi_feature_set(std::uint32_t word) {
    rig::natWord = word;
    return 0;
}
