// The engine's database files: the formats that the loaders read, and files that other programs
// read while they are being replaced.
#pragma once

#include "dpi/usr_ioctl.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace idpfwd {

// The lines of the three files. Names stand in them as they are given.
struct DatabaseTexts {
    // Of the devices' names: vendor, OS, class, type, device, family, as the identifiers.
    using DeviceNames = std::array<std::string, 6>;

    void addApplication(std::uint8_t cat_id, std::uint16_t app_id, std::uint32_t behaviour,
                        std::string_view name);
    void addCategory(std::uint8_t cat_id, std::string_view name);
    void addDevice(const devid_os_detail &ids, const DeviceNames &names);

    std::string applications;
    std::string categories;
    std::string devices;
};

// Writes those of the three files that have a line into the directory. False, with the name of the
// file that failed and the reason in error.
bool writeDatabases(const std::string &directory, const DatabaseTexts &texts, std::string &error);

// Writes directory/name so that a reader finds the old file or the whole new one, never a part:
// temporary file beside it, rename. The directory is made if it is missing. False, with errno set
// and the old file as it was, when that fails.
bool writeWhole(const std::filesystem::path &directory, const std::string &name,
                const std::string &text);

} // namespace idpfwd
