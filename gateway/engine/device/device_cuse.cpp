#define FUSE_USE_VERSION 35
#include "engine/device/device_cuse.h"

#include "common/file.h"
#include "dpi/usr_ioctl.h"
#include "engine/device/ioctl_exchange.h"

#include <cuse_lowlevel.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace idpfwd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char *kCuse = "/dev/cuse";
constexpr const char *kDeviceName = "DEVNAME=idpfw";

// The file of a new device appears with the kernel's own devtmpfs at once, else when the device
// manager has seen it.
constexpr auto kAppearance = std::chrono::seconds(5);
constexpr int kAppearancePoll = 20; // milliseconds

bool deviceExists(bool &isDevice) {
    struct stat there {};
    const bool exists = stat(IDPFW_DEVICE, &there) == 0;
    isDevice = exists && S_ISCHR(there.st_mode);
    return exists;
}

// The memory of the thread that waits in its ioctl, by its id.
class WaitingCaller final : public CallerMemory {
  public:
    explicit WaitingCaller(pid_t thread) : thread_(thread) {}

    bool read(std::uint64_t address, std::span<std::uint8_t> bytes) override {
        const iovec ours{bytes.data(), bytes.size()};
        const iovec theirs{pointer(address), bytes.size()};
        return process_vm_readv(thread_, &ours, 1, &theirs, 1, 0) == std::ssize(bytes);
    }

    bool write(std::uint64_t address, std::span<const std::uint8_t> bytes) override {
        const iovec ours{const_cast<std::uint8_t *>(bytes.data()), bytes.size()};
        const iovec theirs{pointer(address), bytes.size()};
        return process_vm_writev(thread_, &ours, 1, &theirs, 1, 0) == std::ssize(bytes);
    }

  private:
    // An address of the other process, never followed here.
    static void *pointer(std::uint64_t address) {
        return reinterpret_cast<void *>(static_cast<std::uintptr_t>(address));
    }

    pid_t thread_;
};

std::vector<iovec> vectors(const std::vector<Mapping> &pieces) {
    std::vector<iovec> result;
    result.reserve(pieces.size());
    for (const Mapping &piece : pieces)
        result.push_back(
            {reinterpret_cast<void *>(static_cast<std::uintptr_t>(piece.address)), piece.size});
    return result;
}

// A round that failed to be sent is one whose caller is gone.
void carryOut(fuse_req_t request, const Round &round) {
    switch (round.kind) {
    case Round::Kind::kFail:
        fuse_reply_err(request, round.error);
        return;
    case Round::Kind::kRetry: {
        const auto in = vectors(round.in);
        const auto out = vectors(round.out);
        fuse_reply_ioctl_retry(request, in.data(), in.size(), out.data(), out.size());
        return;
    }
    case Round::Kind::kDone:
        fuse_reply_ioctl(request, 0, round.output.data(), round.output.size());
        return;
    }
}

class CuseDevice final : public Device {
  public:
    CuseDevice() = default;
    CuseDevice(const CuseDevice &) = delete;
    CuseDevice &operator=(const CuseDevice &) = delete;
    ~CuseDevice() override {
        if (session_ != nullptr)
            cuse_lowlevel_teardown(session_);
        free(buffer_.mem);
    }

