// The engine behind "/dev/idpfw", in memory.
#pragma once

#include "dpi/usr_ioctl.h"

#include <string>
#include <vector>

namespace rig {

struct FakeEngine {
    std::vector<devid_user_entry> users;
    std::vector<devid_app_rate_entry> rows;
    bool refusesUsers = false;
    bool refusesRows = false;
    unsigned int excessBytes = 0; // reported beyond what is written

    // Makes the device appear and answers its requests from here on.
    void plugIn();

    // A user with the MAC 02:00:00:00:00:<uid> and these device identifiers.
    void addUser(int uid, int vendorId = 0, int typeId = 0, int devId = 0);
    // A row of user uid; the last traffic was at second 1000.
    devid_app_rate_entry &addRow(int uid, int category, int application, std::uint64_t down,
                                 std::uint64_t up);
};

// Writes the engine's database files: one line each of "id,name" and "cat,app,0,name".
void writeNames(const std::string &categories, const std::string &applications);

} // namespace rig
