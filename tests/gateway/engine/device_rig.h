// A device under test with an engine behind it. Each executable has one kind of device.
#pragma once

#include "echo_source.h"
#include "engine/device/device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace idpfwd {

// Makes room for a test's device. Why there can be none on this machine; empty when there can.
std::string deviceRefusal();

// Makes the executable's kind of device.
std::unique_ptr<Device> openTestedDevice(std::string &error);

class DeviceTest : public testing::Test {
  protected:
    void SetUp() override {
        if (const std::string refusal = deviceRefusal(); !refusal.empty())
            GTEST_SKIP() << refusal;
    }

    void TearDown() override { stop(); }

    // Starts an engine that can be called then, on a thread of its own.
    void start() {
        device_ = openTestedDevice(error_);
        ASSERT_NE(device_, nullptr) << error_;
        while (!device_->ready() && device_->failure().empty())
            turn();
        ASSERT_EQ(device_->failure(), "");
        engine_ = std::jthread([this](const std::stop_token &token) {
            while (!token.stop_requested())
                turn();
        });
    }

    void turn() {
        std::vector<pollfd> watched;
        device_->watch(watched);
        poll(watched.data(), watched.size(), 2);
        device_->serve(watched, server_);
    }

    void stop() {
        engine_ = {};
        device_.reset();
    }

    // 0, or the errno of the ioctl on a device that is opened for it.
    static int call(forward_ioctl *header, std::uint8_t nr = IDPFW_NR_VP) {
        const int device = open(IDPFW_DEVICE, O_RDWR | O_CLOEXEC);
        const int result = ioctl(device, IDPFW_REQUEST(nr), header);
        const int error = errno;
        close(device);
        return result == 0 ? 0 : error;
    }

    // A request to be sent this input.
    forward_ioctl request(std::vector<std::uint8_t> &input) {
        forward_ioctl made{};
        made.magic = IDPFW_MAGIC;
        made.nr = IDPFW_NR_VP;
        made.in_type = 2;
        made.in_raw = input.data();
        made.in_len = static_cast<std::uint32_t>(input.size());
        made.out = out_.data();
        made.out_len = static_cast<std::uint32_t>(out_.size());
        made.out_used_len = &used_;
        return made;
    }

    std::string error_;
    Echo source_;
    RequestServer server_{source_};
    std::unique_ptr<Device> device_;
    std::vector<std::uint8_t> out_ = std::vector<std::uint8_t>(2'000'000);
    std::uint32_t used_ = 0;

  private:
    std::jthread engine_;
};

} // namespace idpfwd
