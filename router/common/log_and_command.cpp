#include "common/quill_util.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char *kLogDevice = "/dev/aglog";
constexpr unsigned long kSetLogFilter = 0x40047B0C;
constexpr int kAllCategories = 65535;

constexpr int kFormattedSize = 1024;
constexpr std::size_t kSystemSize = 2048;
constexpr std::size_t kIndexedNameSize = 64;

int log_filter() {
    if (kelpNvramConfig_match("log_filter", "") != 0)
        return kAllCategories;
    return decimal_value(kelpNvramConfig_get("log_filter"));
}

int open_log(const char *function) {
    const int device = open(kLogDevice, O_RDWR);
    if (device < 0)
        printf("%s:open %s fail\n", function, kLogDevice);
    return device;
}

// The text of a wrapper's format, cut at its documented size; null when there is none.
[[gnu::format(printf, 1, 0)]] Allocated<char> formatted(const char *format, va_list args) {
    char *text = nullptr;
    const int length = fmtValloc(&text, kFormattedSize, format, args);
    if (length >= kFormattedSize)
        trace("cut from %d characters: %s\n", length, text != nullptr ? text : "");
    return Allocated<char>(text);
}

bool exists(const char *path) {
    struct stat ignored;
    return stat(path, &ignored) == 0;
}

} // namespace

int quillWriteLog(char *text, int length, int log_type) {
    if (((log_type >> 16) & log_filter()) == 0)
        return 0;
    const Descriptor device(open_log("quillWriteLog"));
    if (!device)
        return -1;
    if (length < 0)
        return 0;
    text[length] = '\0';
    // One write, text and NUL: the device takes each write as a line. A lost line is not retried.
    [[maybe_unused]] const ssize_t written =
        write(device.get(), text, static_cast<std::size_t>(length) + 1);
    return 0;
}

int quillSetLogFilter(uint32_t mask) {
    if (kelpNvramConfig_match("enable_extender_mode", "1") != 0)
        return 0;
    const Descriptor device(open_log("quillSetLogFilter"));
    if (!device)
        return -1;
    if (ioctl(device.get(), kSetLogFilter, &mask) < 0) {
        printf("%s:ioctl %s fail\n", "quillSetLogFilter", kLogDevice);
        return -1;
    }
    return 0;
}

int doSystem(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const Allocated<char> command = formatted(format, args);
    va_end(args);
    if (!command)
        return 0;
    trace("run: %s\n", command.get());
    return run_shell(command.get());
}

int SYSTEM(const char *format, ...) {
    char command[kSystemSize];
    va_list args;
    va_start(args, format);
    format_text_list(command, sizeof command, format, args);
    va_end(args);
    if (kelpNvramConfig_match("system_dbg", "1") != 0)
        printf("system: %s <", command);
    run_shell(command);
    usleep(1);
    return 0;
}

int doKillPid(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const Allocated<char> path = formatted(format, args);
    va_end(args);
    // A command that would be cut names another file.
    if (!path || strlen(path.get()) + strlen("kill `cat `") >= kFormattedSize)
        return 0;
    if (!exists(path.get()))
        return 0;
    doSystem("kill `cat %s`", path.get());
    doSystem("rm -f %s", path.get());
    return 0;
}

char *racat(const char *text, int number) {
    static char name[kIndexedNameSize];
    char built[kIndexedNameSize]; // text may be an earlier result
    format_text(built, sizeof built, "%s%1d", text, number);
    copy_text(name, built);
    return name;
}

int is_russian_case(void) {
    if (kelpNvramConfig_match("sku_name", "RU") != 0)
        return 1;
    if (kelpNvramConfig_match("sku_name", "WW") == 0)
        return 0;
    return kelpNvramConfig_match("gui_region", "Russian") != 0 ? 1 : 0;
}
