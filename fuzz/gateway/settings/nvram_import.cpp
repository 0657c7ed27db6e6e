// Lines for `nvram import`, over a store in memory: what was imported is shown in a form that
// imports as the same, or nothing was imported.
#include "fuzz/target.h"

#include "settings/store.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

int nvram_main(int argc, char **argv);

namespace {

using Settings = std::map<std::string, std::string, std::less<>>;
Settings stored;
Settings pending;

struct Outcome {
    int status;
    std::string printed;
};

Outcome run(const char *command, const char *argument, const std::string &input) {
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream errors;
    auto *const old_in = std::cin.rdbuf(in.rdbuf());
    auto *const old_out = std::cout.rdbuf(out.rdbuf());
    auto *const old_errors = std::cerr.rdbuf(errors.rdbuf());
    std::cin.clear();
    const char *words[] = {"nvram", command, argument, nullptr};
    const int status = nvram_main(argument != nullptr ? 3 : 2, const_cast<char **>(words));
    std::cin.rdbuf(old_in);
    std::cout.rdbuf(old_out);
    std::cerr.rdbuf(old_errors);
    FUZZ_REQUIRE((status == 0) == errors.str().empty());
    return {status, out.str()};
}

} // namespace

namespace store {

const char *directory() {
    return "";
}
const char *reason(int) {
    return "";
}
Writing::Writing() : result_(0) {
    pending = stored;
}
Writing::~Writing() = default;
int Writing::set(std::string_view name, std::string_view value) {
    FUZZ_REQUIRE(valid_name(name) && valid_value(value));
    pending[std::string(name)] = value;
    return result_;
}
int Writing::unset(std::string_view name) {
    pending.erase(std::string(name));
    return result_;
}
int Writing::commit() {
    stored = pending;
    return result_;
}
Reading::Reading() : result_(0) {}
Reading::~Reading() = default;
std::string_view Reading::value(std::string_view name) const {
    const auto found = stored.find(name);
    return found == stored.end() || result_ != 0 ? std::string_view() : found->second;
}
int save() {
    return 0;
}

} // namespace store

// The cursor behind Reading::each, which is all that the command asks of LMDB itself.
static Settings::const_iterator position;
int mdb_cursor_open(MDB_txn *, MDB_dbi, MDB_cursor **) {
    position = stored.cbegin();
    return 0;
}
int mdb_cursor_get(MDB_cursor *, MDB_val *name, MDB_val *value, MDB_cursor_op) {
    if (position == stored.cend())
        return MDB_NOTFOUND;
    *name = store::as_bytes(position->first);
    *value = store::as_bytes(position->second);
    ++position;
    return 0;
}
void mdb_cursor_close(MDB_cursor *) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    stored.clear();
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (run("import", "-", text).status != 0) {
        FUZZ_REQUIRE(stored.empty());
        return 0;
    }
    const Settings imported = stored;
    const std::string shown = run("show", nullptr, "").printed;
    stored.clear();
    FUZZ_REQUIRE(run("import", "-", shown).status == 0);
    const bool all = shown.find("# no line can hold") == std::string::npos;
    FUZZ_REQUIRE(!all || stored == imported);
    return 0;
}
