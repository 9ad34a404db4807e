// SQLite with prepared statements, synchronous=OFF, a cache that holds everything and a mapped
// file. Records are an id and the rest as one blob; where other keys are wanted, a column each.
//
// The journal is a write-ahead log. journal_mode=OFF and MEMORY write up to twice as fast, but a
// kill in the middle of a statement then breaks the file and takes records of earlier calls along.
#include <cstddef>

#include <sched.h>
#include <sqlite3.h>

#include "bench/engine.h"

namespace bench {
namespace {

sqlite3* base;
sqlite3_stmt *insertion, *selection, *change, *removal, *sequence, *prefix;
layout kind;

void well(int code, const char* step)
{
    if (code != SQLITE_OK && base != nullptr) std::fprintf(stderr, "%s\n", sqlite3_errmsg(base));
    must(code == SQLITE_OK, step, code);
}

void run(const char* statement)
{
    well(sqlite3_exec(base, statement, nullptr, nullptr, nullptr), statement);
}

void prepare(sqlite3_stmt** statement, const char* text)
{
    well(sqlite3_prepare_v3(base, text, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr), text);
}

void version(char* text, size_t room) { std::snprintf(text, room, "%s", sqlite3_libversion()); }

int again(void*, int)
{
    sched_yield();
    return 1;
}

void open(const opening& how)
{
    kind = how.kind;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    well(sqlite3_open_v2("store.sqlite", &base, flags, nullptr), "sqlite3_open_v2");
    sqlite3_busy_handler(base, again, nullptr);
    if (!how.shared) run("PRAGMA locking_mode=EXCLUSIVE");
    run("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=10000; PRAGMA synchronous=OFF; PRAGMA "
        "cache_size=-1000000;"
        "PRAGMA mmap_size=8000000000; PRAGMA temp_store=MEMORY; PRAGMA cache_spill=OFF");
    const bool keys = kind == three_keys;
    if (how.create) {
        if (keys) {
            run("CREATE TABLE t (id INTEGER PRIMARY KEY, name BLOB, amount REAL, grp INTEGER,"
                " rest BLOB); CREATE UNIQUE INDEX by_name ON t (name);"
                "CREATE UNIQUE INDEX by_group ON t (grp, amount)");
        } else {
            run(kind == by_id ? "CREATE TABLE t (id INTEGER PRIMARY KEY, rest BLOB)"
                              : "CREATE TABLE t (id INTEGER, rest BLOB)");
        }
    }
    prepare(&insertion,
            keys ? "INSERT INTO t VALUES (?1, ?2, ?3, ?4, ?5)" : "INSERT INTO t VALUES (?1, ?2)");
    if (keys) prepare(&prefix, "SELECT * FROM t WHERE name >= ?1 ORDER BY name LIMIT 1");
    if (kind == by_id) {
        prepare(&selection, "SELECT * FROM t WHERE id = ?1");
        prepare(&change, "UPDATE t SET rest = ?2 WHERE id = ?1");
        prepare(&removal, "DELETE FROM t WHERE id = ?1");
    }
}

void close()
{
    for (sqlite3_stmt** each : {&insertion, &selection, &change, &removal, &sequence, &prefix}) {
        sqlite3_finalize(*each);
        *each = nullptr;
    }
    well(sqlite3_close(base), "sqlite3_close");
    base = nullptr;
}

void bind(sqlite3_stmt* to, int place, const void* bytes, size_t length)
{
    well(sqlite3_bind_blob(to, place, bytes, static_cast<int>(length), SQLITE_STATIC), "bind");
}

// Runs a statement that answers no rows. False: a key is there already.
bool finish(sqlite3_stmt* statement)
{
    const int code = sqlite3_step(statement);
    sqlite3_reset(statement);
    if (code == SQLITE_CONSTRAINT) return false;
    must(code == SQLITE_DONE, "sqlite3_step", code);
    return true;
}

bool add(const record& added, int32_t length)
{
    sqlite3_bind_int(insertion, 1, added.id);
    if (kind == three_keys) {
        bind(insertion, 2, added.name, sizeof added.name);
        sqlite3_bind_double(insertion, 3, added.amount);
        sqlite3_bind_int(insertion, 4, added.group);
        bind(insertion, 5, added.payload, static_cast<size_t>(length) - offsetof(record, payload));
    } else {
        bind(insertion, 2, added.name, static_cast<size_t>(length) - sizeof added.id);
    }
    return finish(insertion);
}

size_t copy_column(sqlite3_stmt* from, int column, char* to)
{
    const void* bytes = sqlite3_column_blob(from, column);
    const size_t length = static_cast<size_t>(sqlite3_column_bytes(from, column));
    std::memcpy(to, bytes, length);
    return length;
}

void deliver(sqlite3_stmt* from, record* out)
{
    out->id = sqlite3_column_int(from, 0);
    copy_column(from, 1, out->name);
    if (kind != three_keys) return;
    out->amount = sqlite3_column_double(from, 2);
    out->group = sqlite3_column_int(from, 3);
    copy_column(from, 4, out->payload);
}

int32_t deliver_rows(const char* text, record* out, int32_t count)
{
    if (sequence == nullptr) prepare(&sequence, text);
    for (int32_t i = 0; i < count; ++i) {
        const int code = sqlite3_step(sequence);
        if (code == SQLITE_DONE) {
            sqlite3_finalize(sequence);
            sequence = nullptr;
            return i;
        }
        must(code == SQLITE_ROW, "sqlite3_step", code);
        deliver(sequence, &out[i]);
    }
    return count;
}

int32_t scan(record* out, int32_t count)
{
    return deliver_rows("SELECT * FROM t ORDER BY rowid", out, count);
}

void build() { run("CREATE INDEX by_id ON t (id)"); }

int32_t walk(record* out, int32_t count)
{
    return deliver_rows("SELECT * FROM t INDEXED BY by_id ORDER BY id", out, count);
}

bool one_row(sqlite3_stmt* statement, record* out)
{
    const int code = sqlite3_step(statement);
    if (code == SQLITE_ROW) deliver(statement, out);
    sqlite3_reset(statement);
    must(code == SQLITE_ROW || code == SQLITE_DONE, "sqlite3_step", code);
    return code == SQLITE_ROW;
}

bool look_up(int32_t id, record* out)
{
    sqlite3_bind_int(selection, 1, id);
    return one_row(selection, out);
}

bool find_prefix(const char* name, record* out)
{
    bind(prefix, 1, name, prefix_length);
    return one_row(prefix, out) && std::memcmp(name, out->name, prefix_length) == 0;
}

bool update(const record& changed)
{
    sqlite3_bind_int(change, 1, changed.id);
    bind(change, 2, changed.name, fixed_length - sizeof changed.id);
    return finish(change) && sqlite3_changes(base) == 1;
}

bool remove(int32_t id)
{
    sqlite3_bind_int(removal, 1, id);
    return finish(removal) && sqlite3_changes(base) == 1;
}

void begin() { run("BEGIN IMMEDIATE"); }
void commit() { run("COMMIT"); }

} // namespace

extern const engine sqlite_engine = {
    "SQLite",
    "journal_mode=WAL, wal_autocheckpoint=10000, synchronous=OFF, locking_mode=EXCLUSIVE (not for "
    "two processes), "
    "prepared statements, cache_size 1 GB, mmap_size 8 GB, temp_store=MEMORY",
    true,
    true,
    version,
    open,
    close,
    add,
    scan,
    build,
    walk,
    look_up,
    find_prefix,
    update,
    remove,
    begin,
    commit};

} // namespace bench
