// How the device lists stand in the settings: families of numbered settings that hold entries in
// cells of a fixed width, and names that carry their length.
//
// Texts are staged before they are taken apart, because the settings store's own are short-lived.
#pragma once

#include <cstddef>
#include <span>

inline namespace routerutil {

// One setting's text, terminated; a longer setting is cut.
constexpr std::size_t kStagedSize = 512;
using StagedText = char[kStagedSize];

// The settings "<prefix>0", "<prefix>1", ... and the texts that they are staged in.
struct KeyFamily {
    const char *prefix;
    std::span<StagedText> texts;
};

void clear_texts(const KeyFamily &keys);

// Copies every setting into its text.
void load_texts(const KeyFamily &keys);

// Sets every setting of the family, to "" where its text is empty.
void save_texts(const KeyFamily &keys);

// A family whose texts are divided into cells; cell i stands in text i / per_text.
struct Cells {
    KeyFamily keys;
    std::size_t width;
    int per_text;
};

constexpr std::size_t kWidestCell = 22;
using CellText = char[kWidestCell + 1];

// Copies the text of a cell, shorter than the cell at a text's end. False when there is none.
bool read_cell(const Cells &cells, int index, CellText &cell);

// Puts a text of exactly the cell's width behind the cells before it.
void write_cell(const Cells &cells, int index, const CellText &cell);

// The entries of a list: each cell holds twelve hexadecimal digits of the address, the list's own
// fields, and a separator: ':', or '.' after the last entry.
struct EntryCodec {
    Cells cells;
    const unsigned char *(*mac_of)(int index);
    // Takes over an entry whose fields follow the address. The separator, or NUL, with the entry
    // untouched, when a value is missing.
    char (*take)(int index, const unsigned char *mac, const char *fields);
    // Writes an entry's fields into a text of size bytes.
    void (*put)(int index, char *fields, std::size_t size);
};

constexpr int capacity(const Cells &cells) {
    return static_cast<int>(cells.keys.texts.size()) * cells.per_text;
}

// Takes over entries from slot 0 to the one that ends with '.', or to a cell that is empty or lacks
// a value. Returns the index where it stopped: at most the capacity.
int load_entries(const EntryCodec &codec);

// Stages the cells of the first count entries (at most the capacity); save_texts then sets them.
void stage_entries(const EntryCodec &codec, int count);

constexpr std::size_t kNameWidth = 32;
constexpr int kNamesPerKey = 14;

// Where the name of an entry stands: kNameWidth bytes, NUL-padded.
using NameOf = char *(*)(int index);

// Takes over the names of the first count entries, each "length:name" and a separator. A name that
// is malformed ends the walk; the names behind it stay what they were.
void load_names(const KeyFamily &keys, int count, NameOf name_of);

// Sets the names of the first count entries. The setting behind the last full one is always
// written, empty where no name is left; those above it stay what they were.
void save_names(const KeyFamily &keys, int count, NameOf name_of);

} // namespace routerutil
