// Takes a database line apart as a scanf format would, without scanf's undefined corners: numbers
// too large for their type saturate, texts never pass their buffers.
#pragma once

#include <cstddef>
#include <cstdint>

inline namespace routerutil {

// Each step scans one conversion or literal. The first step that does not fit ends the scan: it and
// all later ones leave their destinations alone, as scanf does.
class LineScanner {
  public:
    explicit LineScanner(const char *line) : rest_(line) {}

    // "%d", kept in the unsigned field that the callers have for it. Blanks and one sign may stand
    // before the digits. Out of range gives the nearest value of a 32-bit int.
    LineScanner &signed_number(uint32_t &value);

    // "%u": as above; a minus sign negates modulo 2^32, out of range gives 4294967295.
    LineScanner &number(uint32_t &value);

    // One character of the format that is neither a blank nor a conversion.
    LineScanner &literal(char expected);

    // "%[^stops]": one character or more, up to one of the stops; at most Size - 1 of them.
    template <std::size_t Size>
    LineScanner &text_until(const char *stops, char (&text)[Size]) {
        return copy_until(stops, text, Size);
    }

    // "%s": a run of characters other than blanks, at most Size - 1, after any blanks.
    template <std::size_t Size>
    LineScanner &word(char (&text)[Size]) {
        skip_blanks();
        return copy_until(kBlanks, text, Size);
    }

  private:
    struct Digits {
        uint32_t value;
        bool negative;
        bool overflow;
    };

    static constexpr const char *kBlanks = " \t\n\v\f\r";

    void skip_blanks();
    bool scan_digits(Digits &digits);
    LineScanner &copy_until(const char *stops, char *text, std::size_t size);

    const char *rest_;
    bool fits_ = true;
};

} // namespace routerutil
