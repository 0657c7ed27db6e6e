#include "usage/settings.h"

#include "common/file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace usage {
namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void fail(const std::string &file, const std::string &why) {
    throw std::runtime_error(file + ": " + why);
}

// The group that the packaged service runs in may read it; a file that was there keeps its own.
void giveToService(int descriptor, const std::string &file) {
    struct stat before {};
    const bool replaced = stat(file.c_str(), &before) == 0;
    const group *service = getgrnam("traffic-usage");
    const gid_t own = service == nullptr ? getegid() : service->gr_gid;
    if (fchown(descriptor, replaced ? before.st_uid : geteuid(), replaced ? before.st_gid : own) !=
        0)
        fail(file, strerror(errno));
}

void writeWhole(const std::string &file, const std::string &text) {
    const std::string fresh = file + ".new";
    unlink(fresh.c_str());
    const Descriptor out(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    if (!out)
        fail(fresh, strerror(errno));
    giveToService(out.get(), file);
    if (write(out.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(out.get()) != 0 || rename(fresh.c_str(), file.c_str()) != 0)
        fail(file, strerror(errno));
    const std::string folder = std::filesystem::path(file).parent_path();
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fsync(opened.get());
}

} // namespace

std::string settingsFile(const std::string &instance) {
    return "/etc/traffic-usage/" + instance + ".json";
}

Settings readSettings(const std::string &file) {
    Settings settings;
    if (access(file.c_str(), F_OK) != 0 && errno == ENOENT)
        return settings;
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    if (!in)
        fail(file, "it can't be read");
    try {
        const Json json = Json::parse(text.str());
        settings.listen = json.value("listen", "");
        settings.passwordHash = json.value("password", "");
        const Json messages = json.value("messages", Json::object());
        settings.messages.host = messages.value("host", "");
        const auto port = messages.value("port", std::int64_t{settings.messages.port});
        if (port < 1 || port > UINT16_MAX)
            fail(file, "the port of the broker is from 1 to 65535");
        settings.messages.port = static_cast<std::uint16_t>(port);
        settings.messages.user = messages.value("user", "");
        settings.messages.password = messages.value("password", "");
    } catch (const Json::exception &error) {
        fail(file, error.what());
    }
    return settings;
}

void writeSettings(const std::string &file, const Settings &settings) {
    Json json{{"listen", settings.listen}, {"password", settings.passwordHash}};
    const MessageSettings &messages = settings.messages;
    if (!messages.host.empty())
        json["messages"] = {{"host", messages.host},
                            {"port", messages.port},
                            {"user", messages.user},
                            {"password", messages.password}};
    writeWhole(file, json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

} // namespace usage
