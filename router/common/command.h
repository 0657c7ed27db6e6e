// The one place where commands are run.
#pragma once

#include <cstddef>

inline namespace routerutil {

// The largest command that any caller can ask room for, terminator included.
constexpr std::size_t kLargestCommand = 2048;

// Formats a shell command and runs it through system(), after flushing standard output so that the
// command's own output follows what was printed before.
//
// The format knows %s, %d, %u and %%, without flags or widths. Each %s is text from outside: it
// stands in the command as it is while it holds only letters, digits and _ . / : @ % + = , - and
// does not begin with '-'; any other text is put in single quotes, so that it can never start
// another command. An empty text stands for nothing, not for an empty word: a caller to whom the
// difference matters has to look first.
//
// A command of buffer_size characters or more (buffer_size is at most kLargestCommand) is not run.
//
// Returns the status of system(), or -1 when the command was refused (errno is EINVAL then) or
// could not be started.
[[gnu::format(printf, 2, 3)]] int run_command(std::size_t buffer_size, const char *format, ...);

// The command line that run_command would run, for callers that print it first. destination has
// size bytes (at least 1). False when it was refused; destination is then empty.
[[gnu::format(printf, 3, 4)]] bool format_command(char *destination, std::size_t size,
                                                  const char *format, ...);

// Runs a finished command line: flushes standard output, then system(). Returns its status.
int run_shell(const char *command_line);

// Whether the command ran whose status was returned just before. In a process that ignores SIGCHLD
// commands run like in any other, but system() has no status to give and fails with ECHILD.
bool has_run(int status);

// Runs a program with an argument vector (NULL at its end), found on the PATH, without a shell:
// flushes standard output, then waits. What the program prints goes to the end of output_path, a
// device or file that exists already; where it cannot be opened, the program prints where its
// caller does. Returns the status as system() does (127 as exit code when there is no such
// program), or -1 when no process could be started or waited for.
int run_program(const char *const arguments[], const char *output_path);

} // namespace routerutil
