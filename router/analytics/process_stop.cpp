#include "analytics/process_stop.h"

#include "analytics/firmware_settings.h"
#include "common/command.h"
#include "common/file.h"
#include "platform/nvram.h"
#include "sysutil/iqos_service.h"

#include <cstring>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char *kFileServers[] = {"bftpd", "smbd", "nmbd", "ntfs-3g", "minidlna.exe"};

// What an image leaves out is simply not found.
constexpr std::string_view kDaemons[] = {
    "aws_json",      "awsiotpub",     "mcs_publish", "trafficUsageDetailsD", // analytics
    "dev_detect",    "dev_scan",                                             // detection
    "crond",         "schedulerd",                                           // scheduling
    "syslogd",       "klogd",         "eventlogd",                           // logging
    "telnetd",       "remote_admin",                                         // remote access
    "cloud_agent",   "cloud_tunnel",                                         // cloud
    "upgrade_check", "upgrade_agent",                                        // upgrade
    "upnpd",         "ssdpd",                                                // UPnP
    "tr069_agent",                                                           // TR-069
    "wps_monitor",   "wps_ap",                                               // WPS
    "usb_monitor",   "usb_share",                                            // USB
    "print_server",                                                          // printing
    "media_server",  "media_scan",                                           // media
};

struct PortOpening {
    const char *rule;
    int port;
};

// The partner's media application, where it is installed.
constexpr const char *kPartnerPidFile = "/var/run/partner_media.pid";
constexpr const char *kPartnerDirectory = "/tmp/media/nand/partner_media";
constexpr const char *kPartnerBusybox = "/tmp/media/nand/partner_media/busybox";
constexpr const char *kPartnerScript = "/tmp/media/nand/partner_media/daemon.sh";
constexpr PortOpening kPartnerPorts[] = {
    {"partner_media_http", 42080},
    {"partner_media_https", 42443},
};

constexpr int kUnmountAttempts = 5;
constexpr std::size_t kCommandSize = 256;

int show_memory_and_processes() {
    run_shell("cat /proc/meminfo");
    return run_shell("ps");
}

void remove_temporary_files() {
    run_shell("rm /tmp/*log");
    run_shell("rm /tmp/*.cap");
    run_shell("rm /tmp/*.txt");
}

void stop_file_servers() {
    for (const char *name : kFileServers)
        run_command(kCommandSize, "killall -9 %s", name);
}

// The first field of every mount that has the application's path in its line.
void unmount_partner(FILE *mounts) {
    char line[128];
    while (read_line(mounts, line, sizeof line)) {
        if (strstr(line, kPartnerDirectory) == nullptr)
            continue;
        line[strcspn(line, " \n")] = '\0';
        run_command(kCommandSize, "umount %s", line);
    }
}

void unmount_partner() {
    for (int attempt = 0; attempt < kUnmountAttempts; ++attempt) {
        if (const File mounts{fopen("/proc/mounts", "r")}) {
            unmount_partner(mounts.get());
            return;
        }
        sleep(1);
    }
}

void stop_partner() {
    if (access(kPartnerPidFile, F_OK) != 0)
        return;
    unlink(kPartnerPidFile);
    run_command(kCommandSize, "%s sh %s stop", kPartnerBusybox, kPartnerScript);
    for (const auto &opening : kPartnerPorts)
        run_command(kCommandSize, "firewall delport %s TCP %d", opening.rule, opening.port);
    sleep(3);
    unmount_partner();
}

constexpr std::string_view kKill = "killall -9 ";
constexpr std::string_view kSilently = " >/dev/null 2>&1;";

constexpr std::size_t kKillLineSize = [] {
    std::size_t size = 0;
    for (const auto name : kDaemons)
        size += kKill.size() + name.size() + kSilently.size();
    return size; // the terminator takes the place of the last item's ';'
}();

// One command line for all of them: the rest is still killed when the caller is among them.
void stop_daemons() {
    char line[kKillLineSize];
    char *end = line;
    for (const auto name : kDaemons) {
        for (const auto part : {kKill, name, kSilently})
            end += part.copy(end, part.size());
    }
    end[-1] = '\0';
    run_shell(line);
}

} // namespace

int stop_process(void) {
    printf("/**** [RAE] To kill process ****/");
    show_memory_and_processes();
    remove_temporary_files();
    stop_file_servers();
    iqos_service("stop_iqos");
    sleep(1);
    stop_partner();
    stop_daemons();
    if (kelpNvramConfig_match("enable_circle_control", "1") == 1)
        run_shell("/mnt/shares/usr/bin/stopcircle");
    run_shell("/opt/bitdefender/bin/bd stop");
    printf("/**** [RAE] Done ****/");
    return show_memory_and_processes();
}

// The two messages differ by one blank, deliberately: that tells which of them it was.
void kill_process_if_need(void) {
    if (access("/opt/RA/fw_update_issue_fix.txt", F_OK) == 0) {
        printf("/****  [RAE] Don't need to kill process ****/");
        return;
    }
    if (kelpNvramConfig_match(kCheckResultSetting, kNoError) == 1 &&
        kelpNvramConfig_match(kTriggeredSetting, kTriggered) == 1) {
        stop_process();
        return;
    }
    printf("/**** [RAE] Don't need to kill process ****/");
}
