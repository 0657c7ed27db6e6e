#include "settings/store.h"

#include "common/file.h"
#include "settings/store_file.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace store {
namespace {
constexpr std::size_t kLargestStore = std::size_t{64} << 20;
constexpr unsigned int kMostReaders = 512; // threads of all processes, from their first reading on

// A commit waits for its pages to be on permanent storage, not for the page that makes them the
// newest: that follows with the next commit, or with save(). Without the first wait a loss of power
// could leave pages of which none makes a whole store, and take what was saved along.
constexpr unsigned int kFlags = MDB_NOMETASYNC | MDB_NOTLS;

enum Turn { kWriter, kNewReader, kTurns };

// This process's hold on the store. It is never closed: other threads may be in it.
struct Environment {
    MDB_env *lmdb;
    int data;
    std::atomic<off_t> size;          // of its file, which only grows
    std::atomic<std::int64_t> looked; // when that was last looked at, in tenths of a second
    std::atomic<int> found;           // what was found then
    MDB_dbi settings;
    pthread_mutex_t turns[kTurns];
    MDB_txn *reader_of_fork;
    Environment *of_parent;
};

pthread_mutex_t opening = PTHREAD_MUTEX_INITIALIZER;
std::atomic<Environment *> current;
Environment *of_parents;

// Between readings a thread keeps its transaction, reset: it holds no pages then, and renewing it
// takes neither a lock nor memory.
constinit thread_local MDB_txn *reader;
pthread_key_t reader_key;
bool reader_key_made;

void end_reader(void *transaction) {
    mdb_txn_abort(static_cast<MDB_txn *>(transaction));
    reader = nullptr;
}

void before_fork() {
    pthread_mutex_lock(&opening);
}

void after_fork_in_parent() {
    pthread_mutex_unlock(&opening);
}

// LMDB does not cross a fork, and closing the parent's environment here would free the parent's own
// reader slots. It is put aside, still reachable, and the next call opens the store anew.
void after_fork_in_child() {
    if (Environment *parents = current.load()) {
        parents->reader_of_fork = reader;
        parents->of_parent = of_parents;
        of_parents = parents;
        current.store(nullptr);
    }
    reader = nullptr;
    if (reader_key_made)
        pthread_setspecific(reader_key, nullptr);
    pthread_mutex_unlock(&opening);
}

[[gnu::constructor]] void watch_forks_and_threads() {
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    reader_key_made = pthread_key_create(&reader_key, end_reader) == 0;
}

// The kernel sees a deadlock (EDEADLK) where one thread of a process waits for the writer's record
// and another holds the new reader's, which the writer asks for: it does not tell threads apart.
// Whoever holds the latter waits for nothing, so that asking again succeeds.
int lock_record(int descriptor, off_t record, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = record;
    lock.l_len = 1;
    while (fcntl(descriptor, F_SETLKW, &lock) != 0) {
        if (errno != EINTR && errno != EDEADLK)
            return errno;
    }
    return 0;
}

int lock_turn(MDB_env *lmdb, Turn turn, short type) {
    int descriptor = -1;
    const int result = mdb_env_get_fd(lmdb, &descriptor);
    return result != 0 ? result : lock_record(descriptor, turn, type);
}

// LMDB's own locks are freed when their holder dies, but a process that dies just as it is woken to
// take one takes the wake-up along: the next would sleep beside a free lock. A record lock of the
// kernel has no such gap, so processes wait for that one, and meet at LMDB's one at a time.
int take_turn(Environment &environment, Turn turn) {
    pthread_mutex_lock(&environment.turns[turn]);
    const int result = lock_turn(environment.lmdb, turn, F_WRLCK);
    if (result != 0)
        pthread_mutex_unlock(&environment.turns[turn]);
    return result;
}

void end_turn(Environment &environment, Turn turn) {
    (void)lock_turn(environment.lmdb, turn, F_UNLCK);
    pthread_mutex_unlock(&environment.turns[turn]);
}

// The slots of processes that were killed are cleared when they are needed.
int begin_reader(Environment &environment, MDB_txn *&transaction) {
    int result = take_turn(environment, kNewReader);
    if (result != 0)
        return result;
    result = mdb_txn_begin(environment.lmdb, nullptr, MDB_RDONLY, &transaction);
    if (result == MDB_READERS_FULL && mdb_reader_check(environment.lmdb, nullptr) == 0)
        result = mdb_txn_begin(environment.lmdb, nullptr, MDB_RDONLY, &transaction);
    if (result != 0)
        transaction = nullptr;
    end_turn(environment, kNewReader);
    return result;
}

// Whoever was killed in the middle of a reading would keep old pages alive: its slot goes first.
int clear_dead_readers(Environment &environment) {
    int result = take_turn(environment, kNewReader);
    if (result != 0)
        return result;
    result = mdb_reader_check(environment.lmdb, nullptr);
    end_turn(environment, kNewReader);
    return result;
}

// The settings are the environment's unnamed database.
int open_settings(Environment &environment) {
    MDB_txn *transaction = nullptr;
    int result = begin_reader(environment, transaction);
    if (result != 0)
        return result;
    result = mdb_dbi_open(transaction, nullptr, 0, &environment.settings);
    if (result != 0) {
        mdb_txn_abort(transaction);
        return result;
    }
    return mdb_txn_commit(transaction);
}

// What was good when it was opened and is not any more: LMDB itself would abort.
[[noreturn]] void end_at_damage(MDB_env *, const char *) {
    dprintf(STDERR_FILENO, "settings store in %s: %s\n", directory(), reason(MDB_CORRUPTED));
    _exit(EXIT_FAILURE);
}

int open_lmdb(MDB_env *&lmdb) {
    int result = mdb_env_create(&lmdb);
    if (result != 0)
        return result;
    mdb_env_set_assert(lmdb, end_at_damage);
    result = mdb_env_set_mapsize(lmdb, kLargestStore);
    if (result == 0)
        result = mdb_env_set_maxreaders(lmdb, kMostReaders);
    if (result == 0)
        result = mdb_env_open(lmdb, directory(), kFlags, 0600);
    if (result != 0)
        mdb_env_close(lmdb);
    return result;
}

// Whoever waits at LMDB's own lock for another to create the store takes it to be made, even when
// the other one was killed. So processes open it one by one; and a second time when the first
// failed, because what was killed may have let go of our lock before LMDB's.
int open_in_turn(MDB_env *&lmdb) {
    fill_standard_descriptors();
    const Descriptor opening_file(open_file("opening", O_RDWR | O_CREAT));
    if (!opening_file)
        return errno;
    int result = lock_record(opening_file.get(), 0, F_WRLCK);
    if (result != 0)
        return result;
    drop_torn_beginning();
    result = check_data();
    if (result != 0)
        return result;
    result = open_lmdb(lmdb);
    return result != 0 ? open_lmdb(lmdb) : 0;
}

int open_new(Environment &environment) {
    int result = make_directory();
    if (result == 0)
        result = open_in_turn(environment.lmdb);
    if (result != 0)
        return result;
    mdb_env_get_fd(environment.lmdb, &environment.data);
    fcntl(environment.data, F_SETFD, FD_CLOEXEC); // LMDB's own: commands have no business in it
    result = open_settings(environment);
    if (result != 0)
        mdb_env_close(environment.lmdb);
    return result;
}

int open_locked() {
    if (current.load() != nullptr)
        return 0;
    auto *environment = static_cast<Environment *>(calloc(1, sizeof(Environment)));
    if (environment == nullptr)
        return ENOMEM;
    for (pthread_mutex_t &turn : environment->turns)
        turn = PTHREAD_MUTEX_INITIALIZER;
    const int result = open_new(*environment);
    if (result == 0)
        current.store(environment);
    else
        free(environment);
    return result;
}

// A store that could not be opened is tried again by the next call.
int open() {
    if (current.load(std::memory_order_acquire) != nullptr)
        return 0;
    pthread_mutex_lock(&opening);
    const int result = open_locked();
    pthread_mutex_unlock(&opening);
    return result;
}

// A file that was cut since would end the process where its pages are missing.
int check_length() {
    Environment &environment = *current.load();
    const off_t known = environment.size.load();
    struct stat status {};
    if (fstat(environment.data, &status) != 0)
        return errno;
    if (status.st_size < known)
        return MDB_CORRUPTED;
    environment.size.store(status.st_size);
    return 0;
}

// A pass of the daemon reads settings by the ten thousand: the file is looked at ten times a
// second.
int check_length_now_and_then() {
    Environment &environment = *current.load();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const std::int64_t tenth = std::int64_t{now.tv_sec} * 10 + now.tv_nsec / 100'000'000;
    if (environment.looked.exchange(tenth) != tenth)
        environment.found.store(check_length());
    return environment.found.load();
}

int begin_first_reading() {
    const int result = begin_reader(*current.load(), reader);
    if (result == 0 && reader_key_made)
        pthread_setspecific(reader_key, reader);
    return result;
}

int begin_reading() {
    int result = open();
    if (result == 0)
        result = check_length_now_and_then();
    if (result != 0)
        return result;
    return reader != nullptr ? mdb_txn_renew(reader) : begin_first_reading();
}
} // namespace

