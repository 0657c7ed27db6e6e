// The CUSE device on machines without one: a kernel and a libfuse of the test's own behind it, and
// the ioctl that this executable calls.
#define FUSE_USE_VERSION 35
#include "engine/device/device_cuse.h"

#include "device_rig.h"
#include "engine/device/caller_header.h"
#include "own_dev.h"

#include <cuse_lowlevel.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <semaphore>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>

struct fuse_session {
    cuse_lowlevel_ops operations;
    void *device;
    int event;
    bool gone;
};

// One call: what of the caller's memory is mapped for the present round, and what came of it.
struct fuse_req {
    int number;
    void *header;
    fuse_ctx caller;
    std::vector<iovec> in, out;
    std::optional<int> error;
};

namespace {

fuse_session session;
fuse_req *waiting; // the call that the device finds when it looks
bool narrow;       // callers have 32-bit pointers, on a 64-bit kernel
std::mutex callers;
std::binary_semaphore answered(0);

std::size_t sizeOf(const std::vector<iovec> &pieces) {
    std::size_t size = 0;
    for (const iovec &piece : pieces)
        size += piece.iov_len;
    return size;
}

int reply(fuse_req *request, int error) {
    request->error = error;
    answered.release();
    return 0;
}

} // namespace

extern "C" {

#ifdef __GLIBC__
int ioctl(int descriptor, unsigned long number, ...) noexcept {
#else
int ioctl(int descriptor, int number, ...) {
#endif
    va_list rest;
    va_start(rest, number);
    void *header = va_arg(rest, void *);
    va_end(rest);
    if ((number >> 8 & 0xFF) != IDPFW_MAGIC)
        return static_cast<int>(syscall(SYS_ioctl, descriptor, number, header));
    const std::lock_guard one(callers);
    fuse_req request{static_cast<int>(number), header, {}, {}, {}, {}};
    request.caller.pid = gettid();
    waiting = &request;
    for (int round = 0; round < 4 && !request.error; ++round) {
        eventfd_write(session.event, 1);
        answered.acquire();
    }
    errno = request.error.value_or(ELOOP);
    return errno == 0 ? 0 : -1;
}

fuse_session *cuse_lowlevel_setup(int, char **, const cuse_info *,
                                  const cuse_lowlevel_ops *operations, int *, void *device) {
    session = {*operations, device, eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), false};
    if (chdir("/") != 0 || mknod(IDPFW_DEVICE, S_IFCHR | 0600, makedev(1, 3)) != 0)
        return nullptr;
    session.operations.init_done(device);
    return &session;
}

void cuse_lowlevel_teardown(fuse_session *made) {
    close(made->event);
    unlink(IDPFW_DEVICE);
}

int fuse_session_fd(fuse_session *made) {
    return made->event;
}

int fuse_session_receive_buf(fuse_session *made, fuse_buf *) {
    eventfd_t count = 0;
    if (made->gone)
        return 0;
    return eventfd_read(made->event, &count) == 0 ? 1 : -EAGAIN;
}

void fuse_session_process_buf(fuse_session *made, const fuse_buf *) {
    fuse_req *request = waiting;
    std::vector<char> in(sizeOf(request->in));
    const iovec ours{in.data(), in.size()};
    if (process_vm_readv(getpid(), &ours, 1, request->in.data(), request->in.size(), 0) ==
        std::ssize(in))
        made->operations.ioctl(request, request->number, request->header, nullptr,
                               narrow ? FUSE_IOCTL_COMPAT : 0, in.data(), in.size(),
                               sizeOf(request->out));
    else
        reply(request, EFAULT);
}

int fuse_session_exited(fuse_session *) {
    return 0;
}

void *fuse_req_userdata(fuse_req_t) {
    return session.device;
}

const fuse_ctx *fuse_req_ctx(fuse_req_t request) {
    return &request->caller;
}

int fuse_reply_err(fuse_req_t request, int error) {
    return reply(request, error);
}

int fuse_reply_open(fuse_req_t, const fuse_file_info *) {
    return 0;
}

int fuse_reply_ioctl(fuse_req_t request, int, const void *bytes, size_t size) {
    const iovec ours{const_cast<void *>(bytes), size};
    const bool whole = sizeOf(request->out) == size &&
                       process_vm_writev(getpid(), &ours, 1, request->out.data(),
                                         request->out.size(), 0) == static_cast<ssize_t>(size);
    return reply(request, whole ? 0 : EFAULT);
}

int fuse_reply_ioctl_retry(fuse_req_t request, const iovec *in, size_t inCount, const iovec *out,
                           size_t outCount) {
    request->in.assign(in, in + inCount);
    request->out.assign(out, out + outCount);
    answered.release();
    return 0;
}

} // extern "C"

namespace idpfwd {
namespace {

using FakeCuseTest = DeviceTest;

TEST_F(FakeCuseTest, HeadersAreAsWideAsTheirCallers) {
    start();
    auto *pages = static_cast<char *>(
        mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pages + 4096, 4096, PROT_NONE);
    void *place = pages + 4096 - kHeaderSize32;
    auto *last = static_cast<forward_ioctl *>(place);
    EXPECT_EQ(call(last), sizeof(void *) == 4 ? EINVAL : EFAULT);
    narrow = true;
    EXPECT_EQ(call(last), EINVAL);
    narrow = false;
    munmap(pages, 8192);
}

TEST_F(FakeCuseTest, TheKernelCanTakeTheDeviceAwayOrHaveNone) {
    device_ = openTestedDevice(error_);
    ASSERT_NE(device_, nullptr) << error_;
    EXPECT_FALSE(device_->ready());
    EXPECT_EQ(device_->timeout(), 20);
    turn();
    EXPECT_TRUE(device_->ready());
    EXPECT_EQ(device_->timeout(), -1);
    session.gone = true;
    eventfd_write(session.event, 1);
    turn();
    EXPECT_EQ(device_->failure(), "the kernel has taken /dev/idpfw away");
    stop();
    std::ofstream{IDPFW_DEVICE};
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("remove the plain file"));
    std::filesystem::remove(IDPFW_DEVICE);
    std::filesystem::remove("/dev/cuse");
    EXPECT_FALSE(cuseUsable());
    EXPECT_EQ(openCuseDevice(error_), nullptr);
    EXPECT_THAT(error_, testing::HasSubstr("--device socket"));
}

} // namespace

std::string deviceRefusal() {
#ifdef EMULATOR
    return "the emulator does not place the caller's memory where the kernel looks for it";
#endif
    const std::string refusal = ownDev();
    if (!refusal.empty() || mknod("/dev/cuse", S_IFCHR | 0600, makedev(1, 3)) == 0)
        return refusal;
    return "no device files can be made here";
}

} // namespace idpfwd
