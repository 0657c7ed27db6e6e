#include "usage/answers/api.h"

#include "usage/answers/question.h"
#include "usage/http/http_rules.h"
#include "usage/text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace usage {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kRoot = "/api/v1/";
constexpr const char *kDone = "{\"schema\":1}\n";
constexpr std::uint64_t kPieceSize = 1U << 18U; // of a backup, in one reply

HttpReply reply(std::string body) {
    HttpReply made;
    made.body = std::move(body);
    return made;
}

HttpReply done(bool committed) {
    if (committed)
        return reply(kDone);
    return errorReply(503, "store_full", "", "the store can't be written at the moment");
}

HttpReply notAllowed(const char *allowed) {
    HttpReply made =
        errorReply(405, "method_not_allowed", "", std::string("only ") + allowed + " here");
    made.headers.emplace_back("Allow", allowed);
    return made;
}

// Members of a body, each checked when it is taken.
class Body {
  public:
    Body(const std::string &text, std::initializer_list<std::string_view> names)
        : json_(Json::parse(text, nullptr, false)) {
        if (!json_.is_object())
            throw BadParameter("", "the body is no JSON object");
        for (const auto &[key, value] : json_.items()) {
            if (std::find(names.begin(), names.end(), key) == names.end())
                throw BadParameter(key, "there is no member '" + key + "'");
        }
    }

    [[nodiscard]] bool has(const char *name) const {
        return json_.contains(name) && !json_[name].is_null();
    }
    [[nodiscard]] std::string text(const char *name) const {
        if (!has(name) || !json_[name].is_string())
            throw BadParameter(name, std::string(name) + " needs a text");
        return json_[name].get<std::string>();
    }
    [[nodiscard]] std::uint64_t number(const char *name, std::uint64_t least,
                                       std::uint64_t most) const {
        if (!has(name) || !json_[name].is_number_unsigned() ||
            json_[name].get<std::uint64_t>() < least || json_[name].get<std::uint64_t>() > most)
            throw BadParameter(name, std::string(name) + " needs a whole number from " +
                                         std::to_string(least) + " to " + std::to_string(most));
        return json_[name].get<std::uint64_t>();
    }
    [[nodiscard]] Mac mac() const {
        const std::string given = text("mac");
        const auto mac = parseMac(given);
        if (!mac)
            throw BadParameter("mac", "'" + given + "' is no MAC address");
        return *mac;
    }

  private:
    Json json_;
};

HttpReply nameDevice(History &history, const Body &body) {
    const Mac mac = body.mac();
    return done(history.nameDevice(mac, body.has("name") ? cleanText(body.text("name")) : ""));
}

HttpReply forgetDevice(History &history, const Body &body) {
    const Mac mac = body.mac();
    if (history.present().directory.find(mac) == nullptr)
        return errorReply(404, "not_found", "mac", "no device " + macText(mac) + " is known");
    return done(history.forgetDevice(mac));
}

HttpReply changeQuota(History &history, const Body &body) {
    if (body.has("remove")) {
        const auto number = static_cast<std::int64_t>(body.number("remove", 1, INT64_MAX));
        const auto &quotas = history.present().quotas;
        const bool known = std::any_of(quotas.begin(), quotas.end(),
                                       [&](const Quota &quota) { return quota.number == number; });
        if (!known)
            return errorReply(404, "not_found", "remove",
                              "there is no quota " + std::to_string(number));
        return done(history.removeQuota(number));
    }
    Quota quota;
    if (body.has("mac"))
        quota.device = body.mac();
    quota.total = body.number("total", 1, INT64_MAX);
    const std::string per = body.text("per");
    if (per != "day" && per != "month")
        throw BadParameter("per", "per is day or month, not '" + per + "'");
    quota.per = per == "day" ? QuotaPeriod::kDay : QuotaPeriod::kMonth;
    if (body.has("starts_on"))
        quota.startsOn = static_cast<int>(body.number("starts_on", 1, 31));
    if (quota.per == QuotaPeriod::kDay && quota.startsOn != 1)
        throw BadParameter("starts_on", "starts_on is for months");
    if (!history.addQuota(quota))
        return done(false);
    return reply("{\"schema\":1,\"number\":" +
                 std::to_string(history.present().quotas.back().number) + "}\n");
}

} // namespace

Api::Api(std::function<View()> view, History *history, std::string backupFolder)
    : view_(std::move(view)), history_(history),
      backupFile_(std::move(backupFolder) + "/backup.db") {
    if (history_ != nullptr)
        removeBackup();
}

HttpReply Api::handle(const HttpRequest &request) {
    try {
        if (request.method == "GET")
            return get(request);
        if (request.method == "POST" && request.listener == Listener::kSocket)
            return post(request);
        return notAllowed(request.listener == Listener::kSocket ? "GET, POST" : "GET");
    } catch (const BadParameter &bad) {
        return errorReply(400, "bad_parameter", bad.parameter(), bad.what());
    } catch (const SqlError &error) {
        return errorReply(503, "store", "",
                          std::string("the store can't be read: ") + error.what());
    }
}

