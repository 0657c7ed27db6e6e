#include "ingest/clickhouse.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <curl/curl.h>
#include <stdexcept>

namespace fleet {
namespace {

// A slow store may take this long; the buffer is told meanwhile that the reports are being worked
// on.
constexpr long kLongestRequest = 90;
constexpr long kLongestConnect = 5;
// A question over all routers may take longer than any insert.
constexpr long kLongestStatement = 3600;

// "Code: 27, e.displayText() = DB::Exception: ..."; 0 where there is none.
int errorCode(std::string_view answer) {
    constexpr std::string_view kMark = "Code: ";
    const std::size_t at = answer.find(kMark);
    int code = 0;
    if (at != std::string_view::npos) {
        const char *begin = answer.data() + at + kMark.size();
        std::from_chars(begin, answer.data() + answer.size(), code);
    }
    return code;
}

std::size_t appendTo(char *data, std::size_t size, std::size_t count, void *text) {
    static_cast<std::string *>(text)->append(data, size * count);
    return size * count;
}

// The address with a parameter more.
std::string withParameter(const std::string &address, const std::string &parameter) {
    if (address.find('?') != std::string::npos)
        return address + "&" + parameter;
    const bool bare = address.find('/', address.find("//") + 2) == std::string::npos;
    return address + (bare ? "/?" : "?") + parameter;
}

} // namespace

bool refusesRows(std::string_view answer) {
    // Can't parse text, quoted string, escape, date, time, UUID, number, bool; unexpected end;
    // value out of range; illegal column; null where none may be; a string too large; no such
    // element of an enumeration.
    constexpr std::array kCodes = {6,  25, 26, 27,  28,  32,  33,  38,  41,  44,  53,
                                   69, 70, 72, 117, 131, 190, 321, 349, 376, 467, 691};
    // 18.16 has no code for that element but the one of its own faults.
    constexpr int kFault = 49;
    const int code = errorCode(answer);
    return std::find(kCodes.begin(), kCodes.end(), code) != kCodes.end() ||
           (code == kFault && answer.find("Unknown element") != std::string_view::npos);
}

struct Store::Handle {
    Handle() : curl(curl_easy_init()) {
        if (curl == nullptr)
            throw std::runtime_error("libcurl can't be used");
        headers = curl_slist_append(nullptr, "Expect:"); // no round trip before the body
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kLongestConnect);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendTo);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, tick);
    }
    ~Handle() {
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
    }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;

    static int tick(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        const auto &waiting = static_cast<Handle *>(self)->waiting;
        if (waiting)
            waiting();
        return 0;
    }

    CURL *curl;
    curl_slist *headers;
    std::function<void()> waiting;
};

Store::Store(std::vector<std::string> addresses)
    : addresses_(std::move(addresses)), handle_(std::make_unique<Handle>()) {
    if (addresses_.empty())
        throw std::invalid_argument("no address of the store");
}

Store::~Store() = default;

void Store::onWait(std::function<void()> callback) {
    handle_->waiting = std::move(callback);
}

Answer Store::post(std::size_t replica, const std::string &query, std::string_view body) {
    CURL *curl = handle_->curl;
    std::string url = addresses_[replica];
    if (!query.empty()) {
        char *escaped = curl_easy_escape(curl, query.data(), static_cast<int>(query.size()));
        url = withParameter(url, std::string("query=") + (escaped != nullptr ? escaped : ""));
        curl_free(escaped);
    }
    Answer answer;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, query.empty() ? kLongestStatement : kLongestRequest);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.text);
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK)
        answer.text = addresses_[replica].substr(0, addresses_[replica].find('?')) + ": " +
                      curl_easy_strerror(code);
    else if (status == 200)
        answer.result = StoreResult::kDone;
    else if (refusesRows(answer.text))
        answer.result = StoreResult::kRefused;
    return answer;
}

Answer Store::postAnywhere(const std::string &query, std::string_view body) {
    Answer answer;
    for (std::size_t tried = 0; tried < addresses_.size(); ++tried) {
        answer = post(preferred_, query, body);
        if (answer.result != StoreResult::kAway)
            break;
        preferred_ = (preferred_ + 1) % addresses_.size();
    }
    return answer;
}

Answer Store::ask(const std::string &statement) {
    return postAnywhere("", statement);
}

Answer Store::insert(const std::string &target, std::string_view rows) {
    if (rows.empty())
        return {.result = StoreResult::kDone, .text = {}};
    return postAnywhere("INSERT INTO " + target + " FORMAT TabSeparated", rows);
}

Answer Store::askReplica(std::size_t replica, const std::string &statement) {
    return post(replica, "", statement);
}

} // namespace fleet
