#include "usage/store/directory.h"

#include "usage/text.h"

namespace usage {
namespace {

template <typename Map>
std::uint32_t nextId(const Map &map) {
    return map.empty() ? kOthers + 1 : map.rbegin()->first + 1;
}

template <typename Map, typename Key>
auto *findIn(Map &map, const Key &key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

} // namespace

std::string Device::name() const {
    if (!ownName.empty())
        return ownName;
    return hostName.empty() ? macText(mac) : hostName;
}

Device &Directory::device(const Mac &mac) {
    const auto [known, isNew] = byMac_.try_emplace(mac, nextId(devices_));
    Device &device = devices_[known->second];
    if (isNew) {
        device.id = known->second;
        device.mac = mac;
    }
    return device;
}

const Device *Directory::find(const Mac &mac) const {
    const auto *id = findIn(byMac_, mac);
    return id == nullptr ? nullptr : find(*id);
}

const Device *Directory::find(DeviceId id) const {
    return findIn(devices_, id);
}

std::vector<DeviceId> Directory::meant(std::string_view text) const {
    std::vector<DeviceId> ids;
    const auto mac = parseMac(text);
    for (const auto &[id, device] : devices_) {
        if (mac ? device.mac == *mac : sameText(device.name(), text))
            ids.push_back(id);
    }
    return ids;
}

ApplicationId Directory::application(const ApplicationName &name) {
    const auto [known, isNew] = byName_.try_emplace(name, nextId(applications_));
    if (isNew)
        applications_[known->second] = {known->second, name};
    return known->second;
}

const ApplicationName *Directory::application(ApplicationId id) const {
    const auto *found = findIn(applications_, id);
    return found == nullptr ? nullptr : &found->name;
}

void Directory::restore(Device device) {
    byMac_[device.mac] = device.id;
    devices_[device.id] = std::move(device);
}

void Directory::restore(Application application) {
    byName_[application.name] = application.id;
    applications_[application.id] = std::move(application);
}

void Directory::remove(DeviceId id) {
    if (const Device *device = find(id))
        byMac_.erase(device->mac);
    if (devices_.erase(id) != 0)
        removed_.push_back(id);
}

void Directory::mark(bool changed) {
    for (auto &[id, device] : devices_)
        device.changed = changed;
    for (auto &[id, application] : applications_)
        application.changed = changed;
    removed_.clear();
}

void Directory::markCommitted() {
    mark(false);
}

void Directory::markChanged() {
    mark(true);
}

} // namespace usage
