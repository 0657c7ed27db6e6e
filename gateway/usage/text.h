// Texts from people and neighbours, and back.
#pragma once

#include "usage/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace usage {

// The length of the character at the start of a text, 0 when its bytes are no UTF-8: no surrogates,
// no longer form than needed, nothing above U+10FFFF.
std::size_t characterLength(std::string_view text);

// The text as valid UTF-8 without control characters: every byte that belongs to no character, and
// every control character, becomes U+FFFD. Cut to so many bytes, between characters.
std::string cleanText(std::string_view bytes, std::size_t atMost = 128);

// "02:00:5e:00:00:11".
std::string macText(const Mac &mac);

// Six groups of two hexadecimal digits in either case, joined by ':' or '-'; nothing for all else.
std::optional<Mac> parseMac(std::string_view text);

// A whole number of bytes, with an optional K, M, G, T or P (1024 each; also "KB", "KiB" and in
// lower case) and then also a fraction: "1.5G". Nothing for all else, and for what is too large.
std::optional<std::uint64_t> parseSize(std::string_view text);

// "1.5 GiB": at most six characters and the unit.
std::string humanSize(std::uint64_t bytes);

// A whole number of at most this size, digits only.
std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t atMost = UINT64_MAX);

// For a URL: every byte that may mean something there as "%" and two digits.
std::string percentEncoded(std::string_view text);

// Without regard to the case of ASCII letters.
bool sameText(std::string_view a, std::string_view b);

} // namespace usage
