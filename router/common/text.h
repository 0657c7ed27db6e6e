// Bounded text handling for the helper libraries and the daemon.
#pragma once

#include <cstdarg>
#include <cstddef>

// What the library has for itself: a program's own functions of the same names are others.
inline namespace routerutil {

// Copies at most size - 1 bytes of source and always terminates; a size of 0 copies nothing.
void copy_text(char *destination, std::size_t size, const char *source);

template <std::size_t Size>
void copy_text(char (&destination)[Size], const char *source) {
    copy_text(destination, Size, source);
}

// Formats into destination, cut and terminated at size bytes. True when the whole text fitted.
[[gnu::format(printf, 3, 4)]] bool format_text(char *destination, std::size_t size,
                                               const char *format, ...);

// As format_text, with the arguments in a list; a format that fails gives an empty text.
[[gnu::format(printf, 3, 0)]] bool format_text_list(char *destination, std::size_t size,
                                                    const char *format, va_list arguments);

// Makes UTF-8 of a text in place: '?' takes the place of each byte that is none, and a character
// that is cut by the text's end goes.
void make_utf8(char *text);

// Reads six hexadecimal groups joined by colons, each as scanf's %2x does (one digit is enough),
// and ignores what follows them. False, with mac untouched, when a group is missing.
bool parse_mac(const char *text, unsigned char mac[6]);

// The leading number of text, fraction and exponent allowed, truncated toward zero. 0 when there is
// none, when it is not a number, or when it is out of the range of int.
int truncated_value(const char *text);

// The leading decimal number of text (blanks and one sign allowed before it), base 10, limited to
// the range of int. No digits, or no text, is 0.
int decimal_value(const char *text);

// The first place in text where part stands, compared without regard to ASCII case; nullptr when
// there is none.
const char *stristr(const char *text, const char *part);

} // namespace routerutil
