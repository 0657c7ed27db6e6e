// What the HTTP server refuses before anybody is asked, and what it says about every reply.
#pragma once

#include "usage/http/http.h"

#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace usage {

// An error as all of the API's errors look. The parameter may be empty: then it is left out.
HttpReply errorReply(int status, std::string_view code, std::string_view parameter,
                     std::string_view message);

// True for a Host header that can't be a foreign page's name for this machine: an address, this
// machine's name (alone or below local, lan and home.arpa), or localhost; with or without a port.
bool isOwnHost(std::string_view host, std::string_view machine);

// True when an Accept-Encoding header lets a reply be compressed with gzip.
bool acceptsGzip(std::string_view acceptEncoding);

// The headers that go with every reply: what a browser may do with it.
std::span<const std::pair<const char *, const char *>> policyHeaders();

// Undoes gzip. Throws std::runtime_error on anything else.
std::string unzipped(std::string_view compressed);

} // namespace usage
