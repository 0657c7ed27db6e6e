// JSON as text, member after member: an answer may have 40,000 rows, and as a tree it would take a
// hundred times its size.
#pragma once

#include "usage/types.h"

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace usage {

class JsonText {
  public:
    JsonText &open(char bracket) {
        separate();
        text_ += bracket;
        first_ = true;
        return *this;
    }
    JsonText &close(char bracket) {
        text_ += bracket;
        first_ = false;
        return *this;
    }
    JsonText &key(std::string_view name) {
        separate();
        quote(name);
        text_ += ':';
        first_ = true; // no comma before the value
        return *this;
    }

    JsonText &value(std::string_view text) {
        separate();
        quote(text);
        return *this;
    }
    JsonText &value(const char *text) { return value(std::string_view(text)); }
    JsonText &value(bool truth) { return literal(truth ? "true" : "false"); }
    JsonText &value(std::integral auto number) { return literal(std::to_string(number)); }
    template <typename T>
    JsonText &value(const std::optional<T> &optional) {
        return optional ? value(*optional) : literal("null");
    }

    template <typename T>
    JsonText &member(std::string_view name, const T &what) {
        return key(name).value(what);
    }
    JsonText &member(std::string_view name, const Bytes &bytes) {
        return key(name).open('{').members(bytes).close('}');
    }
    JsonText &members(const Bytes &bytes) {
        return member("down", bytes.down).member("up", bytes.up);
    }

    [[nodiscard]] std::size_t size() const { return text_.size(); }

    // The document, with a newline at its end.
    std::string finish() { return std::move(text_) + "\n"; }

    // Ends a line of JSON; the next one begins.
    void endLine() {
        text_ += '\n';
        first_ = true;
    }
    std::string takeLines() { return std::move(text_); }

  private:
    void separate() {
        if (!first_)
            text_ += ',';
        first_ = false;
    }
    JsonText &literal(std::string_view text) {
        separate();
        text_ += text;
        return *this;
    }
    void quote(std::string_view text);

    std::string text_;
    bool first_ = true;
};

} // namespace usage