const char *reason(int result) {
    if (result == MDB_CORRUPTED || result == MDB_PAGE_NOTFOUND)
        return "data.mdb is cut or damaged: put a good copy in its place, or move it away to begin "
               "anew";
    if (result == MDB_INVALID)
        return "data.mdb is no settings store";
    return mdb_strerror(result);
}

Reading::Reading() : result_(begin_reading()) {
    if (result_ != 0)
        return;
    transaction_ = reader;
    settings_ = current.load()->settings;
}

Reading::~Reading() {
    if (transaction_ != nullptr)
        mdb_txn_reset(transaction_);
}

std::string_view Reading::value(std::string_view name) const {
    if (transaction_ == nullptr || !valid_name(name))
        return {};
    MDB_val key = as_bytes(name);
    MDB_val found{};
    if (mdb_get(transaction_, settings_, &key, &found) != 0)
        return {};
    return as_text(found);
}

Writing::Writing() : result_(open()) {
    if (result_ != 0)
        return;
    Environment &environment = *current.load();
    result_ = check_length();
    if (result_ == 0)
        result_ = take_turn(environment, kWriter);
    if (result_ != 0)
        return;
    settings_ = environment.settings;
    result_ = clear_dead_readers(environment);
    if (result_ == 0)
        result_ = mdb_txn_begin(environment.lmdb, nullptr, 0, &transaction_);
    if (result_ != 0) {
        transaction_ = nullptr;
        end_turn(environment, kWriter);
    }
}

Writing::~Writing() {
    if (transaction_ == nullptr)
        return;
    mdb_txn_abort(transaction_);
    end_turn(*current.load(), kWriter);
}

int Writing::set(std::string_view name, std::string_view value) {
    if (result_ != 0)
        return result_;
    if (!valid_name(name) || !valid_value(value))
        return EINVAL;
    MDB_val key = as_bytes(name);
    MDB_val text = as_bytes(value);
    return mdb_put(transaction_, settings_, &key, &text, 0);
}

int Writing::unset(std::string_view name) {
    if (result_ != 0)
        return result_;
    if (!valid_name(name))
        return EINVAL;
    MDB_val key = as_bytes(name);
    const int result = mdb_del(transaction_, settings_, &key, nullptr);
    return result == MDB_NOTFOUND ? 0 : result;
}

int Writing::commit() {
    if (transaction_ == nullptr)
        return result_;
    MDB_txn *transaction = transaction_;
    transaction_ = nullptr;
    result_ = mdb_txn_commit(transaction);
    end_turn(*current.load(), kWriter);
    return result_;
}

int save() {
    const int result = open();
    return result != 0 ? result : mdb_env_sync(current.load()->lmdb, 1);
}

} // namespace store
