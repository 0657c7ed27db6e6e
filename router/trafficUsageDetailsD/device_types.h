// Names of device types for one report or one dump.
#pragma once

#include "dpi/conf_app.h"

#include <cstdint>

// Gives the names that getDeviceTypeByDeviceId would give, but loads the device type database only
// once in its life, at the first name asked for, and looks each pair of ids up once.
class DeviceTypes {
  public:
    DeviceTypes();
    DeviceTypes(const DeviceTypes &) = delete;
    DeviceTypes &operator=(const DeviceTypes &) = delete;
    ~DeviceTypes();

    // "unknown" for ids that the database does not have. The text lives as long as this object.
    const char *name(std::int32_t vendorId, std::int32_t typeId);

  private:
    struct Known {
        std::int32_t vendorId;
        std::int32_t typeId;
        const char *name;
    };

    const char *lookUp(std::int32_t vendorId, std::int32_t typeId);

    // As many as a full report can hold; what a longer dump has beyond that is looked up again.
    static constexpr int kCapacity = 294;
    Known known_[kCapacity];
    int count_ = 0;
    bool loaded_ = false;
    list_head database_;
};
