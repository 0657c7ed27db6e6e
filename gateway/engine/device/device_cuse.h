// The engine behind a real "/dev/idpfw" that the kernel's CUSE offers.
#pragma once

#include "engine/device/device.h"

#include <memory>
#include <string>

namespace idpfwd {

// Whether this process can make devices in user space.
bool cuseUsable();

// Makes the device; it is there for callers once ready() says so. Null with a one-line reason in
// error.
std::unique_ptr<Device> openCuseDevice(std::string &error);

} // namespace idpfwd
