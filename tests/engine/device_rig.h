// A device under test with an engine behind it. Each executable has one kind of device.
#pragma once

#include "dpi/usr_ioctl.h"
#include "engine/device.h"
#include "engine/requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/ioctl.h>
#include <thread>

namespace idpfwd {

// Answers group 15 with the input that it was sent, everything else from its tables.
class Echo final : public Source {
  public:
    [[nodiscard]] int descriptor() const override { return -1; }
    [[nodiscard]] int timeout() const override { return -1; }
    void work() override {}
    [[nodiscard]] bool finished() const override { return false; }
    std::optional<Reply> answer(const Request &request) override {
        if (request.nr != IDPFW_NR_VP)
            return std::nullopt;
        return Reply{.error = 0, .output = request.input, .reportedLength = {}};
    }
};

// An engine on a thread of its own.
class Running {
  public:
    Running(Device &device, Source &source) : thread_([&] { serve(device, source); }) {}
    ~Running() {
        stop_ = true;
        thread_.join();
    }

    // Until the device can be called, or is found not to come.
    void waitUntilReady() {
        while (!settled_)
            std::this_thread::yield();
    }

  private:
    void serve(Device &device, Source &source) {
        std::vector<pollfd> watched;
        while (!stop_) {
            watched.clear();
            device.watch(watched);
            poll(watched.data(), watched.size(), 2);
            device.serve(watched, source);
            if (device.ready() || !device.failure().empty())
                settled_ = true;
        }
    }

    std::atomic<bool> stop_ = false;
    std::atomic<bool> settled_ = false;
    std::thread thread_;
};

// Why there can be no device on this machine; empty when there can.
std::string deviceRefusal();

// Makes the executable's kind of device.
std::unique_ptr<Device> openTestedDevice(std::string &error);

class DeviceTest : public testing::Test {
  protected:
    void SetUp() override {
        const std::string refusal = deviceRefusal();
        if (!refusal.empty())
            GTEST_SKIP() << refusal;
    }

    void TearDown() override { stop(); }

    // Starts the engine and waits until it can be called.
    void start() {
        device_ = openTestedDevice(error_);
        ASSERT_NE(device_, nullptr) << error_;
        running_.emplace(*device_, source_);
        running_->waitUntilReady();
        ASSERT_EQ(device_->failure(), "");
    }

    void stop() {
        running_.reset();
        device_.reset();
    }

    // 0, or the errno of the ioctl on a device that is opened for it.
    static int call(forward_ioctl *header, std::uint8_t nr) {
        const int device = open(IDPFW_DEVICE, O_RDWR | O_CLOEXEC);
        const int result = ioctl(device, IDPFW_REQUEST(nr), header);
        const int error = errno;
        close(device);
        return result == 0 ? 0 : error;
    }

    forward_ioctl header(std::uint8_t nr, std::uint8_t op) {
        forward_ioctl made{};
        made.magic = IDPFW_MAGIC;
        made.nr = nr;
        made.op = op;
        made.out = out_.data();
        made.out_len = static_cast<std::uint32_t>(out_.size());
        made.out_used_len = &used_;
        return made;
    }

    forward_ioctl withInput(std::vector<std::uint8_t> &input) {
        forward_ioctl made = header(IDPFW_NR_VP, 5);
        made.in_type = 2;
        made.in_raw = input.data();
        made.in_len = static_cast<std::uint32_t>(input.size());
        return made;
    }

    std::string error_;
    Echo source_;
    std::unique_ptr<Device> device_;
    std::optional<Running> running_;
    std::vector<std::uint8_t> out_ = std::vector<std::uint8_t>(2'000'000);
    std::uint32_t used_ = 0;
};

} // namespace idpfwd
