// Berkeley DB with transactions that write their log without waiting for the disk
// (DB_TXN_WRITE_NOSYNC); the next open after a kill recovers from the log. Records without a key
// are a queue (of different lengths: a record number tree), keys are B-trees.
//
// Two processes share a region of memory, find deadlocks and try again; a bracket is one
// transaction behind a lock of its own, since trying it again would mean adding all of it again.
#include <db.h>
#include <sys/stat.h>

#include "bench/engine.h"

namespace bench {
namespace {

DB_ENV* environment;
DB *records, *names, *groups, *ids;
DBC* reading;
DB_TXN* bracket;
DB_LOCK bracket_lock;
uint32_t locker;
layout kind;
bool is_shared;
std::vector<char> bulk;
DBT bulk_value;
void* bulk_position;

void well(int code, const char* step)
{
    if (code != 0) std::fprintf(stderr, "%s\n", db_strerror(code));
    must(code == 0, step, code);
}

DBT value(const void* bytes, size_t length)
{
    DBT made = {};
    made.data = const_cast<void*>(bytes);
    made.size = static_cast<u_int32_t>(length);
    return made;
}

DBT room(void* bytes, size_t length)
{
    DBT made = value(bytes, length);
    made.ulen = made.size;
    made.flags = DB_DBT_USERMEM;
    return made;
}

void version(char* text, size_t length)
{
    int major = 0, minor = 0, patch = 0;
    db_version(&major, &minor, &patch);
    std::snprintf(text, length, "%d.%d.%d", major, minor, patch);
}

DB* open_table(const char* name, DBTYPE type)
{
    DB* made = nullptr;
    well(db_create(&made, environment, 0), "db_create");
    if (type == DB_QUEUE) well(made->set_re_len(made, fixed_length), "set_re_len");
    const u_int32_t flags = DB_CREATE | DB_AUTO_COMMIT;
    well(made->open(made, nullptr, name, nullptr, type, flags, 0644), "DB->open");
    return made;
}

void open_environment(const opening& how)
{
    well(db_env_create(&environment, 0), "db_env_create");
    well(environment->set_cachesize(environment, 1, 0, 1), "set_cachesize");
    well(environment->set_lg_bsize(environment, 1 << 20), "set_lg_bsize");
    well(environment->set_lg_max(environment, 256 << 20), "set_lg_max");
    well(environment->set_lk_detect(environment, DB_LOCK_DEFAULT), "set_lk_detect");
    well(environment->set_flags(environment, DB_TXN_WRITE_NOSYNC, 1), "set_flags");
    well(environment->log_set_config(environment, DB_LOG_AUTO_REMOVE, 1), "log_set_config");
    mkdir("store.db", 0755);
    u_int32_t flags = DB_CREATE | DB_INIT_TXN | DB_INIT_LOG | DB_INIT_MPOOL;
    flags |= how.shared ? DB_INIT_LOCK : DB_PRIVATE;
    if (how.after_kill) flags |= DB_RECOVER;
    well(environment->open(environment, "store.db", flags, 0644), "DB_ENV->open");
    if (how.shared) well(environment->lock_id(environment, &locker), "lock_id");
}

void open(const opening& how)
{
    kind = how.kind;
    is_shared = how.shared;
    open_environment(how);
    records = open_table("records", kind == heap        ? DB_QUEUE
                                    : kind == heap_vary ? DB_RECNO
                                                        : DB_BTREE);
    if (kind != three_keys) return;
    names = open_table("names", DB_BTREE);
    groups = open_table("groups", DB_BTREE);
}

void end_reading()
{
    if (reading != nullptr) well(reading->close(reading), "DBC->close");
    reading = nullptr;
}

void start_reading(DB* from)
{
    if (reading == nullptr) well(from->cursor(from, nullptr, &reading, 0), "DB->cursor");
}

void close()
{
    end_reading();
    for (DB** table : {&records, &names, &groups, &ids}) {
        if (*table != nullptr) well((*table)->close(*table, 0), "DB->close");
        *table = nullptr;
    }
    well(environment->close(environment, 0), "DB_ENV->close");
}

int put(DB_TXN* within, DB* into, const void* key, size_t key_length, DBT* body)
{
    DBT key_value = value(key, key_length);
    return into->put(into, within, &key_value, body, DB_NOOVERWRITE);
}

int add_three(const record& added, DBT* body)
{
    const group_key group = ordered_group(added);
    const uint32_t id = ordered_id(added.id);
    DBT id_value = value(&id, sizeof id);
    DB_TXN* within = nullptr;
    well(environment->txn_begin(environment, nullptr, &within, 0), "txn_begin");
    int code = put(within, records, &id, sizeof id, body);
    if (code == 0) code = put(within, names, added.name, sizeof added.name, &id_value);
    if (code == 0) code = put(within, groups, group.bytes, sizeof group.bytes, &id_value);
    if (code == 0) return within->commit(within, 0);
    within->abort(within);
    return code;
}

int try_add(const record& added, DBT* body)
{
    if (kind == three_keys) return add_three(added, body);
    if (kind == by_id) {
        const uint32_t id = ordered_id(added.id);
        return put(bracket, records, &id, sizeof id, body);
    }
    db_recno_t number = 0;
    DBT key = room(&number, sizeof number);
    return records->put(records, nullptr, &key, body, DB_APPEND);
}

bool add(const record& added, int32_t length)
{
    DBT body = value(&added, static_cast<size_t>(length));
    int code = try_add(added, &body);
    while (code == DB_LOCK_DEADLOCK && is_shared) code = try_add(added, &body);
    if (code == DB_KEYEXIST) return false;
    well(code, "DB->put");
    return true;
}

// The next bulk of records from the cursor; false at the end.
bool next_bulk()
{
    if (bulk.empty()) bulk.resize(1 << 20);
    start_reading(records);
    bulk_value = room(bulk.data(), bulk.size());
    db_recno_t number = 0;
    DBT key = room(&number, sizeof number);
    const int code = reading->get(reading, &key, &bulk_value, DB_NEXT | DB_MULTIPLE_KEY);
    if (code == DB_NOTFOUND) return false;
    well(code, "DBC->get");
    DB_MULTIPLE_INIT(bulk_position, &bulk_value);
    return true;
}

int32_t scan(record* out, int32_t count)
{
    for (int32_t i = 0; i < count;) {
        [[maybe_unused]] db_recno_t number = 0;
        void* bytes = nullptr;
        u_int32_t length = 0;
        if (bulk_position != nullptr)
            DB_MULTIPLE_RECNO_NEXT(bulk_position, &bulk_value, number, bytes, length);
        if (bulk_position != nullptr) {
            std::memcpy(&out[i++], bytes, length);
        } else if (!next_bulk()) {
            end_reading();
            return i;
        }
    }
    return count;
}

void build()
{
    ids = open_table("ids", DB_BTREE);
    DB_TXN* within = nullptr;
    DBC* from = nullptr;
    well(environment->txn_begin(environment, nullptr, &within, DB_TXN_BULK), "txn_begin");
    well(records->cursor(records, nullptr, &from, 0), "DB->cursor");
    db_recno_t number = 0;
    record body;
    DBT key = room(&number, sizeof number), body_value = room(&body, sizeof body);
    int code = 0;
    while ((code = from->get(from, &key, &body_value, DB_NEXT)) == 0) {
        const uint32_t id = ordered_id(body.id);
        DBT number_value = value(&number, sizeof number);
        well(put(within, ids, &id, sizeof id, &number_value), "DB->put");
    }
    must(code == DB_NOTFOUND, "DBC->get", code);
    well(from->close(from), "DBC->close");
    well(within->commit(within, 0), "commit");
}

int32_t walk(record* out, int32_t count)
{
    start_reading(ids);
    for (int32_t i = 0; i < count; ++i) {
        uint32_t id = 0;
        db_recno_t number = 0;
        DBT key = room(&id, sizeof id), number_value = room(&number, sizeof number);
        const int code = reading->get(reading, &key, &number_value, DB_NEXT);
        if (code == DB_NOTFOUND) {
            end_reading();
            return i;
        }
        well(code, "DBC->get");
        DBT body = room(&out[i], sizeof out[i]);
        well(records->get(records, nullptr, &number_value, &body, 0), "DB->get");
    }
    return count;
}

bool look_up(int32_t id, record* out)
{
    start_reading(records);
    uint32_t ordered = ordered_id(id);
    DBT key = room(&ordered, sizeof ordered), body = room(out, sizeof *out);
    const int code = reading->get(reading, &key, &body, DB_SET);
    if (code == DB_NOTFOUND) return false;
    well(code, "DBC->get");
    return true;
}

bool find_prefix(const char* name, record* out)
{
    start_reading(names);
    char found[sizeof out->name] = {};
    std::memcpy(found, name, prefix_length);
    uint32_t id = 0;
    DBT key = room(found, sizeof found), id_value = room(&id, sizeof id);
    key.size = prefix_length;
    const int code = reading->get(reading, &key, &id_value, DB_SET_RANGE);
    if (code == DB_NOTFOUND || std::memcmp(found, name, prefix_length) != 0) return false;
    well(code, "DBC->get");
    DBT body = room(out, sizeof *out);
    well(records->get(records, nullptr, &id_value, &body, 0), "DB->get");
    return true;
}

bool update(const record& changed)
{
    end_reading();
    const uint32_t id = ordered_id(changed.id);
    DBT key = value(&id, sizeof id), body = value(&changed, fixed_length);
    if (records->exists(records, nullptr, &key, 0) != 0) return false;
    well(records->put(records, nullptr, &key, &body, 0), "DB->put");
    return true;
}

bool remove(int32_t id)
{
    end_reading();
    const uint32_t ordered = ordered_id(id);
    DBT key = value(&ordered, sizeof ordered);
    const int code = records->del(records, nullptr, &key, 0);
    if (code == DB_NOTFOUND) return false;
    well(code, "DB->del");
    return true;
}

void begin()
{
    DBT name = value("bracket", 7);
    well(environment->lock_get(environment, locker, 0, &name, DB_LOCK_WRITE, &bracket_lock),
         "lock_get");
    well(environment->txn_begin(environment, nullptr, &bracket, 0), "txn_begin");
}

void commit()
{
    well(bracket->commit(bracket, 0), "commit");
    bracket = nullptr;
    well(environment->lock_put(environment, &bracket_lock), "lock_put");
}

} // namespace

extern const engine berkeley_engine = {
    "Berkeley DB",
    "transactions with DB_TXN_WRITE_NOSYNC, DB_PRIVATE without locks (two "
    "processes: DB_INIT_LOCK), cache 1 GB, log buffer 1 MB, DB_MULTIPLE_KEY for sequential reads",
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
