#include "usage/page/page_files.h"

#include <algorithm>

namespace usage {

std::optional<HttpReply> pageReply(std::string_view path) {
    const std::span<const PageFile> files = pageFiles();
    const auto file = std::ranges::find(files, path, &PageFile::path);
    if (file == files.end())
        return std::nullopt;
    // Asked for again each time, and sent again only after the program was exchanged.
    return HttpReply{.type = std::string(file->type),
                     .body = std::string(file->data),
                     .headers = {{"ETag", std::string(file->tag)},
                                 {"Cache-Control", "no-cache"},
                                 {"Content-Encoding", "gzip"},
                                 {"Vary", "Accept-Encoding"}}};
}

} // namespace usage
