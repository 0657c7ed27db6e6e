// What the device lists share in memory: fixed tables of entries with `mac` and `status`.
#pragma once

#include <cstddef>
#include <cstring>

inline namespace routerutil {

constexpr std::size_t kMacSize = 6;

// The status of a slot that ends the used run.
constexpr int kNoStatus = -1;

// Two tests for a free slot. Readers, deletion and saving go by the status ...
template <typename Entry>
bool ends_used_run(const Entry &entry) {
    return entry.status == kNoStatus;
}

// ... writers and the test for a full list go by the address. An entry that was appended without a
// status is free to the ones and taken to the others: deliberate.
template <typename Entry>
bool has_no_mac(const Entry &entry) {
    constexpr unsigned char kNoMac[kMacSize] = {};
    return memcmp(entry.mac, kNoMac, kMacSize) == 0;
}

template <typename Entry>
bool has_mac(const Entry &entry, const unsigned char *mac) {
    return memcmp(entry.mac, mac, kMacSize) == 0;
}

// How many entries the used run has.
template <typename Entry, std::size_t Size>
int used_count(const Entry (&table)[Size]) {
    std::size_t count = 0;
    while (count < Size && !ends_used_run(table[count]))
        ++count;
    return static_cast<int>(count);
}

// The readers' search: the first entry of the used run with this address, or nullptr.
template <typename Entry, std::size_t Size>
Entry *find_used(Entry (&table)[Size], const unsigned char *mac) {
    for (Entry &entry : table) {
        if (ends_used_run(entry))
            return nullptr;
        if (has_mac(entry, mac))
            return &entry;
    }
    return nullptr;
}

// The writers' search: the entry with this address, else the first slot without one, else nullptr.
template <typename Entry, std::size_t Size>
Entry *find_writable(Entry (&table)[Size], const unsigned char *mac) {
    for (Entry &entry : table) {
        if (has_no_mac(entry) || has_mac(entry, mac))
            return &entry;
    }
    return nullptr;
}

// Takes the last entry with this address out of the used run: the run's last entry is copied over
// it (its first copied_bytes) and its own slot returned, to be cleared. nullptr when not listed.
template <typename Entry, std::size_t Size>
Entry *take_out(Entry (&table)[Size], const unsigned char *mac, std::size_t copied_bytes) {
    const int count = used_count(table);
    Entry *found = nullptr;
    for (int i = 0; i < count; ++i) {
        if (has_mac(table[i], mac))
            found = &table[i];
    }
    if (found == nullptr)
        return nullptr;
    Entry *const last = &table[count - 1];
    memmove(static_cast<void *>(found), last, copied_bytes);
    return last;
}

// Fills a fixed-width text field: at most size bytes, padded with NULs, not terminated when full.
inline void fill_field(char *field, std::size_t size, const char *text) {
    const std::size_t length = strnlen(text, size);
    memmove(field, text, length);
    memset(field + length, 0, size - length);
}

} // namespace routerutil
