// The store's file: LMDB survives whatever the check lets through. The input is changes to a good
// store, so that pages stay pages: each is a position (three bytes) and a byte to put there, or,
// with the position's highest bit, where the file is cut.
#include "fuzz/target.h"

#include "settings/store_check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <lmdb.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kMapSize = std::size_t{1} << 20;
// LMDB opens a path: of memory, so that no disk is waited for.
const int memory = memfd_create("store", 0);
const std::string path = "/proc/self/fd/" + std::to_string(memory);

MDB_val bytes(std::string &text) {
    return {text.size(), text.data()};
}

MDB_env *open_store(unsigned int flags) {
    MDB_env *store = nullptr;
    FUZZ_REQUIRE(mdb_env_create(&store) == 0);
    mdb_env_set_mapsize(store, kMapSize);
    const int result =
        mdb_env_open(store, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK | MDB_NOSYNC | flags, 0600);
    if (result != 0) {
        mdb_env_close(store);
        return nullptr;
    }
    return store;
}

// Texts of all sizes, replaced so that pages were given free.
void change_settings(MDB_txn *change, int from, int to) {
    MDB_dbi settings = 0;
    FUZZ_REQUIRE(mdb_dbi_open(change, nullptr, 0, &settings) == 0);
    for (int i = from; i < to; ++i) {
        std::string name = "name" + std::to_string(i % 30);
        std::string text(static_cast<std::size_t>(i * 211 % 5000), 'v');
        MDB_val key = bytes(name);
        MDB_val value = bytes(text);
        mdb_put(change, settings, &key, &value, 0); // a full or damaged store refuses
    }
}

std::vector<unsigned char> good_store() {
    MDB_env *store = open_store(0);
    FUZZ_REQUIRE(store != nullptr);
    for (int i = 0; i < 40; i += 8) {
        MDB_txn *change = nullptr;
        FUZZ_REQUIRE(mdb_txn_begin(store, nullptr, 0, &change) == 0);
        change_settings(change, i, i + 8);
        FUZZ_REQUIRE(mdb_txn_commit(change) == 0);
    }
    mdb_env_close(store);
    std::vector<unsigned char> file(static_cast<std::size_t>(lseek(memory, 0, SEEK_END)));
    FUZZ_REQUIRE(pread(memory, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size()));
    return file;
}

void read_all(MDB_env *store) {
    MDB_txn *reading = nullptr;
    if (mdb_txn_begin(store, nullptr, MDB_RDONLY, &reading) != 0)
        return;
    MDB_dbi settings = 0;
    MDB_cursor *cursor = nullptr;
    if (mdb_dbi_open(reading, nullptr, 0, &settings) == 0 &&
        mdb_cursor_open(reading, settings, &cursor) == 0) {
        MDB_val name{};
        MDB_val value{};
        std::size_t sum = 0;
        while (mdb_cursor_get(cursor, &name, &value, MDB_NEXT) == 0) {
            const auto *text = static_cast<const unsigned char *>(value.mv_data);
            for (std::size_t i = 0; i < value.mv_size; i += 512)
                sum += text[i];
        }
        FUZZ_REQUIRE(sum != 1);
        mdb_cursor_close(cursor);
    }
    mdb_txn_abort(reading);
}

void write_some(MDB_env *store) {
    MDB_txn *change = nullptr;
    if (mdb_txn_begin(store, nullptr, 0, &change) != 0)
        return;
    change_settings(change, 17, 20);
    mdb_txn_abort(change);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const std::vector<unsigned char> good = good_store();
    std::vector<unsigned char> file = good;
    for (; size >= 4; data += 4, size -= 4) {
        const std::size_t at = (data[0] | data[1] << 8 | (data[2] & 0x7F) << 16) % good.size();
        if ((data[2] & 0x80) != 0)
            file.resize(std::min(file.size(), at));
        else if (at < file.size())
            file[at] = data[3];
    }
    FUZZ_REQUIRE(ftruncate(memory, 0) == 0);
    FUZZ_REQUIRE(pwrite(memory, file.data(), file.size(), 0) == static_cast<ssize_t>(file.size()));
    if (store::check_file(memory) != 0)
        return 0;
    if (MDB_env *store = open_store(0)) {
        read_all(store);
        write_some(store);
        mdb_env_close(store);
    }
    return 0;
}
