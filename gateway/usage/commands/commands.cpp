#include "usage/commands/commands.h"

#include "common/file.h"
#include "usage/answers/format.h"
#include "usage/store/store.h"
#include "usage/text.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>

namespace usage {
namespace {

using Json = nlohmann::json;

Json getJson(Service &service, const char *path, const Parameters &parameters = {}) {
    return Json::parse(service.get(path, parameters).body);
}

// What was written to standard output may be worth keeping: it says when it could not be.
int outputStatus() {
    std::cout.flush();
    if (std::cout)
        return 0;
    throw std::runtime_error(std::string("cannot write the output: ") + strerror(errno));
}

void writeAll(int file, const std::string &bytes, const std::string &name) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t more = write(file, bytes.data() + done, bytes.size() - done);
        if (more < 0)
            throw std::runtime_error("cannot write " + name + ": " + strerror(errno));
        done += static_cast<std::size_t>(more);
    }
}

// Asks for a backup, and for its pieces one after the other.
void receiveBackup(Service &service, int file, const std::string &name) {
    const Json copy = Json::parse(service.post("/api/v1/backup", "{}").body);
    const auto size = copy.at("size").get<std::uint64_t>();
    for (std::uint64_t done = 0; done < size;) {
        const Parameters next{{"copy", copy.at("copy").dump()}, {"from", std::to_string(done)}};
        const std::string piece = service.get("/api/v1/backup", next).body;
        if (piece.empty())
            throw std::runtime_error("the service's copy has ended too early");
        writeAll(file, piece, name);
        done += piece.size();
    }
}

} // namespace

int show(Service &service, const ShowOptions &options) {
    const std::string body = service.get("/api/v1/usage", options.parameters).body;
    if (options.format == "json")
        std::cout << body;
    else if (options.format == "csv")
        std::cout << usageCsv(Json::parse(body));
    else
        std::cout << usageTable(Json::parse(body), lookOfOutput());
    return outputStatus();
}

int nameDevice(Service &service, const std::string &mac, const std::string &name) {
    service.post("/api/v1/device", Json{{"mac", mac}, {"name", cleanText(name)}}.dump());
    return 0;
}

int forgetDevice(Service &service, const std::string &mac) {
    service.post("/api/v1/forget", Json{{"mac", mac}}.dump());
    return 0;
}

int setQuota(Service &service, const QuotaOptions &options) {
    const auto total = parseSize(options.total);
    if (!total || *total == 0)
        throw UsageError("--total needs a size like 500M or 1.5G, not '" + options.total + "'");
    Json body{{"total", *total}, {"per", options.per}, {"starts_on", options.startsOn}};
    body["mac"] = options.mac.empty() ? Json() : Json(options.mac);
    const Json reply = Json::parse(service.post("/api/v1/quota", body.dump()).body);
    std::cout << "quota " << reply["number"] << "\n";
    return outputStatus();
}

int listQuotas(Service &service, bool asJson) {
    const std::string body = service.get("/api/v1/quotas").body;
    std::cout << (asJson ? body : quotaTable(Json::parse(body), lookOfOutput()));
    return outputStatus();
}

int removeQuota(Service &service, std::uint64_t number) {
    service.post("/api/v1/quota", Json{{"remove", number}}.dump());
    return 0;
}

int checkQuotas(Service &service) {
    const Json quotas = getJson(service, "/api/v1/quotas");
    Json passed = quotas;
    passed["quotas"] = Json::array();
    for (const Json &quota : quotas["quotas"]) {
        if (quota["passed"])
            passed["quotas"].push_back(quota);
    }
    if (passed["quotas"].empty())
        return 0;
    std::cout << quotaTable(passed, lookOfOutput());
    outputStatus();
    return kQuotaPassed;
}

int exportHistory(Service &service) {
    Parameters parameters;
    for (;;) {
        const HttpReply reply = service.get("/api/v1/export", parameters);
        std::cout << reply.body;
        std::string next;
        for (const auto &[name, value] : reply.headers) {
            if (sameText(name, "X-Next"))
                next = value;
        }
        if (next.empty())
            return outputStatus();
        parameters = {{"after", next}};
    }
}

// Beside the file first: what was there before stays until all of the copy is safe.
int backUp(Service &service, const std::string &file) {
    const std::string fresh = file + ".new";
    const Descriptor written(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (!written)
        throw std::runtime_error("cannot make " + fresh + ": " + strerror(errno));
    try {
        receiveBackup(service, written.get(), fresh);
        if (fsync(written.get()) != 0 || rename(fresh.c_str(), file.c_str()) != 0)
            throw std::runtime_error("cannot write " + file + ": " + strerror(errno));
    } catch (const std::exception &) {
        unlink(fresh.c_str());
        throw;
    }
    return 0;
}

} // namespace usage
