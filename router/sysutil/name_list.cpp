#include "sysutil/name_list.h"

#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/device_table.h"
#include "sysutil/mac_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

inline namespace routerutil {

namespace {

constexpr char kLast = '.';
constexpr char kMore = ':';

struct Key {
    char name[32];
};

Key key_name(const KeyFamily &keys, int index) {
    Key key;
    format_text(key.name, sizeof key.name, "%s%d", keys.prefix, index);
    return key;
}

// Reads the address at the start of a cell; returns what follows it, or nullptr.
const char *scan_mac(const char *cell, unsigned char *mac) {
    unsigned int bytes[kMacSize];
    int length = 0;
    if (sscanf(cell, "%2X%2X%2X%2X%2X%2X%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
               &bytes[5], &length) != static_cast<int>(kMacSize))
        return nullptr;
    std::transform(bytes, bytes + kMacSize, mac,
                   [](unsigned int byte) { return static_cast<unsigned char>(byte); });
    return cell + length;
}

// Reads one "length:name" and steps over it and its separator; nullptr when it is malformed. The
// length counts no further than the text goes, and the name is cut to its field.
const char *take_name(const char *text, char *field) {
    char *end;
    const long length = strtol(text, &end, 10);
    if (end == text || *end != ':' || length < 0)
        return nullptr;
    const char *const name = end + 1;
    if (name[strspn(name, " \t\n\v\f\r")] == '\0')
        return nullptr; // not even a separator
    const std::size_t held = strnlen(name, static_cast<std::size_t>(length));
    memset(field, 0, kNameWidth);
    memcpy(field, name, std::min(held, kNameWidth));
    return name + held + (name[held] != '\0' ? 1 : 0);
}

} // namespace

void clear_texts(const KeyFamily &keys) {
    for (StagedText &text : keys.texts)
        text[0] = '\0';
}

void load_texts(const KeyFamily &keys) {
    int index = 0;
    for (StagedText &text : keys.texts)
        copy_text(text, kelpNvramConfig_get(key_name(keys, index++).name));
}

void save_texts(const KeyFamily &keys) {
    int index = 0;
    for (const StagedText &text : keys.texts)
        kelpNvramConfig_set(key_name(keys, index++).name, text);
}

bool read_cell(const Cells &cells, int index, CellText &cell) {
    const StagedText &text = cells.keys.texts[static_cast<std::size_t>(index / cells.per_text)];
    const std::size_t start = static_cast<std::size_t>(index % cells.per_text) * cells.width;
    if (start >= strlen(text))
        return false;
    copy_text(cell, cells.width + 1, text + start);
    return true;
}

void write_cell(const Cells &cells, int index, const CellText &cell) {
    StagedText &text = cells.keys.texts[static_cast<std::size_t>(index / cells.per_text)];
    const std::size_t start = static_cast<std::size_t>(index % cells.per_text) * cells.width;
    copy_text(text + start, cells.width + 1, cell);
}

int load_entries(const EntryCodec &codec) {
    load_texts(codec.cells.keys);
    const int most = capacity(codec.cells);
    for (int i = 0; i < most; ++i) {
        CellText cell;
        if (!read_cell(codec.cells, i, cell))
            return i;
        unsigned char mac[kMacSize];
        const char *const fields = scan_mac(cell, mac);
        const char separator = fields != nullptr ? codec.take(i, mac, fields) : '\0';
        if (separator == '\0' || separator == kLast)
            return i;
    }
    return most;
}

void stage_entries(const EntryCodec &codec, int count) {
    clear_texts(codec.cells.keys);
    for (int i = 0; i < count; ++i) {
        char fields[kWidestCell];
        codec.put(i, fields, sizeof fields);
        CellText cell;
        format_text(cell, sizeof cell, "%s%s%c", plain_mac(codec.mac_of(i)).text, fields,
                    i + 1 == count ? kLast : kMore);
        write_cell(codec.cells, i, cell);
    }
}

void load_names(const KeyFamily &keys, int count, NameOf name_of) {
    load_texts(keys);
    const int most = static_cast<int>(keys.texts.size()) * kNamesPerKey;
    const char *text = nullptr;
    for (int i = 0; i < std::min(count, most); ++i) {
        if (i % kNamesPerKey == 0)
            text = keys.texts[static_cast<std::size_t>(i / kNamesPerKey)];
        text = take_name(text, name_of(i));
        if (text == nullptr)
            return;
    }
}

void save_names(const KeyFamily &keys, int count, NameOf name_of) {
    StagedText text = "";
    std::size_t length = 0;
    for (int i = 0; i < count; ++i) {
        const char *const name = name_of(i);
        const auto width = static_cast<int>(strnlen(name, kNameWidth));
        format_text(text + length, sizeof text - length, "%d:%.*s%c", width, width, name,
                    i + 1 == count ? kLast : kMore);
        length += strlen(text + length);
        if ((i + 1) % kNamesPerKey == 0) {
            kelpNvramConfig_set(key_name(keys, i / kNamesPerKey).name, text);
            text[0] = '\0';
            length = 0;
        }
    }
    kelpNvramConfig_set(key_name(keys, count / kNamesPerKey).name, text);
}

} // namespace routerutil
