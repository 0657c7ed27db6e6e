// The devices and applications that the history knows, by the numbers that it gave them.
#pragma once

#include "usage/sampling/reading.h"

#include <map>
#include <string_view>
#include <vector>

namespace usage {

struct Device {
    DeviceId id = kOthers;
    Mac mac{};
    std::string hostName;  // as the network knows it, may be empty
    std::string ownName;   // given by the owner, may be empty
    Seconds firstSeen = 0; // 0 while it was only named
    Seconds lastSeen = 0;
    bool changed = true; // since the last commit

    // The owner's name, else the host's, else the address.
    [[nodiscard]] std::string name() const;
};

struct Application {
    ApplicationId id = kOthers;
    ApplicationName name;
    bool changed = true;
};

class Directory {
  public:
    // The device of this address, added when it is not known.
    Device &device(const Mac &mac);

    [[nodiscard]] const Device *find(const Mac &mac) const;
    [[nodiscard]] const Device *find(DeviceId id) const;
    // All that a person may mean: the device of that address, or those of that name.
    [[nodiscard]] std::vector<DeviceId> meant(std::string_view text) const;

    ApplicationId application(const ApplicationName &name);
    [[nodiscard]] const ApplicationName *application(ApplicationId id) const;

    [[nodiscard]] const std::map<DeviceId, Device> &devices() const { return devices_; }
    [[nodiscard]] const std::map<ApplicationId, Application> &applications() const {
        return applications_;
    }

    // As they were kept.
    void restore(Device device);
    void restore(Application application);

    void remove(DeviceId id);
    // Devices that were removed since the last commit.
    [[nodiscard]] const std::vector<DeviceId> &removed() const { return removed_; }
    void markCommitted();
    // Everything is to be written again, into another store.
    void markChanged();

  private:
    void mark(bool changed);

    std::map<DeviceId, Device> devices_;
    std::map<Mac, DeviceId> byMac_;
    std::map<ApplicationId, Application> applications_;
    std::map<ApplicationName, ApplicationId> byName_;
    std::vector<DeviceId> removed_;
};

} // namespace usage
