// A router program in C++, as somebody else would write it: found through find_package.
#include <awsjson_util.h>
#include <bd_util.h>
#include <conf_app.h>
#include <nat.h>
#include <nvram.h>

#include <cstdint>
#include <iostream>
#include <string>

int main() {
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
