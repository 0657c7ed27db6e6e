// The manual priorities in the QoS service's configuration file.
#include "sysutil/iqos.h"

#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "sysutil/mac_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr char kConfig[] = "/tmp/trend/qos.conf";
constexpr char kTemporary[] = "/tmp/trend/qos.conf.tmp";
constexpr char kConsole[] = "/dev/console";
constexpr int kLineSize = 255;

void copy_file(const char *from, const char *to) {
    const char *const copy[] = {"cp", from, to, nullptr};
    run_program(copy, kConsole);
}

// The temporary copy to read from and the configuration to write to; neither when a file failed.
struct RewriteFiles {
    File from;
    File to;
};

// Whether the copy lacks something of what it is a copy of. A missing one is no cut one.
bool is_cut(FILE *original) {
    struct stat of_original;
    struct stat of_copy;
    return stat(kTemporary, &of_copy) == 0 &&
           (fstat(fileno(original), &of_original) != 0 || of_copy.st_size != of_original.st_size);
}

// Opens the configuration, or makes an empty one. It is truncated only beside a whole copy of it:
// an older one must not be taken for that, so it goes first.
RewriteFiles open_for_rewrite() {
    unlink(kTemporary);
    copy_file(kConfig, kTemporary);
    File to(fopen(kConfig, "a"));
    if (!to) {
        perror("fopen IQOS_QOS_CONF_PATH");
        return {};
    }
    if (is_cut(to.get())) {
        errno = ENOSPC;
        perror("fopen IQOS_TMP_QOS_CONF_PATH");
        return {};
    }
    File from(fopen(kTemporary, "r"));
    if (!from) {
        const int reason = errno;
        to.reset();
        copy_file(kTemporary, kConfig);
        errno = reason;
        perror("fopen IQOS_TMP_QOS_CONF_PATH");
        return {};
    }
    if (ftruncate(fileno(to.get()), 0) != 0) {
        perror("fopen IQOS_QOS_CONF_PATH");
        return {};
    }
    return {std::move(from), std::move(to)};
}

// Closes the new configuration; one that is not whole is replaced by its copy again.
bool finish(RewriteFiles &files) {
    const bool written = ferror(files.from.get()) == 0 && ferror(files.to.get()) == 0;
    if (fclose(files.to.release()) == 0 && written)
        return true;
    perror("fopen IQOS_QOS_CONF_PATH");
    copy_file(kTemporary, kConfig);
    return false;
}

// Takes the device out of every group.
bool drop_device(const MacText &mac) {
    RewriteFiles files = open_for_rewrite();
    if (!files.to)
        return false;
    char line[kLineSize];
    while (read_line(files.from.get(), line, sizeof line)) {
        if (stristr(line, mac.text) == nullptr)
            fputs(line, files.to.get());
    }
    return finish(files);
}

// Adds the device after every line with the tag: behind the line's end, also where the line is
// longer than the buffer or the file does not end in a newline.
bool add_device(const MacText &mac, const char *tag) {
    RewriteFiles files = open_for_rewrite();
    if (!files.to)
        return false;
    bool tagged = false;
    char line[kLineSize];
    while (read_line(files.from.get(), line, sizeof line)) {
        fputs(line, files.to.get());
        tagged = tagged || stristr(line, tag) != nullptr;
        if (tagged && strchr(line, '\n') != nullptr) {
            fprintf(files.to.get(), "mac= %s\n", mac.text);
            tagged = false;
        }
    }
    if (tagged)
        fprintf(files.to.get(), "\nmac= %s\n", mac.text);
    return finish(files);
}

} // namespace

int iqos_set_priority_by_mac(int priority, const unsigned char mac[6]) {
    const MacText text = plain_mac(mac);
    char tag[24];
    format_text(tag, sizeof tag, "{%lld}", 3LL - priority);
    return drop_device(text) && add_device(text, tag) ? 0 : -1;
}

int is_iqos_manual_priority(const unsigned char mac[6]) {
    if (mac == nullptr)
        return 0;
    const File file(fopen(kConfig, "r"));
    if (!file) {
        perror("fopen /tmp/trend/qos.conf");
        return 0;
    }
    const MacText text = plain_mac(mac);
    char line[kLineSize];
    while (read_line(file.get(), line, sizeof line)) {
        if (stristr(line, text.text) != nullptr)
            return 1;
    }
    return 0;
}
