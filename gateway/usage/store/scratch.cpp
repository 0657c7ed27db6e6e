#include "usage/store/scratch.h"

#include "usage/store/slot.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace usage {
namespace {

constexpr std::uint8_t kVersion = 1;

void packBlock(Packer &into, const Packed &block) {
    into.number(block.size());
    into.bytes(block);
}

Packed unpackBlock(Unpacker &from) {
    Packed block;
    const std::string text = from.text(); // the same form
    block.assign(text.begin(), text.end());
    return block;
}

template <typename Entries>
void packChanged(Packer &into, const Entries &entries, auto &&pack) {
    std::uint64_t changed = 0;
    for (const auto &[id, entry] : entries)
        changed += entry.changed ? 1U : 0U;
    into.number(changed);
    for (const auto &[id, entry] : entries) {
        if (entry.changed) {
            into.number(id);
            pack(entry);
        }
    }
}

void packDirectory(Packer &into, const Directory &directory) {
    packChanged(into, directory.devices(), [&](const Device &device) {
        into.bytes(device.mac);
        into.text(device.hostName);
        into.text(device.ownName);
        into.number(static_cast<std::uint64_t>(device.firstSeen));
        into.number(static_cast<std::uint64_t>(device.lastSeen));
    });
    packChanged(into, directory.applications(), [&](const Application &application) {
        into.text(application.name.category);
        into.text(application.name.name);
    });
}

void unpackDirectory(Unpacker &from, Directory &directory) {
    for (std::uint64_t left = from.number(); left > 0 && from.good(); --left) {
        Device device;
        device.id = from.number32();
        from.bytes(device.mac);
        device.hostName = from.text();
        device.ownName = from.text();
        device.firstSeen = static_cast<Seconds>(from.number());
        device.lastSeen = static_cast<Seconds>(from.number());
        directory.restore(std::move(device));
    }
    for (std::uint64_t left = from.number(); left > 0 && from.good(); --left) {
        Application application;
        application.id = from.number32();
        application.name.category = from.text();
        application.name.name = from.text();
        directory.restore(std::move(application));
    }
}

} // namespace

Packed packScratch(const Present &present) {
    Packer into;
    into.byte(kVersion);
    into.number(present.commit);
    into.number(static_cast<std::uint64_t>(present.lastSample));
    packDirectory(into, present.directory);
    packBlock(into, packBaseline(present.baseline));
    into.number(present.gaps.size());
    for (const Span &gap : present.gaps) {
        into.number(static_cast<std::uint64_t>(gap.from));
        into.number(static_cast<std::uint64_t>(gap.to));
    }
    into.number(present.slots.size());
    for (const auto &[start, traffic] : present.slots) {
        into.number(static_cast<std::uint64_t>(start));
        packBlock(into, packTraffic(traffic));
    }
    return into.finish();
}

bool applyScratch(PackedView packed, Present &present) {
    Unpacker from(packed);
    if (from.byte() != kVersion || from.number() != present.commit)
        return false;
    Present next = present;
    next.lastSample = static_cast<Seconds>(from.number());
    unpackDirectory(from, next.directory);
    auto baseline = unpackBaseline(unpackBlock(from));
    next.gaps.clear();
    for (std::uint64_t left = from.number(); left > 0 && from.good(); --left) {
        const auto begin = static_cast<Seconds>(from.number());
        next.gaps.push_back({begin, static_cast<Seconds>(from.number())});
    }
    for (std::uint64_t left = from.number(); left > 0 && from.good(); --left) {
        const auto start = static_cast<Seconds>(from.number());
        auto traffic = unpackTraffic(unpackBlock(from));
        if (!traffic)
            return false;
        next.slots[start] = std::move(*traffic);
    }
    if (!baseline || !from.good() || !from.atEnd())
        return false;
    next.baseline = std::move(*baseline);
    present = std::move(next);
    return true;
}

bool writeScratch(const std::string &file, const Present &present) {
    const Packed packed = packScratch(present);
    const std::string fresh = file + ".new";
    {
        std::ofstream stream(fresh, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char *>(packed.data()),
                     static_cast<std::streamsize>(packed.size()));
        stream.close();
        if (!stream)
            return false;
    }
    return rename(fresh.c_str(), file.c_str()) == 0;
}

bool readScratch(const std::string &file, Present &present) {
    std::ifstream stream(file, std::ios::binary);
    const Packed packed{std::istreambuf_iterator<char>(stream), {}};
    return applyScratch(packed, present);
}

} // namespace usage
