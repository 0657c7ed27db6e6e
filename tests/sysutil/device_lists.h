// What the tests of the device lists share.
#pragma once

#include "system_util.h"

#include "support/fixture.h"
#include "sysutil/mac_text.h"

#include <array>
#include <cstring>
#include <sstream>
#include <string>

using Mac = std::array<unsigned char, 6>;

// The address A00B0000 and n as four hexadecimal digits; never all zero.
inline Mac macOf(int n) {
    return {0xA0, 0x0B, 0, 0, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
}

inline std::string nameIn(const char (&field)[32]) {
    return {field, strnlen(field, sizeof field)};
}

// An entry as text: address, numbers in the order of the settings, name.
inline std::string describe(const ac_mac_entry &entry) {
    std::ostringstream text;
    text << plain_mac(entry.mac).text << ' ' << entry.status << ' ' << entry.connType << ' '
         << entry.order << ' ' << nameIn(entry.devName);
    return text.str();
}

inline std::string describe(const iqos_dev_entry &entry) {
    std::ostringstream text;
    text << plain_mac(entry.mac).text << ' ' << entry.status << ' ' << entry.attr1 << ' '
         << entry.attr2 << ' ' << entry.attr3 << ' ' << nameIn(entry.devName);
    return text.str();
}

// Starts every test with lists loaded from no settings.
class DeviceLists : public rig::Fixture {
  protected:
    void SetUp() override {
        rig::Fixture::SetUp();
        if (!IsSkipped())
            load();
    }
    static std::string load() {
        return rig::standardOutput([] {
            EXPECT_EQ(load_ac_mac_list(), 0);
            EXPECT_EQ(load_iqos_list(), 0);
        });
    }
};
