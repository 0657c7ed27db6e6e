#include "platform/nvram.h"

#include "settings/store.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>

namespace {
// Callers ask for a debug switch between a failed call and their report of it.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : errno_(errno) {}
    ~ErrnoKeeper() { errno = errno_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int errno_;
};

struct Text {
    char *characters = nullptr;
    std::size_t room = 0;
};

// The texts that a thread was given last. Each place keeps its memory for the next text.
struct Recent {
    std::array<Text, 16> texts;
    unsigned int next = 0;
    bool released_at_thread_end = false;
};
constinit thread_local Recent recent;
pthread_key_t recent_key;
bool recent_key_made;

void release(void *) {
    for (const Text &text : recent.texts)
        free(text.characters);
    recent = {};
}

[[gnu::constructor]] void watch_threads() {
    recent_key_made = pthread_key_create(&recent_key, release) == 0;
}

bool make_room(Text &text, std::size_t size) {
    if (size <= text.room)
        return true;
    auto *larger = static_cast<char *>(realloc(text.characters, size));
    if (larger == nullptr)
        return false;
    text = {larger, size};
    return true;
}

const char *keep(std::string_view value) {
    if (value.empty())
        return "";
    if (!recent.released_at_thread_end && recent_key_made)
        recent.released_at_thread_end = pthread_setspecific(recent_key, &recent) == 0;
    Text &text = recent.texts[recent.next++ % recent.texts.size()];
    if (!make_room(text, value.size() + 1))
        return "";
    memcpy(text.characters, value.data(), value.size());
    text.characters[value.size()] = '\0';
    return text.characters;
}

// Settings that can't be read look unset to callers, who go on with that: said once, until they can
// be read again.
void tell(int result) {
    static std::atomic<int> told;
    if (told.exchange(result) != result && result != 0)
        fprintf(stderr, "settings store in %s: %s\n", store::directory(), store::reason(result));
}

int set(std::string_view name, std::string_view value) {
    if (!store::valid_name(name) || !store::valid_value(value))
        return -1;
    store::Writing writing;
    if (writing.set(name, value) != 0)
        return -1;
    return writing.commit() == 0 ? 0 : -1;
}
} // namespace

const char *kelpNvramConfig_get(const char *name) {
    if (name == nullptr)
        return "";
    const ErrnoKeeper keeper;
    const store::Reading reading;
    tell(reading.result());
    return keep(reading.value(name));
}

int kelpNvramConfig_match(const char *name, const char *value) {
    if (name == nullptr || value == nullptr)
        return 0;
    const ErrnoKeeper keeper;
    const store::Reading reading;
    tell(reading.result());
    return reading.value(name) == value ? 1 : 0;
}

int kelpNvramConfig_set(const char *name, const char *value) {
    if (name == nullptr || value == nullptr)
        return -1;
    const ErrnoKeeper keeper;
    return set(name, value);
}

int kelpNvramConfig_save(void) {
    const ErrnoKeeper keeper;
    return store::save() == 0 ? 0 : -1;
}
