#include "common/file.h"
#include "platform/nvram.h"
#include "sysutil/timezone.h"
#include "trafficUsageDetailsD/monitor.h"
#include "trafficUsageDetailsD/record_buffer.h"

#include <csignal>
#include <cstdio>

namespace {

constexpr int kRefused = -1;

// What the rest of the router may send. The kernel refuses SIGKILL: the attempt is kept as it is.
constexpr int kSignals[] = {SIGUSR1, SIGTERM, SIGINT, SIGKILL, SIGUSR2};

// Nothing reads it: it tells whoever looks into the binary what is installed.
[[gnu::used, gnu::retain]] const char kVersion[] = "trafficUsageDetailsD " PROJECT_VERSION;

// The mere existence of the pid file is the lock: no pid is read, a stale file blocks as well.
bool isAlreadyRunning() {
    const File file(fopen(kPidFile, "r"));
    return file != nullptr;
}

} // namespace

int main(int argc, char **argv) {
    // The reports are echoed by commands on the same descriptor: whole lines keep the order.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (argc != 1) {
        showHelp(argc, argv);
        return kRefused;
    }
    // Deliberate: the daemon serves one market only.
    if (kelpNvramConfig_match("sku_name", "NA") != 1) {
        perror("trafficUsageDetailsD can only run in NA sku\n");
        return kRefused;
    }
    printf("MAX_ENTRY: %d\n", MAX_ENTRY);
    sys_set_timezone();
    for (const int number : kSignals)
        signal(number, sigHandler);
    if (isAlreadyRunning()) {
        puts("trafficUsageDetailsD already running.");
        return 0;
    }
    monitorTrafficUsage();
}
