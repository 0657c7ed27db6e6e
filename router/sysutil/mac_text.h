// The text forms of a hardware address.
#pragma once

inline namespace routerutil {

struct MacText {
    char text[18];
};

// "A1B2C3D4E5F6"
MacText plain_mac(const unsigned char *mac);

// "A1:B2:C3:D4:E5:F6"
MacText upper_mac(const unsigned char *mac);

// "a1:b2:c3:d4:e5:f6"
MacText lower_mac(const unsigned char *mac);

} // namespace routerutil
