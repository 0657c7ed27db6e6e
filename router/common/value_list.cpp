#include "common/quill_util.h"

#include "common/file.h"
#include "platform/nvram.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr char kSeparator = ';';
constexpr int kFields = 9;
constexpr std::size_t kFieldSize = 256;
constexpr std::size_t kResultSize = 2048;
constexpr std::size_t kTokenSize = 128;
constexpr std::size_t kTokenizedSize = 16384;
constexpr std::size_t kListSize = 256;

// A text of bounded size under construction; what does not fit is cut, and remembered as cut.
template <std::size_t Size>
class BoundedText {
  public:
    void append(std::string_view text) {
        const std::size_t length = std::min(text.size(), Size - 1 - length_);
        fits_ = fits_ && length == text.size();
        std::copy_n(text.data(), length, text_ + length_);
        length_ += length;
        text_[length_] = '\0';
    }
    [[nodiscard]] bool fits() const { return fits_; }
    [[nodiscard]] const char *text() const { return text_; }

  private:
    std::size_t length_ = 0;
    bool fits_ = true;
    char text_[Size] = {};
};

// The end of the field that begins here: the next separator, or the end of the text.
const char *field_end(const char *field, char separator) {
    while (*field != '\0' && *field != separator)
        ++field;
    return field;
}

std::string_view bounded_field(const char *begin, std::size_t length) {
    return {begin, std::min(length, kFieldSize)};
}

// Splits at up to eight separators; gives how many there were.
int split_fields(const char *text, std::array<std::string_view, kFields> &fields) {
    int count = 0;
    for (; count < kFields - 1; ++count) {
        const char *end = field_end(text, kSeparator);
        if (*end == '\0')
            break;
        fields[static_cast<std::size_t>(count)] =
            bounded_field(text, static_cast<std::size_t>(end - text));
        text = end + 1;
    }
    fields[static_cast<std::size_t>(count)] = bounded_field(text, strlen(text));
    return count;
}

using Token = char[kTokenSize];

using List = BoundedText<kListSize>;

List with_entry(const char *current, const char *value, const char *delimiter) {
    List list;
    list.append(current);
    if (*current != '\0')
        list.append(delimiter);
    list.append(value);
    return list;
}

// A delimiter is owed to the entry behind it, so that of a removed first entry stays, deliberately.
List without_entry(const Token *tokens, int count, const char *value, const char *delimiter) {
    List list;
    for (int i = 0; i < count; ++i) {
        if (strcmp(tokens[i], value) != 0)
            list.append(tokens[i]);
        if (i + 1 < count && strcmp(tokens[i + 1], value) != 0)
            list.append(delimiter);
    }
    return list;
}

} // namespace

char *getNthValue(int n, char *s) {
    static char none[1];
    if (s == nullptr)
        return nullptr;
    char *token = strtok(s, ";");
    for (int i = 0; i < n && token != nullptr; ++i)
        token = strtok(nullptr, ";");
    none[0] = '\0';
    return token != nullptr ? token : none;
}

char *setNthValue(int n, const char *text, const char *value) {
    static char result[kResultSize];
    std::array<std::string_view, kFields> fields{};
    int last = split_fields(text, fields);
    if (n >= 0 && n < kFields) {
        fields[static_cast<std::size_t>(n)] = bounded_field(value, strlen(value));
        last = std::max(last, n);
    }
    // Built beside the result, which may be what text or value point into.
    BoundedText<kResultSize> built;
    built.append(fields[0]);
    for (int i = 1; i <= last; ++i) {
        built.append(";");
        built.append(fields[static_cast<std::size_t>(i)]);
    }
    memcpy(result, built.text(), sizeof result);
    return result;
}

int getValueCount(const char *text) {
    if (text == nullptr)
        return 0;
    if (*text == '\0')
        return 1;
    // The first character never counts, deliberately.
    return 1 + static_cast<int>(std::count(text + 1, text + strlen(text), kSeparator));
}

int checkSemicolon(const char *text) {
    return strchr(text, kSeparator) != nullptr ? 1 : 0;
}

int getNthValueSafe(int n, const char *text, char separator, char *out, int size) {
    if (text == nullptr || out == nullptr || size < 1)
        return -1;
    const char *end = field_end(text, separator);
    if (n < 0 && *end == '\0')
        return -1;
    for (int i = 0; i < n; ++i) {
        if (*end == '\0')
            return -1;
        text = end + 1;
        end = field_end(text, separator);
    }
    const auto length =
        std::min(static_cast<std::size_t>(end - text), static_cast<std::size_t>(size) - 1);
    memcpy(out, text, length);
    out[length] = '\0';
    return 0;
}

int deleteNthValueMulti(const int *indices, int count, char *text, char separator) {
    const int *next = indices;
    const int *const last = indices + std::max(count, 0);
    bool first_deleted = false;
    char *kept = text;
    const char *begin = text; // of a field other than the first: the separator before it
    for (int field = 0;; ++field) {
        const char *end = field_end(field == 0 ? begin : begin + 1, separator);
        if (next != last && *next == field) {
            first_deleted = first_deleted || field == 0;
            ++next;
        } else {
            memmove(kept, begin, static_cast<std::size_t>(end - begin));
            kept += end - begin;
        }
        if (*end == '\0')
            break;
        begin = end;
    }
    *kept = '\0';
    // Looks for ";" whatever the separator is, deliberately.
    if (first_deleted && *text == kSeparator)
        memmove(text, text + 1, static_cast<std::size_t>(kept - text));
    return 0;
}

int getTokens(const char *text, const char *delimiters, char (*tokens)[128], int max) {
    if (text == nullptr || *text == '\0' || max < 1)
        return 0;
    const char *const end = text + strnlen(text, kTokenizedSize - 1);
    int count = 0;
    while (count < max) {
        text += strspn(text, delimiters);
        if (text >= end)
            break;
        const auto length =
            std::min(strcspn(text, delimiters), static_cast<std::size_t>(end - text));
        const auto stored = std::min(length, kTokenSize - 1);
        memcpy(tokens[count], text, stored);
        tokens[count++][stored] = '\0';
        text += length;
    }
    for (int i = count; i < max; ++i)
        tokens[i][0] = '\0';
    return count;
}

int config_nvram_list(const char *name, const char *value, const char *delimiter, int action,
                      int max) {
    if (action < 0 || action > 1 || max < 1)
        return 0;
    const char *current = kelpNvramConfig_get(name);
    // No more slots than the text can fill: every token takes a character and a delimiter.
    const auto slots =
        std::min(static_cast<std::size_t>(max), strnlen(current, kTokenizedSize - 1) / 2 + 1);
    const Allocated<Token> tokens(static_cast<Token *>(calloc(slots, sizeof(Token))));
    if (!tokens)
        return 0;
    const int count = getTokens(current, delimiter, tokens.get(), static_cast<int>(slots));
    const bool present =
        std::any_of(tokens.get(), tokens.get() + count,
                    [value](const Token &token) { return strcmp(token, value) == 0; });
    if (present == (action == 1))
        return 0;
    const List list = action == 1 ? with_entry(current, value, delimiter)
                                  : without_entry(tokens.get(), count, value, delimiter);
    return list.fits() && kelpNvramConfig_set(name, list.text()) == 0 ? 1 : 0;
}
