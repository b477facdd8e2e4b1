// The information service outside the appliance: an SQLite database in /var/run, one row per key.
// Write-ahead logging lets infod-get and other readers look at any time without holding off the
// daemon, and a commit costs one write and no flush: /var/run does not outlive a reboot anyway.

#include "platform/infod.h"

#include "platform/clock.h"
#include "platform/paths.h"

#include <cerrno>
#include <ctime>
#include <mutex>

#include <sqlite3.h>
#include <sys/stat.h>

constexpr const char *store_path = "/var/run/infod.db";
// Per value, and a record has many: a locked store must not stall the daemon.
constexpr int busy_tries_max = 10;
constexpr int busy_pause_us = 2000;
constexpr int the_handle = 1;

enum store_statement { begin_session, push_value, end_session, abandon_session, statement_count };

constexpr const char *statement_texts[statement_count] = {
    "BEGIN IMMEDIATE",
    ("INSERT INTO info(key, kind, value, updated) VALUES(?1, ?2, ?3, ?4)"
     " ON CONFLICT(key) DO UPDATE SET kind = ?2, value = ?3, updated = ?4"),
    "COMMIT",
    "ROLLBACK",
};

static struct {
    std::mutex mutex; // held from a session's start to its end
    sqlite3 *db = nullptr;
    sqlite3_stmt *statements[statement_count] = {};
    struct stat file = {}; // the database file that is open
    bool failed = false;   // a value of the running session was not stored
} store;

static void close_store()
{
    for (sqlite3_stmt *&statement : store.statements) {
        sqlite3_finalize(statement);
        statement = nullptr;
    }
    sqlite3_close(store.db);
    store.db = nullptr;
}

// Whether a statement that met another program's lock is tried again. The short waits of a record's
// values add up, so there are none once the daemon was told to end.
static int try_again(void *, int tries)
{
    if (tries >= busy_tries_max || clock_stopped())
        return 0;
    clock_pause_us(busy_pause_us);
    return 1;
}

static int prepare_store()
{
    constexpr const char *setup = "PRAGMA journal_mode = WAL;"
                                  "PRAGMA synchronous = OFF;"
                                  "PRAGMA cache_size = 8;"
                                  "PRAGMA wal_autocheckpoint = 64;"
                                  "CREATE TABLE IF NOT EXISTS info("
                                  "key TEXT PRIMARY KEY, kind TEXT, value, updated INTEGER)";
    sqlite3_busy_handler(store.db, try_again, nullptr);
    if (sqlite3_exec(store.db, setup, nullptr, nullptr, nullptr) != SQLITE_OK)
        return -1;
    for (int i = 0; i < statement_count; i++)
        if (sqlite3_prepare_v2(store.db, statement_texts[i], -1, &store.statements[i], nullptr) !=
            SQLITE_OK)
            return -1;
    return 0;
}

// errno for SQLite's reason, because the caller's log line shows errno.
static int store_errno(int code)
{
    switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return EBUSY;
    case SQLITE_READONLY:
        return EROFS;
    case SQLITE_PERM:
    case SQLITE_CANTOPEN:
        return EACCES;
    case SQLITE_FULL:
        return ENOSPC;
    case SQLITE_NOMEM:
        return ENOMEM;
    default:
        return EIO;
    }
}

// Opens the store unless it is open already. A database that someone removed or replaced is opened
// anew: writing on into a file without a name would lose everything silently.
static int open_store()
{
    const std::string path = rooted(store_path);
    struct stat now = {};
    const bool exists = stat(path.c_str(), &now) == 0;
    if (store.db && (!exists || now.st_ino != store.file.st_ino || now.st_dev != store.file.st_dev))
        close_store();
    if (store.db)
        return SQLITE_OK;
    int code = sqlite3_open_v2(path.c_str(), &store.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                               nullptr);
    if (code == SQLITE_OK && prepare_store() != 0)
        code = sqlite3_errcode(store.db);
    if (code == SQLITE_OK && stat(path.c_str(), &store.file) != 0)
        code = SQLITE_CANTOPEN;
    if (code != SQLITE_OK)
        close_store();
    return code;
}

static int run_statement(store_statement which)
{
    sqlite3_stmt *statement = store.statements[which];
    sqlite3_step(statement);
    return sqlite3_reset(statement);
}

int infod_push_multiple_start(int *handle)
{
    *handle = -1;
    store.mutex.lock();
    int code = open_store();
    if (code == SQLITE_OK)
        code = run_statement(begin_session);
    if (code != SQLITE_OK) {
        store.mutex.unlock();
        errno = store_errno(code);
        return code;
    }
    store.failed = false;
    *handle = the_handle;
    return 0;
}

static int64_t now_epoch_ms()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Stores the value that is bound already as the statement's third parameter.
static int store_value(const char *key, const char *kind)
{
    sqlite3_stmt *statement = store.statements[push_value];
    sqlite3_bind_text(statement, 1, key, -1, SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, kind, -1, SQLITE_STATIC);
    sqlite3_bind_int64(statement, 4, now_epoch_ms());
    const int code = run_statement(push_value);
    sqlite3_clear_bindings(statement);
    if (code != SQLITE_OK) {
        store.failed = true;
        errno = store_errno(code);
    }
    return code;
}

int infod_push_multiple_text(int handle, const char *key, int count, const char *text)
{
    if (handle != the_handle || count != 1)
        return SQLITE_MISUSE;
    sqlite3_bind_text(store.statements[push_value], 3, text, -1, SQLITE_STATIC);
    return store_value(key, "text");
}

int infod_push_multiple_long(int handle, const char *key, int count, long value)
{
    if (handle != the_handle || count != 1)
        return SQLITE_MISUSE;
    sqlite3_bind_int64(store.statements[push_value], 3, value);
    return store_value(key, "long");
}

int infod_push_multiple_end(int handle)
{
    if (handle != the_handle)
        return SQLITE_MISUSE;
    const int code = run_statement(store.failed ? abandon_session : end_session);
    if (code != SQLITE_OK) {
        (void)run_statement(abandon_session);
        errno = store_errno(code);
    }
    const bool lost = code != SQLITE_OK || store.failed;
    store.mutex.unlock();
    return lost ? SQLITE_ERROR : SQLITE_OK;
}
