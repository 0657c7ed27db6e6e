// The source that reads a capture, apart from what is made once for all of them.
#pragma once

#include "engine/capture/packet_source.h"
#include "engine/packets/application_names.h"

#include <cstdio>
#include <memory>
#include <string>

namespace idpfwd {

// Reads a capture that is open already, and closes it; options.name is what messages call it. Null
// with a one-line reason in error.
std::unique_ptr<Source> readCapture(FILE *file, const PacketOptions &options,
                                    std::shared_ptr<Classifier> classifier,
                                    std::shared_ptr<const NameTable> names, std::string &error);

} // namespace idpfwd
