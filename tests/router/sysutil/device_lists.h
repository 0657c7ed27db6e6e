// What the tests of the device lists share.
#pragma once

#include "system_util.h"

#include "support/fixture.h"
#include "sysutil/mac_text.h"

#include <array>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

// The address A00B0000 and n as four hexadecimal digits; never all zero.
inline const unsigned char *macOf(int n) {
    static std::map<int, std::array<unsigned char, 6>> known;
    known[n] = {
        0xA0, 0x0B, 0, 0, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
    return known[n].data();
}

// An entry as text: address, numbers in the order of the settings, name.
template <typename Entry, typename... Numbers>
std::string describe(const Entry &entry, Numbers... numbers) {
    std::ostringstream text;
    text << plain_mac(entry.mac).text << ' ' << entry.status << ' ';
    ((text << numbers << ' '), ...);
    return text.str().append(entry.devName, strnlen(entry.devName, sizeof entry.devName));
}
inline std::string describe(const ac_mac_entry &entry) {
    return describe(entry, entry.connType, entry.order);
}
inline std::string describe(const iqos_dev_entry &entry) {
    return describe(entry, entry.attr1, entry.attr2, entry.attr3);
}

inline void loadLists() {
    rig::standardOutput([] { EXPECT_EQ(load_ac_mac_list() + load_iqos_list(), 0); });
}

// Starts every test with lists loaded from no settings.
class DeviceLists : public rig::Fixture {
    void SetUp() override {
        rig::Fixture::SetUp();
        loadLists();
    }
};
