#include "engine/confinement.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/prctl.h>
#ifdef IDPFWD_WITH_CAPNG
#include <cap-ng.h>
#endif
#if defined(IDPFWD_WITH_SECCOMP) && !defined(__SANITIZE_ADDRESS__)
#define FILTERS_CALLS
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#endif

namespace idpfwd {
namespace {

#if defined(IDPFWD_WITH_CAPNG) || defined(FILTERS_CALLS)
void complain(const char *what, const char *reason) {
    fprintf(stderr, "idpfwd: %s: %s\n", what, reason);
}
#endif

#ifdef FILTERS_CALLS
using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

// Of any arguments. Names that this machine's kernel has not are passed over: a machine of another
// word size has others for the same (mmap2, clock_gettime64).
constexpr const char *kAllowed[] = {
    // files: the databases and the dump, which are written beside and renamed
    "read", "readv", "pread64", "write", "writev", "pwrite64", "close", "lseek", "_llseek", "fstat",
    "fstat64", "newfstatat", "fstatat64", "stat", "stat64", "lstat", "lstat64", "statx", "open",
    "openat", "access", "faccessat", "faccessat2", "readlink", "readlinkat", "getdents",
    "getdents64", "getcwd", "mkdir", "mkdirat", "unlink", "unlinkat", "rmdir", "rename", "renameat",
    "renameat2", "ftruncate", "ftruncate64", "fsync", "fdatasync", "umask", "fcntl", "fcntl64",
    "dup", "fchmod",
    // connections that are there
    "accept", "accept4", "recvfrom", "recvmsg", "recv", "sendto", "sendmsg", "send", "getsockopt",
    "setsockopt", "getsockname", "shutdown", "ioctl",
    // waiting, time, signals
    "poll", "ppoll", "ppoll_time64", "select", "pselect6", "_newselect", "epoll_create1",
    "epoll_ctl", "epoll_wait", "epoll_pwait", "eventfd2", "signalfd4", "timerfd_create",
    "timerfd_settime", "timerfd_settime64", "nanosleep", "clock_nanosleep",
    "clock_nanosleep_time64", "clock_gettime", "clock_gettime64", "clock_getres", "gettimeofday",
    "time", "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigreturn", "sigaltstack",
    "restart_syscall",
    // memory, threads, the end
    "brk", "munmap", "mremap", "madvise", "futex", "futex_time64", "set_robust_list", "rseq",
    "sched_yield", "sched_getaffinity", "sched_setaffinity", "membarrier", "getrandom", "getpid",
    "gettid", "getuid", "geteuid", "getgid", "getegid", "uname", "sysinfo", "prlimit64",
    "getrusage", "set_tid_address", "tgkill", "exit", "exit_group"};

bool allow(scmp_filter_ctx filter, const char *name) {
    const int number = seccomp_syscall_resolve_name(name);
    const int result = seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 0);
    return number == __NR_SCMP_ERROR || result == 0 || result == -EDOM;
}

bool allowWhere(scmp_filter_ctx filter, const char *name, const scmp_arg_cmp &condition) {
    const int number = seccomp_syscall_resolve_name(name);
    return number == __NR_SCMP_ERROR ||
           seccomp_rule_add(filter, SCMP_ACT_ALLOW, number, 1, condition) == 0;
}

// Memory that is not for code, threads and no processes, sockets of these families.
bool allowInPart(scmp_filter_ctx filter, const Needs &needs) {
    bool done = true;
    for (const char *name : {"mmap", "mmap2", "mprotect"})
        done &= allowWhere(filter, name, SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    done &= allowWhere(filter, "clone", SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD));
    // Its flags lie in memory, where no filter looks: the library then takes the older call.
    done &= seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0) == 0;
    done &= allowWhere(filter, "prctl", SCMP_A0(SCMP_CMP_EQ, PR_SET_NAME, 0));
    if (needs.packets) {
        // The interface, and how the libraries look for it and its address.
        for (const int family : {AF_PACKET, AF_INET, AF_NETLINK, AF_UNIX})
            done &= allowWhere(filter, "socket",
                               SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(family), 0));
        done &= allow(filter, "bind");
    }
    return done;
}

int loadFilter(const Needs &needs) {
    const Filter filter(seccomp_init(SCMP_ACT_KILL_PROCESS), seccomp_release);
    if (filter == nullptr)
        return ENOMEM;
    bool made = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1) == 0;
    for (const char *name : kAllowed)
        made &= allow(filter.get(), name);
    // The library of the real device may pass what it reads and writes through pipes.
    if (needs.callersMemory)
        for (const char *name :
             {"process_vm_readv", "process_vm_writev", "pipe", "pipe2", "splice", "vmsplice"})
            made &= allow(filter.get(), name);
    if (!made || !allowInPart(filter.get(), needs))
        return EINVAL;
    return -seccomp_load(filter.get());
}
#endif

} // namespace

void dropRights([[maybe_unused]] const Needs &needs) {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
#ifdef IDPFWD_WITH_CAPNG
    const bool mayBound = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
    const capng_select_t sets = mayBound ? CAPNG_SELECT_BOTH : CAPNG_SELECT_CAPS;
    capng_get_caps_process();
    const bool raw = needs.packets && capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW) != 0;
    const bool others =
        needs.callersMemory && capng_have_capability(CAPNG_PERMITTED, CAP_SYS_PTRACE) != 0;
    capng_clear(sets);
    constexpr auto kHeld = static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED);
    if (raw)
        capng_update(CAPNG_ADD, kHeld, CAP_NET_RAW);
    if (others)
        capng_update(CAPNG_ADD, kHeld, CAP_SYS_PTRACE);
    if (capng_apply(sets) != 0)
        complain("cannot drop its capabilities", strerror(errno));
#endif
}

void filterCalls([[maybe_unused]] const Needs &needs) {
#ifdef FILTERS_CALLS
    if (const int error = loadFilter(needs); error != 0)
        complain("system calls are not filtered", strerror(error));
#endif
}

} // namespace idpfwd
