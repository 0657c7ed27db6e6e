// A router program in C++, as somebody else would write it: found through find_package.
#include <awsjson_util.h>
#include <bd_util.h>
#include <conf_app.h>
#include <nat.h>
#include <nvram.h>
#include <quill_util.h>
#include <system_util.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

// A program's own, whatever the library calls what it has for itself ...
int run_shell(const char *) {
    abort();
}
bool parse_mac(const char *, unsigned char *) {
    abort();
}
// ... and the hook that a program may take over.
static int traces;
extern "C" void trace(const char *, ...) {
    ++traces;
}

int main() {
    unsigned char mac[6];
    getMacByString("a0:b1:c2:d3:e4:f5", mac);
    if (mac[5] != 0xf5 || doSystem("exit 3") != 3 << 8 || traces != 1)
        return 1;

    if (kelpNvramConfig_set("hw_rev", "B34K810A51") != 0)
        return 1;
    char revision[14];
    std::cout << "hardware revision " << get_hwRevision(revision) << '\n';

    list_head names = LIST_HEAD_INIT(names);
    if (search_app_inf(&names, 1, 2) != nullptr)
        return 1;

    const unsigned char bytes[] = {1, 2, 3};
    calculate_checksum(CHECKSUM_START, nullptr, 0);
    calculate_checksum(CHECKSUM_ADD, bytes, sizeof bytes);
    std::cout << "checksum " << calculate_checksum(CHECKSUM_FINISH, nullptr, 0) << '\n';

    std::uint32_t word = 0;
    if (agApi_feature_set(24) != 0 || agApi_feature_get(&word) != 0)
        return 1;
    std::cout << "NAT word " << word << '\n';
    return std::string(revision) == "V1H2" && word == 24 ? 0 : 1;
}
