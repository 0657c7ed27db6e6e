// The page's files, as they were compressed when the program was built.
#pragma once

#include "usage/http/http.h"

#include <optional>
#include <span>
#include <string_view>

namespace usage {

struct PageFile {
    std::string_view path; // "/page.js"; the page itself is "/"
    std::string_view type;
    std::string_view tag;  // for ETag, with its quotes
    std::string_view data; // compressed with gzip
};

std::span<const PageFile> pageFiles();

// The file at this path of the server, if there is one.
std::optional<HttpReply> pageReply(std::string_view path);

} // namespace usage
