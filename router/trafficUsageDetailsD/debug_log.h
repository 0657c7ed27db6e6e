// The daemon's debug log.
#pragma once

// Prints to standard output while the setting "tud_dbg" is "1"; the setting is consulted on every
// call. The expanded text (cut at 4,095 characters) goes out as it would through a second printing
// as a format: "%%" becomes "%", every other conversion that data brought along is swallowed.
// Callers put their own newline and their own "%s(%d) " prefix.
[[gnu::format(printf, 1, 2)]] void tud_dbg(const char *format, ...);