    bool start(std::string &error) {
        std::array<const char *, 1> info = {kDeviceName};
        cuse_info device{};
        device.dev_info_argc = static_cast<unsigned>(info.size());
        device.dev_info_argv = info.data();
        device.flags = CUSE_UNRESTRICTED_IOCTL;
        static const cuse_lowlevel_ops operations = makeOperations();
        // In the foreground, in one thread: the loop is ours.
        std::string name = "idpfwd", foreground = "-f", single = "-s";
        std::array<char *, 4> arguments = {name.data(), foreground.data(), single.data(), nullptr};
        int multithreaded = 0;
        const Descriptor folder(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
        session_ =
            cuse_lowlevel_setup(3, arguments.data(), &device, &operations, &multithreaded, this);
        // The library goes to "/" even in the foreground; paths of our options mean this folder.
        const bool back = folder && fchdir(folder.get()) == 0;
        if (session_ == nullptr || !back) {
            error = "cannot make a device through /dev/cuse";
            return false;
        }
        const int descriptor = fuse_session_fd(session_);
        fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        started_ = Clock::now();
        return true;
    }

    void watch(std::vector<pollfd> &watched) const override {
        watched.push_back({.fd = fuse_session_fd(session_), .events = POLLIN, .revents = 0});
    }

    [[nodiscard]] int timeout() const override { return ready() ? -1 : kAppearancePoll; }

    void serve(std::span<const pollfd> watched, RequestServer &server) override {
        if (watched[0].revents != 0)
            takeRequest(server);
        if (!appeared_ && failure_.empty())
            lookForDevice();
    }

    [[nodiscard]] bool ready() const override { return appeared_; }
    [[nodiscard]] std::string failure() const override { return failure_; }
    [[nodiscard]] bool reachesIntoCallers() const override { return true; }
    [[nodiscard]] std::string description() const override {
        return std::string("device ") + IDPFW_DEVICE;
    }

  private:
    void takeRequest(RequestServer &server) {
        const int received = fuse_session_receive_buf(session_, &buffer_);
        if (received == -EINTR || received == -EAGAIN)
            return;
        if (received <= 0) {
            failure_ = appeared_ ? "the kernel has taken /dev/idpfw away"
                                 : "the kernel refused /dev/idpfw: is another engine running?";
            return;
        }
        server_ = &server;
        fuse_session_process_buf(session_, &buffer_);
        server_ = nullptr;
        if (fuse_session_exited(session_) != 0)
            failure_ = "the device's session has ended";
    }

    void lookForDevice() {
        bool isDevice = false;
        deviceExists(isDevice);
        if (initialised_ && isDevice)
            appeared_ = true;
        else if (Clock::now() - started_ > kAppearance)
            failure_ = std::string(IDPFW_DEVICE) + " did not appear";
    }

    static cuse_lowlevel_ops makeOperations() {
        cuse_lowlevel_ops operations{};
        operations.init_done = [](void *device) {
            static_cast<CuseDevice *>(device)->initialised_ = true;
        };
        operations.open = [](fuse_req_t request, fuse_file_info *file) {
            fuse_reply_open(request, file);
        };
        operations.ioctl = [](fuse_req_t request, int number, void *argument, fuse_file_info *,
                              unsigned flags, const void *in, size_t inSize, size_t outSize) {
            auto *device = static_cast<CuseDevice *>(fuse_req_userdata(request));
            // 32-bit callers of a 64-bit kernel are marked; a 32-bit kernel has no others.
            const bool narrow = sizeof(void *) == 4 || (flags & FUSE_IOCTL_COMPAT) != 0;
            const auto *bytes = static_cast<const std::uint8_t *>(in);
            const IoctlExchange::Call call{.caller = fuse_req_ctx(request)->pid,
                                           .number = static_cast<std::uint32_t>(number),
                                           .argument = reinterpret_cast<std::uintptr_t>(argument),
                                           .headerSize = narrow ? kHeaderSize32 : kHeaderSize64,
                                           .in = {bytes, inSize},
                                           .outSize = outSize};
            WaitingCaller memory(call.caller);
            carryOut(request, device->exchange_.next(call, memory, *device->server_));
        };
        return operations;
    }

    fuse_session *session_ = nullptr;
    fuse_buf buffer_{};
    IoctlExchange exchange_;
    RequestServer *server_ = nullptr; // while a request is processed
    Clock::time_point started_{};
    bool initialised_ = false;
    bool appeared_ = false;
    std::string failure_;
};

} // namespace

bool cuseUsable() {
    const Descriptor cuse(open(kCuse, O_RDWR | O_CLOEXEC));
    return static_cast<bool>(cuse);
}

std::unique_ptr<Device> openCuseDevice(std::string &error) {
    bool isDevice = false;
    if (deviceExists(isDevice)) {
        error = std::string(IDPFW_DEVICE) +
                (isDevice ? " is there already: another engine, or the kernel's own"
                          : " is in the way: remove the plain file");
        return nullptr;
    }
    if (!cuseUsable()) {
        error =
            std::string("cannot open ") + kCuse + ": " + strerror(errno) + " (try --device socket)";
        return nullptr;
    }
    auto device = std::make_unique<CuseDevice>();
    if (!device->start(error))
        return nullptr;
    return device;
}

} // namespace idpfwd