HttpReply Api::get(const HttpRequest &request) {
    const auto is = [&](std::string_view name) {
        return request.path.starts_with(kRoot) && request.path.substr(kRoot.size()) == name;
    };
    if (is("usage"))
        return usage(request);
    if (is("devices"))
        return devices(request);
    const bool onSocket = request.listener == Listener::kSocket;
    if (is("export") && onSocket)
        return exported(request);
    if (is("backup") && onSocket)
        return backupPiece(request);
    if (is("device") || is("forget") || is("quota") || is("commit"))
        return notAllowed("POST");
    allowOnly(request.parameters, {});
    if (is("now") && history_ == nullptr)
        return errorReply(503, "no_service", "", "the service does not run, so there is no now");
    if (is("now"))
        return reply(nowJson(view_()));
    if (is("quotas"))
        return reply(quotasJson(view_()));
    if (is("state"))
        return reply(stateJson(view_()));
    return errorReply(404, "not_found", "", "there is nothing at " + request.path);
}

HttpReply Api::post(const HttpRequest &request) {
    if (history_ == nullptr)
        return errorReply(503, "no_service", "",
                          "the service does not run, so nothing can be changed");
    allowOnly(request.parameters, {});
    const std::string &path = request.path;
    if (path == "/api/v1/device")
        return nameDevice(*history_, Body(request.body, {"mac", "name"}));
    if (path == "/api/v1/forget")
        return forgetDevice(*history_, Body(request.body, {"mac"}));
    if (path == "/api/v1/quota")
        return changeQuota(*history_,
                           Body(request.body, {"mac", "total", "per", "starts_on", "remove"}));
    if (path == "/api/v1/commit") {
        const Body nothing(request.body, {});
        return done(history_->commit());
    }
    if (path == "/api/v1/backup")
        return makeBackup();
    const HttpReply found = get({request.listener, "GET", path, {}, {}});
    return found.status == 404 ? found : notAllowed("GET");
}

HttpReply Api::usage(const HttpRequest &request) {
    const View view = view_();
    const AskedUsage asked = parseQuestion(request.parameters, view.present.directory, view.now);
    return reply(usageJson(view, asked.by, ask(view.present, view.store, asked.question)));
}

HttpReply Api::devices(const HttpRequest &request) {
    allowOnly(request.parameters, {"cursor"});
    std::optional<Mac> after;
    if (const std::string *cursor = valueOf(request.parameters, "cursor")) {
        after = parseMac(*cursor);
        if (!after)
            throw BadParameter("cursor", "'" + *cursor + "' is no cursor");
    }
    return reply(devicesJson(view_(), after));
}

HttpReply Api::exported(const HttpRequest &request) {
    allowOnly(request.parameters, {"after"});
    const std::string *after = valueOf(request.parameters, "after");
    const auto from = after == nullptr ? 0 : parseNumber(*after, kLatest);
    if (!from)
        throw BadParameter("after", "after needs seconds since the epoch");
    auto exported = exportLines(view_(), static_cast<Seconds>(*from));
    if (!exported)
        return errorReply(409, "given_up", "",
                          "periods were given up for coarser ones meanwhile: export once more");
    HttpReply made = reply(std::move(exported->lines));
    made.type = "application/x-ndjson";
    if (exported->next)
        made.headers.emplace_back("X-Next", std::to_string(*exported->next));
    return made;
}

void Api::removeBackup() const {
    std::error_code ignored;
    std::filesystem::remove(backupFile_, ignored);
}

// The service makes the copy and hands it out in pieces: it may well not be allowed to write where
// the caller wants it.
HttpReply Api::makeBackup() {
    history_->commit();
    removeBackup();
    try {
        history_->store().backUp(backupFile_);
    } catch (const SqlError &) {
        removeBackup(); // the room that it takes may be what is missing
        throw;
    }
    return reply("{\"schema\":1,\"copy\":" + std::to_string(++copy_) +
                 ",\"size\":" + std::to_string(std::filesystem::file_size(backupFile_)) + "}\n");
}

HttpReply Api::backupPiece(const HttpRequest &request) {
    allowOnly(request.parameters, {"copy", "from"});
    const auto number = [&](const char *name) {
        const std::string *text = valueOf(request.parameters, name);
        const auto value = text == nullptr ? std::nullopt : parseNumber(*text, INT64_MAX);
        if (!value)
            throw BadParameter(name, std::string(name) + " needs a number");
        return *value;
    };
    const std::uint64_t copy = number("copy");
    const std::uint64_t from = number("from");
    std::ifstream file(backupFile_, std::ios::binary);
    if (!file || copy != copy_)
        return errorReply(404, "not_found", "", "that copy is gone: another backup was begun");
    file.seekg(static_cast<std::streamoff>(from));
    HttpReply made;
    made.type = "application/octet-stream";
    made.body.resize(kPieceSize);
    file.read(made.body.data(), static_cast<std::streamsize>(made.body.size()));
    made.body.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    if (made.body.size() < kPieceSize)
        removeBackup();
    return made;
}

} // namespace usage
