// What the tests of the device lists share.
#pragma once

#include "system_util.h"

#include <array>
#include <cstring>
#include <string>

using Mac = std::array<unsigned char, 6>;

// The address of device n; never all zero.
inline Mac macOf(int n) {
    return {
        0xA0, 0x0B, 0x00, 0x00, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
}

inline Mac macOf(const unsigned char (&mac)[6]) {
    return std::to_array(mac);
}

inline std::string nameIn(const char (&field)[32]) {
    return {field, strnlen(field, sizeof field)};
}
