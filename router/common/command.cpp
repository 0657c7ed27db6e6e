#include "common/command.h"

#include "common/file.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

inline namespace routerutil {

namespace {

// A command line under construction in its caller's buffer; remembers whether everything fitted.
class CommandLine {
  public:
    CommandLine(char *text, std::size_t size) : text_(text), size_(size) { *text_ = '\0'; }

    void add(char c) {
        if (length_ + 1 < size_) {
            text_[length_] = c;
            text_[++length_] = '\0';
        } else {
            fits_ = false;
        }
    }

    void add(std::string_view text) {
        for (const char c : text)
            add(c);
    }

    template <typename Integer>
    void add_number(Integer value) {
        char digits[16];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }

    void add_word(std::string_view text) {
        if (is_plain(text)) {
            add(text);
            return;
        }
        add('\'');
        for (const char c : text) {
            if (c == '\'')
                add("'\\''");
            else
                add(c);
        }
        add('\'');
    }

    [[nodiscard]] bool fits() const { return fits_; }

  private:
    static bool is_plain(std::string_view text) {
        if (text.starts_with('-'))
            return false;
        for (const char c : text) {
            if (isalnum(static_cast<unsigned char>(c)) == 0 && strchr("_./:@%+=,-", c) == nullptr)
                return false;
        }
        return true;
    }

    char *text_;
    std::size_t size_;
    std::size_t length_ = 0;
    bool fits_ = true;
};

// False when something did not fit, or the format asks for a conversion that is not known here.
bool expand(CommandLine line, const char *format, va_list arguments) {
    for (const char *c = format; *c != '\0'; ++c) {
        if (*c != '%') {
            line.add(*c);
            continue;
        }
        switch (*++c) {
        case 's':
            line.add_word(va_arg(arguments, const char *));
            break;
        case 'd':
            line.add_number(va_arg(arguments, int));
            break;
        case 'u':
            line.add_number(va_arg(arguments, unsigned int));
            break;
        case '%':
            line.add('%');
            break;
        default:
            return false;
        }
    }
    return line.fits();
}

// In the child, where only calls that are safe after a fork are allowed.
[[noreturn]] void become_program(const char *const arguments[], const Descriptor &output) {
    if (output) {
        dup2(output.get(), STDOUT_FILENO);
        dup2(output.get(), STDERR_FILENO);
    }
    execvp(arguments[0], const_cast<char *const *>(arguments));
    _exit(127);
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

} // namespace

int run_shell(const char *command_line) {
    fflush(stdout);
    return system(command_line);
}

bool has_run(int status) {
    return status != -1 || errno == ECHILD;
}

bool format_command(char *destination, std::size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool complete = expand(CommandLine(destination, size), format, arguments);
    va_end(arguments);
    if (!complete)
        *destination = '\0';
    return complete;
}

int run_command(std::size_t buffer_size, const char *format, ...) {
    char line[kLargestCommand];
    const std::size_t size = buffer_size < sizeof line ? buffer_size : sizeof line;
    va_list arguments;
    va_start(arguments, format);
    const bool complete = expand(CommandLine(line, size), format, arguments);
    va_end(arguments);
    if (!complete) {
        errno = EINVAL;
        return -1;
    }
    return run_shell(line);
}

int run_program(const char *const arguments[], const char *output_path) {
    const Descriptor output(open(output_path, O_WRONLY | O_APPEND | O_NOCTTY | O_CLOEXEC));
    fflush(stdout);
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0)
        become_program(arguments, output);
    return wait_for(child);
}

} // namespace routerutil
