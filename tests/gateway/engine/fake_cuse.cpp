#define FUSE_USE_VERSION 35
#include "fake_cuse.h"

#include "dpi/usr_ioctl.h"

#include <cuse_lowlevel.h>

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

struct fuse_session {
    cuse_lowlevel_ops operations;
    void *device;
    int event;
    bool gone;
};

// One round: what the caller has mapped, and what the device makes of it.
struct fuse_req {
    std::vector<iovec> in, out;
    int number = 0;
    void *header = nullptr;
    bool narrow = false;
    int error = 0;
    bool done = false;
};

namespace {

fuse_session session;
fuse_req *waiting; // the request that the device finds when it looks

std::vector<char> gather(const std::vector<iovec> &pieces) {
    std::vector<char> bytes;
    for (const iovec &piece : pieces) {
        const auto *first = static_cast<const char *>(piece.iov_base);
        bytes.insert(bytes.end(), first, first + piece.iov_len);
    }
    return bytes;
}

} // namespace

extern "C" {

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
    const std::vector<char> in = gather(request->in);
    const std::size_t out = gather(request->out).size();
    made->operations.ioctl(request, request->number, request->header, nullptr,
                           request->narrow ? FUSE_IOCTL_COMPAT : 0, in.data(), in.size(), out);
}

int fuse_session_exited(fuse_session *) {
    return 0;
}

void *fuse_req_userdata(fuse_req_t) {
    return session.device;
}

const fuse_ctx *fuse_req_ctx(fuse_req_t) {
    static fuse_ctx context{};
    context.pid = getpid();
    return &context;
}

int fuse_reply_err(fuse_req_t request, int error) {
    request->error = error;
    request->done = true;
    return 0;
}

int fuse_reply_open(fuse_req_t, const fuse_file_info *) {
    return 0;
}

int fuse_reply_ioctl(fuse_req_t request, int, const void *bytes, size_t size) {
    const auto *next = static_cast<const char *>(bytes);
    request->error = gather(request->out).size() == size ? 0 : EIO;
    request->done = true;
    for (const iovec &piece : request->out) {
        memcpy(piece.iov_base, next, piece.iov_len);
        next += piece.iov_len;
    }
    return 0;
}

int fuse_reply_ioctl_retry(fuse_req_t request, const iovec *in, size_t inCount, const iovec *out,
                           size_t outCount) {
    request->in.assign(in, in + inCount);
    request->out.assign(out, out + outCount);
    return 0;
}

} // extern "C"

namespace idpfwd {

int FakeCuse::ioctl(std::uint32_t number, void *header, bool narrow,
                    const std::function<void()> &turn) {
    fuse_req request;
    request.number = static_cast<int>(number);
    request.header = header;
    request.narrow = narrow;
    waiting = &request;
    for (int round = 0; round < 4 && !request.done; ++round) {
        eventfd_write(session.event, 1);
        turn();
    }
    return request.done ? request.error : ELOOP;
}

void FakeCuse::hangUp() {
    session.gone = true;
    eventfd_write(session.event, 1);
}

} // namespace idpfwd
