// LMDB with a writable map and no flush, so that a commit is a change of the shared map. Alone it
// goes without its lock file; a pass of reads is one read transaction with one cursor.
//
// A kill in the middle of a transaction leaves the one before it. Records are delivered as copies,
// since a pointer into the map is good until the next write only.
#include <lmdb.h>

#include "bench/engine.h"

namespace bench {
namespace {

MDB_env* environment;
MDB_txn *writing, *reading;
MDB_cursor* cursor;
MDB_dbi records, names, groups, ids;
uint32_t next_number;
bool in_bracket, restart;
layout kind;

void well(int code, const char* step) { must(code == MDB_SUCCESS, step, code); }

void version(char* text, size_t room)
{
    int major = 0, minor = 0, patch = 0;
    mdb_version(&major, &minor, &patch);
    std::snprintf(text, room, "%d.%d.%d", major, minor, patch);
}

MDB_val value(const void* bytes, size_t length) { return {length, const_cast<void*>(bytes)}; }

void start_writing()
{
    if (!in_bracket) well(mdb_txn_begin(environment, nullptr, 0, &writing), "mdb_txn_begin");
}

void end_writing()
{
    if (!in_bracket) well(mdb_txn_commit(writing), "mdb_txn_commit");
}

void start_reading(MDB_dbi from)
{
    if (reading != nullptr) return;
    well(mdb_txn_begin(environment, nullptr, MDB_RDONLY, &reading), "mdb_txn_begin");
    well(mdb_cursor_open(reading, from, &cursor), "mdb_cursor_open");
    restart = true;
}

void end_reading()
{
    if (reading == nullptr) return;
    mdb_cursor_close(cursor);
    mdb_txn_abort(reading);
    reading = nullptr;
}

void open(const opening& how)
{
    kind = how.kind;
    well(mdb_env_create(&environment), "mdb_env_create");
    well(mdb_env_set_maxdbs(environment, 4), "mdb_env_set_maxdbs");
    const size_t room = (size_t{64} << 20) + static_cast<size_t>(how.records) * 800;
    well(mdb_env_set_mapsize(environment, room), "mdb_env_set_mapsize");
    const unsigned flags = MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP | MDB_NORDAHEAD |
                           MDB_NOMEMINIT | (how.shared ? 0U : MDB_NOLOCK);
    well(mdb_env_open(environment, "store.mdb", flags, 0644), "mdb_env_open");
    start_writing();
    const unsigned flag = how.create ? MDB_CREATE : 0U;
    well(mdb_dbi_open(writing, "records", flag | MDB_INTEGERKEY, &records), "mdb_dbi_open");
    if (kind == three_keys) {
        well(mdb_dbi_open(writing, "names", flag, &names), "mdb_dbi_open");
        well(mdb_dbi_open(writing, "groups", flag, &groups), "mdb_dbi_open");
    }
    end_writing();
}

void close()
{
    end_reading();
    mdb_env_close(environment);
}

// False: the key is there already.
bool put(MDB_dbi into, MDB_val key, MDB_val put_value, unsigned flags)
{
    const int code = mdb_put(writing, into, &key, &put_value, flags);
    if (code == MDB_KEYEXIST) return false;
    well(code, "mdb_put");
    return true;
}

bool add_keys(const record& added)
{
    const MDB_val id = value(&added.id, sizeof added.id);
    const group_key group = ordered_group(added);
    return put(names, value(added.name, sizeof added.name), id, MDB_NOOVERWRITE) &&
           put(groups, value(group.bytes, sizeof group.bytes), id, MDB_NOOVERWRITE);
}

bool add(const record& added, int32_t length)
{
    start_writing();
    const MDB_val body = value(&added, static_cast<size_t>(length));
    bool well_added;
    if (kind == by_id || kind == three_keys) {
        well_added = put(records, value(&added.id, sizeof added.id), body, MDB_NOOVERWRITE);
    } else {
        well_added = put(records, value(&next_number, sizeof next_number), body, MDB_APPEND);
        next_number += 1;
    }
    if (kind == three_keys) well_added = well_added && add_keys(added);
    if (well_added) {
        end_writing();
    } else if (!in_bracket) {
        mdb_txn_abort(writing);
    }
    return well_added;
}

int32_t scan(record* out, int32_t count)
{
    start_reading(records);
    for (int32_t i = 0; i < count; ++i) {
        MDB_val key, body;
        const int code = mdb_cursor_get(cursor, &key, &body, restart ? MDB_FIRST : MDB_NEXT);
        if (code == MDB_NOTFOUND) {
            end_reading();
            return i;
        }
        well(code, "mdb_cursor_get");
        std::memcpy(&out[i], body.mv_data, body.mv_size);
        restart = false;
    }
    return count;
}

void build()
{
    start_writing();
    in_bracket = true;
    well(mdb_dbi_open(writing, "ids", MDB_CREATE | MDB_INTEGERKEY, &ids), "mdb_dbi_open");
    MDB_cursor* from = nullptr;
    well(mdb_cursor_open(writing, records, &from), "mdb_cursor_open");
    MDB_val number, body;
    while (mdb_cursor_get(from, &number, &body, MDB_NEXT) == MDB_SUCCESS)
        must(put(ids, value(body.mv_data, 4), number, 0), "mdb_put", 0);
    mdb_cursor_close(from);
    in_bracket = false;
    end_writing();
}

int32_t walk(record* out, int32_t count)
{
    start_reading(ids);
    for (int32_t i = 0; i < count; ++i) {
        MDB_val id, number, body;
        const int code = mdb_cursor_get(cursor, &id, &number, restart ? MDB_FIRST : MDB_NEXT);
        if (code == MDB_NOTFOUND) {
            end_reading();
            return i;
        }
        well(code, "mdb_cursor_get");
        well(mdb_get(reading, records, &number, &body), "mdb_get");
        std::memcpy(&out[i], body.mv_data, body.mv_size);
        restart = false;
    }
    return count;
}

bool look_up(int32_t id, record* out)
{
    start_reading(records);
    MDB_val key = value(&id, sizeof id), body;
    const int code = mdb_cursor_get(cursor, &key, &body, MDB_SET);
    if (code == MDB_NOTFOUND) return false;
    well(code, "mdb_cursor_get");
    std::memcpy(out, body.mv_data, body.mv_size);
    return true;
}

bool find_prefix(const char* name, record* out)
{
    start_reading(names);
    MDB_val key = value(name, prefix_length), id, body;
    const int code = mdb_cursor_get(cursor, &key, &id, MDB_SET_RANGE);
    if (code == MDB_NOTFOUND || std::memcmp(key.mv_data, name, prefix_length) != 0) return false;
    well(code, "mdb_cursor_get");
    well(mdb_get(reading, records, &id, &body), "mdb_get");
    std::memcpy(out, body.mv_data, body.mv_size);
    return true;
}

bool update(const record& changed)
{
    end_reading();
    start_writing();
    MDB_cursor* at = nullptr;
    well(mdb_cursor_open(writing, records, &at), "mdb_cursor_open");
    MDB_val key = value(&changed.id, sizeof changed.id), body;
    const int code = mdb_cursor_get(at, &key, &body, MDB_SET);
    if (code == MDB_SUCCESS) {
        body = value(&changed, fixed_length);
        well(mdb_cursor_put(at, &key, &body, MDB_CURRENT), "mdb_cursor_put");
    }
    mdb_cursor_close(at);
    end_writing();
    return code == MDB_SUCCESS;
}

bool remove(int32_t id)
{
    end_reading();
    start_writing();
    MDB_val key = value(&id, sizeof id);
    const int code = mdb_del(writing, records, &key, nullptr);
    end_writing();
    return code == MDB_SUCCESS;
}

void begin()
{
    start_writing();
    in_bracket = true;
}

void commit()
{
    in_bracket = false;
    end_writing();
}

} // namespace

extern const engine lmdb_engine = {
    "LMDB",
    "MDB_WRITEMAP, MDB_NOSYNC, MDB_NOMEMINIT, MDB_NORDAHEAD, MDB_NOLOCK (not for two "
    "processes), integer keys, MDB_APPEND where records are appended",
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
