#include "trafficUsageDetailsD/device_types.h"

DeviceTypes::DeviceTypes() {
    list_init(&database_);
}

DeviceTypes::~DeviceTypes() {
    free_dev_os(&database_);
}

const char *DeviceTypes::lookUp(std::int32_t vendorId, std::int32_t typeId) {
    if (!loaded_) {
        loaded_ = true;
        init_dev_os(&database_); // without a database every name is "unknown"
    }
    const dev_os *device = search_dev_os(&database_, static_cast<unsigned int>(vendorId), 0, 0,
                                         static_cast<unsigned int>(typeId), 0, 0);
    return device == nullptr ? "unknown" : device->type_name;
}

const char *DeviceTypes::name(std::int32_t vendorId, std::int32_t typeId) {
    for (int i = 0; i < count_; ++i) {
        if (known_[i].vendorId == vendorId && known_[i].typeId == typeId)
            return known_[i].name;
    }
    const char *name = lookUp(vendorId, typeId);
    if (count_ < kCapacity)
        known_[count_++] = {vendorId, typeId, name};
    return name;
}
