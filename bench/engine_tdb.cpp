// TDB, a hash in a mapped file: no key order, so no lines that want one. Alone it goes without
// locks. Changes are made in the map, with no transaction; a kill in the middle of one can leave a
// broken chain, for which TDB has a check and a repair of its own.
#include <fcntl.h>
#include <sys/stat.h>

#include <csignal>
#include <tdb.h>

#include "bench/engine.h"

namespace bench {
namespace {

tdb_context* base;
TDB_DATA position;
uint32_t next_number;
layout kind;

void well(int code, const char* step)
{
    must(code == 0, step, base != nullptr ? tdb_error(base) : -1);
}

TDB_DATA value(const void* bytes, size_t length)
{
    return {static_cast<unsigned char*>(const_cast<void*>(bytes)), length};
}

void version(char* text, size_t room) { std::snprintf(text, room, "%s", "1.4"); }

void open(const opening& how)
{
    kind = how.kind;
    const int flags = TDB_NOSYNC | TDB_INCOMPATIBLE_HASH | (how.shared ? 0 : TDB_NOLOCK);
    const int hash_size = std::max(how.records, 1000) | 1;
    base = tdb_open("store.tdb", hash_size, flags, O_RDWR | O_CREAT, 0644);
    must(base != nullptr, "tdb_open", 0);
}

void close()
{
    well(tdb_close(base), "tdb_close");
    base = nullptr;
}

bool store(const void* key, const record& stored, size_t length, int flag, TDB_ERROR refused)
{
    if (tdb_store(base, value(key, 4), value(&stored, length), flag) == 0) return true;
    must(tdb_error(base) == refused, "tdb_store", tdb_error(base));
    return false;
}

bool add(const record& added, int32_t length)
{
    next_number += 1;
    const void* key = &added.id;
    if (kind != by_id) key = &next_number;
    return store(key, added, static_cast<size_t>(length), TDB_INSERT, TDB_ERR_EXISTS);
}

int deliver(TDB_DATA, TDB_DATA body, void* out)
{
    std::memcpy(out, body.dptr, body.dsize);
    return 0;
}

int32_t scan(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        const TDB_DATA next = position.dptr == nullptr ? tdb_firstkey(base)
                                                       : tdb_nextkey(base, position);
        std::free(position.dptr);
        position = next;
        if (next.dptr == nullptr) return i;
        well(tdb_parse_record(base, next, deliver, &out[i]), "tdb_parse_record");
    }
    return count;
}

bool look_up(int32_t id, record* out)
{
    return tdb_parse_record(base, value(&id, sizeof id), deliver, out) == 0;
}

bool update(const record& changed)
{
    return store(&changed.id, changed, fixed_length, TDB_MODIFY, TDB_ERR_NOEXIST);
}

bool remove(int32_t id) { return tdb_delete(base, value(&id, sizeof id)) == 0; }

void begin() { well(tdb_lockall(base), "tdb_lockall"); }
void commit() { well(tdb_unlockall(base), "tdb_unlockall"); }

} // namespace

extern const engine tdb_engine = {
    "TDB",
    "TDB_NOSYNC, TDB_INCOMPATIBLE_HASH, TDB_NOLOCK (not for two processes), as many chains "
    "as records, no transactions, tdb_lockall as the bracket",
    false,
    false,
    version,
    open,
    close,
    add,
    scan,
    nullptr,
    nullptr,
    look_up,
    nullptr,
    update,
    remove,
    begin,
    commit};

} // namespace bench
