// The device lists as they stand in the settings. The input's lines are the texts of the settings,
// in the order below.
#include "fuzz/target.h"

#include "support/platform_fake.h"
#include "sysutil/system_util.h"

#include <cstring>
#include <iterator>
#include <string>

namespace {

void store_lines(const std::string &text) {
    rig::resetPlatform();
    std::size_t begin = 0;
    for (const char *family :
         {"ac_mac_list", "ac_dev_name", "ac_mac_order", "iqos_mac_list", "iqos_dev_name"}) {
        for (int key = 0; key < 4; ++key) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            rig::setSetting(family + std::to_string(key), text.substr(begin, end - begin));
            begin = std::min(end + 1, text.size());
        }
    }
}

// What was taken from the settings goes back as it was, but for what they have no room for.
template <typename Entry, std::size_t Size>
void require_lasting(Entry (&list)[Size], int (*load)(), int (*save)()) {
    FUZZ_REQUIRE(load() == 0);
    FUZZ_REQUIRE(save() == 0);
    FUZZ_REQUIRE(load() == 0);
    Entry once[Size];
    memcpy(static_cast<void *>(once), list, sizeof list);
    FUZZ_REQUIRE(save() == 0);
    FUZZ_REQUIRE(load() == 0);
    FUZZ_REQUIRE(memcmp(static_cast<const void *>(once), list, sizeof list) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    store_lines(text.substr(0, text.find('\0')));
    require_lasting(ac_mac_list, load_ac_mac_list, save_ac_mac_list);
    require_lasting(iqos_dev_list, load_iqos_list, save_iqos_list);
    char name[33];
    memset(name, '#', sizeof name);
    cgi_getDevNameFromACL(name, "A0:0B:00:00:00:01");
    FUZZ_REQUIRE(name[0] == '#' || memchr(name, '\0', sizeof name) != nullptr);
    return 0;
}
