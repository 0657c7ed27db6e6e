// idpfwd: serves a scenario's or a network's facts to the callers of "/dev/idpfw".
#include "dpi/usr_ioctl.h"
#include "engine/confinement.h"
#include "engine/database_files.h"
#include "engine/device/device_socket.h"
#include "engine/dump.h"
#include "engine/loop.h"
#include "engine/options.h"
#include "engine/scenario/scenario.h"
#ifdef IDPFWD_WITH_CUSE
#include "engine/device/device_cuse.h"
#endif
#ifdef IDPFWD_WITH_NDPI
#include "engine/capture/packet_source.h"
#endif

#include <cerrno>
#include <cstring>
#include <iostream>
#include <unistd.h>
#include <utility>

namespace idpfwd {
namespace {

constexpr const char *kTool = "idpfwd: ";
constexpr const char *kVersioned = "idpfwd " IDPFWD_VERSION ": ";

std::unique_ptr<Source> openPackets([[maybe_unused]] const Options &options, std::string &error) {
#ifdef IDPFWD_WITH_NDPI
    const PacketOptions packets{.name = options.sourceName,
                                .gatewayMac = options.gatewayMac,
                                .forgetSeconds = options.forgetSeconds,
                                .fast = options.fast,
                                .databases = options.databases,
                                .memory = options.memory,
                                .ring = options.ring,
                                .readers = options.readers};
    return options.source == SourceKind::kInterface ? openInterface(packets, error)
                                                    : openCapture(packets, error);
#else
    error = "this build has no packet source (it was made without nDPI and libpcap): "
            "only --scenario works";
    return nullptr;
#endif
}

std::unique_ptr<Source> openSource(const Options &options, std::string &error) {
    if (options.source == SourceKind::kScenario)
        return openScenario(options.sourceName, options.databases, error);
    return openPackets(options, error);
}

std::unique_ptr<Device> openDevice(const Options &options, std::string &error) {
#ifdef IDPFWD_WITH_CUSE
    if (options.device.value_or(cuseUsable() ? DeviceKind::kCuse : DeviceKind::kSocket) ==
        DeviceKind::kCuse)
        return openCuseDevice(error);
#else
    if (options.device == DeviceKind::kCuse) {
        error = "this build has no CUSE (it was made without libfuse3): use --device socket";
        return nullptr;
    }
#endif
    return openSocketDevice(options.socketPath, IDPFW_DEVICE, error);
}

const char *kindOf(SourceKind kind) {
    switch (kind) {
    case SourceKind::kScenario:
        return "scenario";
    case SourceKind::kInterface:
        return "interface";
    case SourceKind::kCapture:
        break;
    }
    return "capture";
}

// Ends each line at once: whoever started us waits for it.
void say(const std::string &line) {
    std::cout << line << std::endl;
}

void sayOverflow(const Tables &tables, const char *when) {
    const Overflow &overflow = tables.overflow();
    std::cerr << kTool << when << ": " << overflow.users << " devices and " << overflow.rows
              << " (device, application) pairs did not fit, with " << overflow.packets
              << " packets and " << overflow.bytes << " bytes";
    const char *lead = "; lately refused: ";
    for (const RefusedDevice &device : tables.refused().latest(3))
        std::cerr << std::exchange(lead, ", ") << formatMac(device.mac.data());
    std::cerr << std::endl;
}

std::filesystem::path dumpFolder(const Options &options) {
    const std::filesystem::path file(options.dumpFile);
    return file.has_parent_path() ? file.parent_path() : ".";
}

// What is not in the tables, although it was captured, or should have been.
void sayLosses(const Source &source) {
    const Tables &tables = source.tables;
    if (tables.overflow().any())
        sayOverflow(tables, "at the end");
    const Forgotten &forgotten = tables.forgotten();
    if (forgotten.any())
        std::cerr << kTool << "at the end: " << forgotten.users << " devices were forgotten, with "
                  << forgotten.packets << " packets and " << forgotten.bytes << " bytes"
                  << std::endl;
    const Capped &capped = tables.capped();
    if (capped.packets != 0)
        std::cerr << kTool << "at the end: " << capped.packets
                  << " packets claimed more than a frame can have, by " << capped.bytes << " bytes"
                  << std::endl;
    if (const auto drops = source.captureDrops())
        std::cerr << kTool << "at the end: the kernel dropped " << *drops << " packets"
                  << std::endl;
}

void writeDump(const Options &options, Source &source) {
    if (options.dumpFile.empty())
        return;
    const auto locked = source.lockTables();
    const std::filesystem::path file(options.dumpFile);
    if (!writeWhole(dumpFolder(options), file.filename(), dumpTables(source)))
        std::cerr << kTool << "cannot write " << options.dumpFile << ": " << strerror(errno)
                  << std::endl;
}

int fail(const std::string &error) {
    std::cerr << kTool << error << std::endl;
    return 1;
}

// The folder of the dump has to be written to with the rights that are left.
bool dumpIsPossible(const Options &options, std::string &error) {
    const std::filesystem::path folder = dumpFolder(options);
    if (options.dumpFile.empty() || access(folder.c_str(), W_OK) == 0 || errno == ENOENT)
        return true;
    error = "cannot write " + options.dumpFile + ": " + strerror(errno);
    return false;
}

struct Opened {
    std::unique_ptr<Source> source;
    std::unique_ptr<Device> device;
};

// Opens both, and goes on with no more rights than they need from then on. A file may be one that
// only root reads, a device is made where only root may; an interface needs one right, which stays.
bool open(const Options &options, Opened &opened, std::string &error) {
    const bool live = options.source == SourceKind::kInterface;
    if (!live && (opened.source = openSource(options, error)) == nullptr)
        return false;
    if ((opened.device = openDevice(options, error)) == nullptr)
        return false;
    const Needs needs{.packets = live, .callersMemory = opened.device->reachesIntoCallers()};
    dropRights(needs);
    if (live && (opened.source = openSource(options, error)) == nullptr)
        return false;
    filterCalls(needs);
    return dumpIsPossible(options, error);
}

int run(const Options &options) {
    blockSignals();
    std::string error;
    Opened opened;
    if (!open(options, opened, error))
        return fail(error);
    const std::unique_ptr<Source> &source = opened.source;
    const std::unique_ptr<Device> &device = opened.device;
    const LoopEvents events{
        .ready =
            [&] {
                say(std::string(kVersioned) + kindOf(options.source) + " " + options.sourceName +
                    ", " + device->description() + ", at most " + std::to_string(kMaxUsers) +
                    " users and " + std::to_string(kMaxRows) + " rows");
            },
        .finished = [&] { say(std::string(kTool) + kindOf(options.source) + " finished"); },
        .overflow = [&] { sayOverflow(source->tables, "tables full"); },
        .dump = [&] { writeDump(options, *source); },
    };
    error = runLoop(*source, *device, events);
    source->stop();
    writeDump(options, *source);
    sayLosses(*source);
    return error.empty() ? 0 : fail(error);
}

} // namespace
} // namespace idpfwd

int main(int argc, char **argv) {
    const idpfwd::CommandLine commandLine = idpfwd::parseCommandLine(argc, argv);
    if (commandLine.leave) {
        (*commandLine.leave == 0 ? std::cout : std::cerr) << commandLine.text;
        return *commandLine.leave;
    }
    try {
        return idpfwd::run(commandLine.options);
    } catch (const std::exception &error) {
        std::cerr << "idpfwd: " << error.what() << '\n';
        return 1;
    }
}
