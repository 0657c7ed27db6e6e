#include "engine/database_files.h"

#include "common/file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace idpfwd {
namespace {

bool writeAll(int descriptor, const std::string &text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            return false;
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return fchmod(descriptor, 0644) == 0 && fsync(descriptor) == 0;
}

} // namespace

void DatabaseTexts::addApplication(std::uint8_t cat_id, std::uint16_t app_id,
                                   std::uint32_t behaviour, std::string_view name) {
    applications += std::to_string(cat_id) + "," + std::to_string(app_id) + "," +
                    std::to_string(behaviour) + "," + std::string(name) + "\n";
}

void DatabaseTexts::addCategory(std::uint8_t cat_id, std::string_view name) {
    categories += std::to_string(cat_id) + "," + std::string(name) + "\n";
}

void DatabaseTexts::addDevice(const devid_os_detail &ids, const DeviceNames &names) {
    for (const std::uint16_t id :
         {ids.vendor_id, ids.os_id, ids.class_id, ids.type_id, ids.dev_id, ids.family_id})
        devices += std::to_string(id) + ",";
    for (const std::string &name : names)
        devices += "\"" + name + "\",";
    devices.back() = '\n';
}

bool writeDatabases(const std::string &directory, const DatabaseTexts &texts, std::string &error) {
    const std::pair<const char *, const std::string &> files[] = {
        {"bwdpi.app.db", texts.applications},
        {"bwdpi.cat.db", texts.categories},
        {"bwdpi.devdb.db", texts.devices},
    };
    for (const auto &[name, text] : files)
        if (!text.empty() && !writeWhole(directory, name, text)) {
            error = "cannot write " + directory + "/" + name + ": " + strerror(errno);
            return false;
        }
    return true;
}

bool writeWhole(const std::filesystem::path &directory, const std::string &name,
                const std::string &text) {
    std::error_code made;
    std::filesystem::create_directories(directory, made); // opening says why if it failed
    std::string temporary = directory / ("." + name + ".XXXXXX");
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        return false;
    if (!writeAll(file.get(), text) || rename(temporary.c_str(), (directory / name).c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        errno = error;
        return false;
    }
    const Descriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fsync(folder.get()); // the rename counts as done; a file system that cannot do this is fine
    return true;
}

} // namespace idpfwd
