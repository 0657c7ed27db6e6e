#include "engine/database_files.h"

#include "engine/database_writer.h"
#include "engine/dhcp_devices.h"

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

void appendQuoted(std::string &line, std::string_view name) {
    line += ",\"";
    line += name;
    line += '"';
}

std::string deviceLine(const DeviceKind &kind) {
    const devid_os_detail &ids = kind.ids;
    std::string line = std::to_string(ids.vendor_id);
    for (const unsigned id : {ids.os_id, ids.class_id, ids.type_id, ids.dev_id, ids.family_id})
        line += "," + std::to_string(id);
    for (const std::string_view name :
         {kind.vendor, kind.os, kind.deviceClass, kind.type, kind.device, kind.family})
        appendQuoted(line, name);
    return line + "\n";
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

std::string NameTable::applicationDatabase() const {
    std::string text;
    for (const auto &[category, applications] : applications_)
        for (const auto &[id, name] : applications)
            text += std::to_string(category) + "," + std::to_string(id) + ",0," + name + "\n";
    return text;
}

std::string NameTable::categoryDatabase() const {
    std::string text;
    for (const auto &[id, name] : categories_)
        text += std::to_string(id) + "," + name + "\n";
    return text;
}

std::string deviceDatabase() {
    std::string text;
    for (const DeviceKind &kind : deviceKinds())
        text += deviceLine(kind);
    return text;
}

bool writeDatabases(const std::string &directory, const NameTable &names, std::string &error) {
    const std::pair<const char *, std::string> files[] = {
        {"bwdpi.app.db", names.applicationDatabase()},
        {"bwdpi.cat.db", names.categoryDatabase()},
        {"bwdpi.devdb.db", deviceDatabase()},
    };
    for (const auto &[name, text] : files)
        if (!writeDatabase(directory, name, text)) {
            error = "cannot write " + directory + "/" + name;
            return false;
        }
    return true;
}

} // namespace idpfwd
