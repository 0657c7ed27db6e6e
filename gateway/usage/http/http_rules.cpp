#include "usage/http/http_rules.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <zlib.h>

namespace usage {
namespace {

constexpr std::array<std::pair<const char *, const char *>, 5> kPolicy{{
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; "
                                "img-src 'self'; connect-src 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
}};

std::string lowered(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return tolower(c); });
    return lower;
}

// The name of NAME, NAME:PORT or [IPV6]:PORT; "" when it is none of them.
std::string nameOf(std::string_view host) {
    const bool bracketed = host.starts_with('[');
    const std::size_t end = bracketed ? host.find(']') : std::min(host.find(':'), host.size());
    if (end == std::string_view::npos)
        return "";
    const std::string_view rest = host.substr(bracketed ? end + 1 : end);
    const std::string_view port = rest.substr(std::min<std::size_t>(rest.size(), 1));
    const bool whole =
        rest.empty() ||
        (rest[0] == ':' && std::ranges::all_of(port, [](char c) { return c >= '0' && c <= '9'; }));
    return whole ? lowered(host.substr(bracketed ? 1 : 0, end - (bracketed ? 1 : 0))) : "";
}

bool isAddress(const std::string &name) {
    in6_addr parsed{};
    return inet_pton(AF_INET, name.c_str(), &parsed) == 1 ||
           inet_pton(AF_INET6, name.c_str(), &parsed) == 1;
}

} // namespace

HttpReply errorReply(int status, std::string_view code, std::string_view parameter,
                     std::string_view message) {
    nlohmann::ordered_json error{{"code", code}};
    if (!parameter.empty())
        error["parameter"] = parameter;
    error["message"] = message;
    const nlohmann::ordered_json document{{"schema", 1}, {"error", error}};
    return {.status = status,
            .body = document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
            .headers = {}};
}

bool isOwnHost(std::string_view host, std::string_view machine) {
    std::string name = nameOf(host);
    if (name.ends_with('.'))
        name.pop_back();
    if (name == "localhost" || isAddress(name))
        return true;
    const std::string own = lowered(machine);
    const std::array<std::string, 4> names{own, own + ".local", own + ".lan", own + ".home.arpa"};
    return !own.empty() && std::ranges::find(names, name) != names.end();
}

bool acceptsGzip(std::string_view acceptEncoding) {
    const std::string accepted = lowered(acceptEncoding);
    const std::size_t at = accepted.find("gzip");
    if (at == std::string::npos)
        return false;
    std::string rest = accepted.substr(at + 4, accepted.find(',', at) - at - 4);
    std::erase(rest, ' ');
    return rest != ";q=0" && rest != ";q=0.0" && rest != ";q=0.00" && rest != ";q=0.000";
}

std::span<const std::pair<const char *, const char *>> policyHeaders() {
    return kPolicy;
}

std::string unzipped(std::string_view compressed) {
    constexpr int kGzipWindow = 15 + 16; // zlib's way to say: the largest window, and gzip's header
    z_stream stream{};
    if (inflateInit2(&stream, kGzipWindow) != Z_OK)
        throw std::runtime_error("cannot start to unzip");
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());
    std::string plain;
    std::array<char, 16384> piece{};
    int result = Z_OK;
    while (result == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef *>(piece.data());
        stream.avail_out = piece.size();
        result = inflate(&stream, Z_NO_FLUSH);
        plain.append(piece.data(), piece.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (result != Z_STREAM_END)
        throw std::runtime_error("cannot unzip");
    return plain;
}

} // namespace usage
