#include "platform/sim/store.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

namespace store {
namespace {
constexpr const char *kDefaultDirectory = "/var/lib/router-nvram";
constexpr std::size_t kLargestStore = std::size_t{64} << 20;

// A commit waits for its pages to be on permanent storage, not for the page that makes them the
// newest: that follows with the next commit, or with save(). Without the first wait a loss of power
// could leave pages of which none makes a whole store, and take what was saved along.
constexpr unsigned int kFlags = MDB_NOMETASYNC | MDB_NOTLS;

enum Turn { kWriter, kNewReader, kTurns };

// This process's hold on the store. It is never closed: other threads may be in it.
struct Environment {
    MDB_env *lmdb;
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

int make_directory(const char *path) {
    char partial[PATH_MAX];
    const std::size_t length = strlen(path);
    if (length >= sizeof partial)
        return ENAMETOOLONG;
    for (std::size_t i = 1; i <= length; ++i) {
        if (path[i] != '/' && path[i] != '\0')
            continue;
        memcpy(partial, path, i);
        partial[i] = '\0';
        if (mkdir(partial, 0755) != 0 && errno != EEXIST)
            return errno;
    }
    return 0;
}

// The kernel sees a deadlock (EDEADLK) where one thread of a process waits for the writer's record
// and another holds the new reader's, which the writer asks for: it does not tell threads apart.
// Whoever holds the latter waits for nothing, so that asking again succeeds.
int lock_record(MDB_env *lmdb, Turn turn, short type) {
    int descriptor = -1;
    int result = mdb_env_get_fd(lmdb, &descriptor);
    struct flock record = {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    record.l_start = turn;
    record.l_len = 1;
    while (result == 0 && fcntl(descriptor, F_SETLKW, &record) != 0)
        result = errno == EINTR || errno == EDEADLK ? 0 : errno;
    return result;
}

// LMDB's own locks are freed when their holder dies, but a process that dies just as it is woken to
// take one takes the wake-up along: the next would sleep beside a free lock. A record lock of the
// kernel has no such gap, so processes wait for that one, and meet at LMDB's one at a time.
int take_turn(Environment &environment, Turn turn) {
    pthread_mutex_lock(&environment.turns[turn]);
    const int result = lock_record(environment.lmdb, turn, F_WRLCK);
    if (result != 0)
        pthread_mutex_unlock(&environment.turns[turn]);
    return result;
}

void end_turn(Environment &environment, Turn turn) {
    (void)lock_record(environment.lmdb, turn, F_UNLCK);
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

int open_lmdb(Environment &environment) {
    int result = mdb_env_set_mapsize(environment.lmdb, kLargestStore);
    if (result == 0)
        result = mdb_env_open(environment.lmdb, directory(), kFlags, 0600);
    if (result == 0)
        result = open_settings(environment);
    return result;
}

int open_new(Environment &environment) {
    int result = make_directory(directory());
    if (result == 0)
        result = mdb_env_create(&environment.lmdb);
    if (result != 0)
        return result;
    result = open_lmdb(environment);
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

int begin_first_reading() {
    const int result = begin_reader(*current.load(), reader);
    if (result == 0 && reader_key_made)
        pthread_setspecific(reader_key, reader);
    return result;
}

int begin_reading() {
    const int result = open();
    if (result != 0)
        return result;
    return reader != nullptr ? mdb_txn_renew(reader) : begin_first_reading();
}
} // namespace

const char *directory() {
    const char *chosen = getenv("NVRAM_DIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : kDefaultDirectory;
}

const char *reason(int result) {
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
