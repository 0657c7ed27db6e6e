#include "engine/packets/application_names.h"

#include "engine/packets/dhcp_devices.h"

#include <algorithm>
#include <set>

namespace idpfwd {
namespace {

char loadable(char letter) {
    if (letter == '0')
        return 'O';
    const auto code = static_cast<unsigned char>(letter);
    const bool plain =
        code >= ' ' && code < 0x7f && letter != '\\' && letter != ',' && letter != '"';
    return plain ? letter : '_';
}

std::string spelled(std::string text, std::size_t most) {
    if (text.size() > most)
        text.resize(most);
    std::transform(text.begin(), text.end(), text.begin(), loadable);
    return text;
}

// A name that is not among the taken ones yet, and is from now on.
std::string distinct(const std::string &wanted, std::set<std::string> &taken) {
    const std::string whole = wanted.empty() ? "Unnamed" : wanted;
    std::string name = spelled(whole, NameTable::kMaxName);
    for (int number = 2; !taken.insert(name).second; number++) {
        const std::string suffix = spelled(" " + std::to_string(number), NameTable::kMaxName);
        name = spelled(whole, NameTable::kMaxName - suffix.size()) + suffix;
    }
    return name;
}

} // namespace

NameTable::NameTable(std::span<const NamedApplication> applications,
                     std::span<const NamedCategory> categories) {
    std::map<std::uint8_t, std::set<std::string>> taken;
    for (const NamedApplication &named : applications) {
        const Application &key = named.application;
        applications_[key.category][key.id] = distinct(named.name, taken[key.category]);
    }
    std::set<std::string> takenCategories;
    for (const NamedCategory &named : categories)
        categories_[named.id] = distinct(named.name, takenCategories);
}

std::string NameTable::application(const Application &application) const {
    const auto category = applications_.find(application.category);
    if (category == applications_.end())
        return "";
    const auto name = category->second.find(application.id);
    return name == category->second.end() ? "" : name->second;
}

std::string NameTable::category(std::uint8_t id) const {
    const auto name = categories_.find(id);
    return name == categories_.end() ? "" : name->second;
}

DatabaseTexts NameTable::databases() const {
    DatabaseTexts texts;
    for (const auto &[category, applications] : applications_)
        for (const auto &[id, name] : applications)
            texts.addApplication(category, id, 0, name);
    for (const auto &[id, name] : categories_)
        texts.addCategory(id, name);
    for (const DeviceKind &kind : deviceKinds())
        texts.addDevice(kind.ids, {std::string(kind.vendor), std::string(kind.os),
                                   std::string(kind.deviceClass), std::string(kind.type),
                                   std::string(kind.device), std::string(kind.family)});
    return texts;
}

} // namespace idpfwd
