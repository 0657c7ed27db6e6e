#include "support/pattern.h"

#include <regex>

std::string rig::replaceEach(const std::string &text, const char *pattern,
                             const char *replacement) {
    return std::regex_replace(text, std::regex(pattern), replacement);
}
