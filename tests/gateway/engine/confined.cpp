// A process that is confined as the engine is, and then does one thing. Built without sanitizers,
// which make calls of their own.
#include "engine/confinement.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

// Files as the databases are written, a thread, memory, the network socket of an interface.
int work(bool packets) {
    FILE *file = fopen("beside", "w");
    const bool written = file != nullptr && fputs("text", file) >= 0 && fclose(file) == 0 &&
                         rename("beside", "whole") == 0;
    bool ran = false;
    std::thread([&ran] { ran = true; }).join();
    const bool opened = !packets || socket(AF_PACKET, SOCK_RAW, 0) >= 0 || errno == EPERM;
    return written && ran && opened ? 0 : 1;
}

int rightsLeft() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct sets[2] = {};
    syscall(SYS_capget, &header, sets);
    return static_cast<int>(sets[0].permitted | sets[0].inheritable | sets[1].permitted);
}

int act(const char *what, bool packets) {
    if (strcmp(what, "work") == 0)
        return work(packets);
    if (strcmp(what, "fork") == 0)
        return fork() < 0 ? 1 : 0;
    if (strcmp(what, "exec") == 0)
        return execl("/bin/true", "true", nullptr);
    if (strcmp(what, "connect") == 0)
        return socket(AF_INET, SOCK_STREAM, 0) < 0 ? 1 : 0;
    if (strcmp(what, "code") == 0)
        return mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) ==
                       MAP_FAILED
                   ? 1
                   : 0;
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    const idpfwd::Needs needs{.packets = argc > 2};
    idpfwd::dropRights(needs);
    const int left = rightsLeft();
    idpfwd::filterCalls(needs);
    if (argc > 1 && strcmp(argv[1], "rights") == 0)
        return left == (needs.packets && geteuid() == 0 ? 1 << CAP_NET_RAW : 0) ? 0 : 1;
    return argc > 1 ? act(argv[1], needs.packets) : 2;
}
