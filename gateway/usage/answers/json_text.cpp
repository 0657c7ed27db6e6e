#include "usage/answers/json_text.h"

namespace usage {

// All texts were made clean where they came in, so what is left to escape is a quote or a
// backslash.
void JsonText::quote(std::string_view text) {
    text_ += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\')
            text_ += '\\';
        text_ += c;
    }
    text_ += '"';
}

} // namespace usage
