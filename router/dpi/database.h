// What the engine's database loaders share: how a database is found, the line loop, the record
// lists.
#pragma once

#include "common/file.h"
#include "dpi/list_head.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

inline namespace routerutil {

// A database that the file list names: its key there, and where it lies when the list lacks it.
struct ListedDatabase {
    const char *key;
    const char *default_path;
};

constexpr ListedDatabase kAppInfDatabase{"APP_INF_DB_PATH", "/tmp/trend/bwdpi.app.db"};
constexpr ListedDatabase kAppCatDatabase{"APP_CAT_DB_PATH", "/tmp/trend/bwdpi.cat.db"};
constexpr ListedDatabase kDevOsDatabase{"DEV_OS_DB_PATH", "/tmp/trend/bwdpi.devdb.db"};

// A loader's name and the line number that its failure message has always carried.
struct Loader {
    const char *name;
    int line;
};

// Opens a database for reading. A failure is reported on standard error.
File open_database(const char *path, Loader loader);

// Opens a database where the file list says, else at its default path. The failure report always
// names the default path.
File open_listed_database(const ListedDatabase &database, Loader loader);

// Calls parse(line) for every line that does not begin with '#', newline included. Lines longer
// than LineSize - 1 characters come in pieces, each a line of its own.
template <int LineSize, typename Parse>
void for_each_line(FILE *file, Parse parse) {
    char line[LineSize];
    while (read_line(file, line, LineSize)) {
        if (line[0] != '#')
            parse(line);
    }
}

// As for_each_line, with one trailing newline removed.
template <int LineSize, typename Parse>
void for_each_stripped_line(FILE *file, Parse parse) {
    for_each_line<LineSize>(file, [&](char *line) {
        strip_newline(line);
        parse(line);
    });
}

// The owned texts of a record type, for the three helpers below.
template <typename Record, std::size_t Count>
using OwnedTexts = char *Record::*const[Count];

template <typename Record, std::size_t Count>
void release_record(Record *record, const OwnedTexts<Record, Count> &owned) {
    for (char *Record::*const text : owned)
        free(record->*text);
    free(record);
}

// Appends a record that is zero but for its texts, which are copies. Null, with the list unchanged,
// when there is no memory: the loaders then skip the line without a word.
template <typename Record, std::size_t Count>
Record *append_record(list_head *head, const OwnedTexts<Record, Count> &owned,
                      const char *const (&texts)[Count]) {
    auto *record = static_cast<Record *>(calloc(1, sizeof(Record)));
    if (record == nullptr)
        return nullptr;
    for (std::size_t i = 0; i < Count; ++i) {
        record->*owned[i] = strdup(texts[i]);
        if (record->*owned[i] == nullptr) {
            release_record<Record, Count>(record, owned);
            return nullptr;
        }
    }
    list_append(head, &record->list);
    return record;
}

// Unlinks and frees every record.
template <typename Record, std::size_t Count>
void free_records(list_head *head, const OwnedTexts<Record, Count> &owned) {
    for (list_head *link = head->next; link != head;) {
        auto *record = LIST_RECORD(link, Record, list);
        link = link->next;
        list_remove(&record->list);
        release_record<Record, Count>(record, owned);
    }
}

// The first record, in file order, that matches; null when none does.
template <typename Record, typename Match>
Record *find_record(list_head *head, Match matches) {
    for (list_head *link = head->next; link != head; link = link->next) {
        auto *record = LIST_RECORD(link, Record, list);
        if (matches(*record))
            return record;
    }
    return nullptr;
}

} // namespace routerutil
