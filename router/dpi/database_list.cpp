#include "dpi/conf_app.h"

#include "common/text.h"
#include "dpi/database.h"
#include "dpi/line_scanner.h"

#include <strings.h>

namespace {

constexpr const char *kListFile = "/tmp/trend/bwdpi.txt";
constexpr int kLineSize = 256;

constexpr OwnedTexts<system_conf, 2> kOwned = {&system_conf::filename, &system_conf::filepath};

bool create_list_file() {
    const File file(fopen(kListFile, "w"));
    if (!file) {
        fprintf(stderr, "[%s(%d)]: create %s error \n", "init_system_conf", 62, kListFile);
        return false;
    }
    char content[kLineSize];
    format_text(content, sizeof content, "%s:%s\n%s:%s\n%s:%s\n", kAppInfDatabase.key,
                kAppInfDatabase.default_path, kAppCatDatabase.key, kAppCatDatabase.default_path,
                kDevOsDatabase.key, kDevOsDatabase.default_path);
    // A list that could not be written whole is read as it is: the loaders have their defaults.
    fwrite(content, 1, strlen(content), file.get());
    fflush(file.get());
    fsync(fileno(file.get()));
    return true;
}

} // namespace

int init_system_conf(list_head *head) {
    File file(fopen(kListFile, "r"));
    if (!file) {
        if (!create_list_file())
            return -1;
        file.reset(fopen(kListFile, "r"));
        if (!file)
            return 0;
    }
    // Deliberately never cleared: a line without ':' or path repeats what the line before had.
    static char key[kLineSize];
    static char path[kLineSize];
    for_each_stripped_line<kLineSize>(file.get(), [head](const char *line) {
        LineScanner(line).text_until(":", key).literal(':').word(path);
        append_record<system_conf>(head, kOwned, {key, path});
    });
    return 0;
}

char *search_sys_conf(list_head *head, const char *filename) {
    const auto *entry = find_record<system_conf>(head, [filename](const system_conf &candidate) {
        return strcasecmp(candidate.filename, filename) == 0;
    });
    return entry != nullptr ? entry->filepath : nullptr;
}

void free_system_conf(list_head *head) {
    free_records<system_conf>(head, kOwned);
}

namespace {

File open_or_report(const char *path, const char *reported_path, Loader loader) {
    File file(fopen(path, "r"));
    if (!file)
        fprintf(stderr, "[%s(%d)]: get %s error \n", loader.name, loader.line, reported_path);
    return file;
}

} // namespace

File routerutil::open_database(const char *path, Loader loader) {
    return open_or_report(path, path, loader);
}

File routerutil::open_listed_database(const ListedDatabase &database, Loader loader) {
    list_head list = LIST_HEAD_INIT(list);
    init_system_conf(&list);
    const char *listed = search_sys_conf(&list, database.key);
    File file = open_or_report(listed != nullptr ? listed : database.default_path,
                               database.default_path, loader);
    free_system_conf(&list);
    return file;
}
